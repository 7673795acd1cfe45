// The commands. Each Add function below adds one or more of them to the command line. Parsing the arguments then stores
// the command that they name in `*chosen`, ready to run.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdint>
#include <functional>
#include <memory>

#include "answer.h"

namespace kestorctl {

// Fills in the answer. Throws LocalFailure and UsageError; what the answer holds by then is still written.
using Command = std::function<void(Answer&)>;

void AddSetup(CLI::App& program, Command* chosen);
void AddStatus(CLI::App& program, Command* chosen);
void AddStart(CLI::App& program, Command* chosen);
void AddLog(CLI::App& program, Command* chosen);
void AddRegistry(CLI::App& program, Command* chosen);
void AddModels(CLI::App& program, Command* chosen);
void AddCopy(CLI::App& program, Command* chosen);
void AddList(CLI::App& program, Command* chosen);
void AddListing(CLI::App& program, Command* chosen);
void AddFields(CLI::App& program, Command* chosen);
void AddShow(CLI::App& program, Command* chosen);
void AddRenumber(CLI::App& program, Command* chosen);
void AddMigrate(CLI::App& program, Command* chosen);
void AddFind(CLI::App& program, Command* chosen);
void AddPreview(CLI::App& program, Command* chosen);
void AddBook(CLI::App& program, Command* chosen);
void AddCheck(CLI::App& program, Command* chosen);
void AddExport(CLI::App& program, Command* chosen);
void AddImport(CLI::App& program, Command* chosen);
void AddHistory(CLI::App& program, Command* chosen);
void AddRestore(CLI::App& program, Command* chosen);
void AddDiff(CLI::App& program, Command* chosen);
void AddLegacy(CLI::App& program, Command* chosen);

// The name of a command or a group of them, what it is for, and the text below its help.
struct CommandTexts {
  const char* name;
  const char* description;
  const char* footer;
};

// Adds a group of commands. The arguments must name one of them.
CLI::App* AddGroup(CLI::App* parent, const CommandTexts& texts);

// A command without arguments so far, and the options that will hold them. The options live as long as the command can
// run.
template <typename Options>
struct AddedCommand {
  CLI::App* command;
  Options* options;
};

template <typename Options>
AddedCommand<Options> AddCommand(CLI::App* group, Command* chosen, const CommandTexts& texts,
                                 void (*run)(const Options&, Answer&)) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = group->add_subcommand(texts.name, texts.description);
  command->footer(texts.footer);
  // The callback keeps the options alive. CLI11 calls it after the callback of a subcommand that was given, whose
  // choice must stand.
  command->callback([=] {
    if (command->get_subcommands().empty()) *chosen = [=](Answer& answer) { run(*options, answer); };
  });
  return {command, options.get()};
}

// Returns "" when the argument is UTF-8, otherwise what is wrong.
std::string CheckUtf8(const std::string& argument);

// Returns "" when the argument can name a file, otherwise what is wrong.
std::string CheckFileName(const std::string& argument);

// Parses a number from 0 to `most`. Throws UsageError, which calls the argument `what`, when the text is not one.
std::uint32_t NumberArgument(const std::string& what, const std::string& decimal, std::uint32_t most);

// Adds a required positional argument that must be UTF-8.
template <typename Text>
CLI::Option* AddText(CLI::App* command, const char* name, Text* text, const char* description) {
  return command->add_option(name, *text, description)->type_name("")->required()->check(CheckUtf8);
}

}  // namespace kestorctl
