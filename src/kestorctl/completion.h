// Completion of the word that a user is typing in a shell.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>
#include <vector>

namespace kestorctl {

// Returns the candidates for the last of the words, which follow the program's name: one a line, with a tab and a
// description where there is one. ":files" and ":folders" stand for those of this system. Leaves out what cannot be
// read. Starts no server.
std::string Completions(const CLI::App& program, const std::vector<std::string>& words);

}  // namespace kestorctl
