// Contents that a command reads from its caller's files, or gives to its caller.
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

// Reads the file. Throws LocalFailure when it cannot be read, or is longer than a call can carry.
std::string TakeIn(const std::string& file);

// Writes the content to the file or, for "-", puts it into the answer: in a JSON document as "content" when it may be a
// text and is UTF-8, otherwise as "contentBase64". Throws LocalFailure.
enum class ContentForm { kText, kBytes };
void HandOut(std::string_view content, const std::string& file, Answer& answer, ContentForm form = ContentForm::kText);

}  // namespace kestorctl
