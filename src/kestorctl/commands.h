// The commands, a group each: a group enters its commands in the command line and, when one of them is chosen there,
// leaves what is to be run in `*chosen`.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdint>
#include <functional>
#include <memory>

#include "answer.h"

namespace kestorctl {

// Fills in the answer. Throws LocalFailure and UsageError; what the answer holds by then is told all the same.
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

// What a command, or a group of them, is called; what it is for; and the text below its help.
struct CommandTexts {
  const char* name;
  const char* description;
  const char* footer;
};

// A group of commands, of which one must be given.
CLI::App* AddGroup(CLI::App* parent, const CommandTexts& texts);

// A command that is still without arguments, and where they go; that lives as long as the command may be run.
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
  // It keeps the options alive. Of a command that has commands of its own, it comes after the one that was given.
  command->callback([=] {
    if (command->get_subcommands().empty()) *chosen = [=](Answer& answer) { run(*options, answer); };
  });
  return {command, options.get()};
}

// "" when the argument is UTF-8, otherwise what is wrong.
std::string CheckUtf8(const std::string& argument);

// "" when the argument can name a file, otherwise what is wrong.
std::string CheckFileName(const std::string& argument);

// A number from 0 to `most`. Throws UsageError, with `what` for the argument's name, when the text is none.
std::uint32_t NumberArgument(const std::string& what, const std::string& decimal, std::uint32_t most);

// An argument without a name of its own that is a text: what is not UTF-8 is wrong usage.
template <typename Text>
CLI::Option* AddText(CLI::App* command, const char* name, Text* text, const char* description) {
  return command->add_option(name, *text, description)->type_name("")->required()->check(CheckUtf8);
}

}  // namespace kestorctl
