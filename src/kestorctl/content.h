// Contents that a command takes from its caller's files, or hands out.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>
#include <string_view>

#include "answer.h"

namespace kestorctl {

void AddInput(CLI::App* command, std::string* file);   // FILE; "-" is standard input
void AddOutput(CLI::App* command, std::string* file);  // -o FILE; "-" is standard output

// The content of the file, no more than a call can carry. Throws LocalFailure.
std::string TakeIn(const std::string& file);

// Writes the content to the file, or makes it the answer's: in the document as "content" when it may be a text and is
// UTF-8, otherwise as "contentBase64". Throws LocalFailure.
enum class ContentForm { kText, kBytes };
void HandOut(std::string_view content, const std::string& file, Answer& answer, ContentForm form = ContentForm::kText);

}  // namespace kestorctl
