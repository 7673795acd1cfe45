// What a shell can put in the place of a word that is being typed.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>
#include <vector>

namespace kestorctl {

// A line for everything that can take the place of the last of the words, which follow the program's name: with a tab
// and a description where there is one. ":files" and ":folders" stand for those of this system. What cannot be read is
// left out. Starts no server.
std::string Completions(const CLI::App& program, const std::vector<std::string>& words);

}  // namespace kestorctl
