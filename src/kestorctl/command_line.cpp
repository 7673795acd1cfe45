#include "command_line.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "admin/admin.h"
#include "commands.h"
#include "completion.h"
#include "failure.h"
#include "platform/home/home.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

constexpr void (*kGroups[])(CLI::App&, Command*) = {
    AddSetup, AddStatus, AddStart,  AddLog,     AddRegistry, AddList,     AddListing, AddModels,
    AddCopy,  AddFields, AddShow,   AddPreview, AddBook,     AddRenumber, AddMigrate, AddFind,
    AddCheck, AddExport, AddImport, AddHistory, AddRestore,  AddDiff,     AddLegacy};

constexpr const char* kProgramFooter =
    R"(What belongs to one installation lies below its home: the folder of --home, else $KESTOR_HOME, else
$XDG_CONFIG_HOME/kestor, else ~/.config/kestor. The server is started when a command needs it and ends by itself.

Arguments and texts are UTF-8. An argument that begins with a hyphen follows "--".

Exit status: 0 done; 3 done with a notice (no such model, a model of that name exists, …); 1 failure; 2 wrong usage;
141 when the reader of standard output has gone away. For 1, 2 and 3 a line on standard error says what is wrong; if it
is the server's answer, with the result code, its name and its meaning:
  kestorctl: 0x00040004 KESTOR_ARQUIVO_JA_EXISTE: a model of that name exists

With --json standard output is one document, also when the command fails:
  "result"            the result code; 0x00000000 when all is done
  "name", "meaning"   what the server's result is called and means, "detail" what else is known, unless it is 0
  "error"             what failed before the server was asked (result 0x80070057 for wrong usage)
  "note"              what else there is to know, also when all is done
  "migrated"          how many first-generation models became report documents on the way, unless none did
and the command's own members; see the help of each command.)";

struct Globals {
  std::string home;
  bool json = false;
};

void AddGlobals(CLI::App& program, Globals* globals) {
  program.add_option("--home", globals->home, "The home of the installation")->type_name("DIR");
  program.add_flag("--json", globals->json, "Print everything as one JSON document on standard output");
}

// The caller gets the JSON document even when the arguments do not parse.
bool AsksForJson(int argc, char** argv) {
  char** const end = std::find(argv, argv + argc, std::string_view("--"));
  return std::find(argv, end, std::string_view("--json")) != end;
}

// Returns the innermost command that the arguments name; the program when they name none.
const CLI::App* NamedCommand(const CLI::App& program) {
  const CLI::App* named = &program;
  while (!named->get_subcommands().empty())
    named = named->get_subcommands().back();
  return named;
}

std::string HelpHint(const CLI::App& program) {
  std::string words;
  for (const CLI::App* named = NamedCommand(program); named != nullptr; named = named->get_parent()) {
    words.insert(0, named->get_name() + " ");
  }
  return "; see '" + words + "--help'";
}

// Counts the letters that must be changed, left out, added or swapped with a neighbour to turn one word into the other.
std::size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        rows[i][j] = i + j;
        continue;
      }
      const std::size_t changed = rows[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      rows[i][j] = std::min({changed, rows[i - 1][j] + 1, rows[i][j - 1] + 1});
      const bool isSwapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (isSwapped) rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
    }
  }
  return rows.back().back();
}

// Returns the command that was probably meant; empty when none is similar.
std::string Alike(const CLI::App& group, const std::string& mistyped) {
  constexpr std::size_t kMostChanges = 2;
  constexpr std::size_t kLongest = 20;
  std::string alike;
  std::size_t least = std::min(kMostChanges + 1, mistyped.size());
  if (mistyped.size() > kLongest) return alike;
  for (const CLI::App* command : group.get_subcommands({})) {
    const std::size_t changes = Distance(mistyped, command->get_name());
    if (changes >= least) continue;
    least = changes;
    alike = command->get_name();
  }
  return alike;
}

std::string NoCommand(const CLI::App& group, const std::string& word) {
  const std::string alike = Alike(group, word);
  return "there is no command " + word + (alike.empty() ? "" : ": did you mean " + alike + "?");
}

// CLI11 says of a mistyped command only that a command is required. This names the mistyped word.
std::string ParseProblem(const CLI::App& program, const CLI::ParseError& error) {
  const std::vector<std::string> left = program.remaining(true);
  if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr) return error.what();
  if (NamedCommand(program)->get_require_subcommand_min() == 0) return error.what();
  return left.empty() ? "a command is needed" : NoCommand(*NamedCommand(program), left.front());
}

// The command help: prints what --help of a command prints.
void AddHelp(CLI::App& program, Command* chosen) {
  const auto words = std::make_shared<std::vector<std::string>>();
  CLI::App* const help = program.add_subcommand("help", "Show how to use a command");
  help->footer("Shows the same as COMMAND --help.\n\nExamples:\n  kestorctl help list\n  kestorctl help legacy write");
  help->add_option("COMMAND", *words, "The command, or a group and a command in it")->type_name("");
  help->callback([&program, words, chosen] {
    *chosen = [&program, words](Answer& answer) {
      answer.json = false;
      CLI::App* command = &program;
      std::string path;
      for (const std::string& word : *words) {
        const std::vector<CLI::App*> named =
            command->get_subcommands([&](const CLI::App* one) { return one->get_name() == word; });
        if (named.empty()) throw UsageError(NoCommand(*command, word));
        path += (path.empty() ? "" : " ") + command->get_name();
        command = named.front();
      }
      if (command == &program) command->clear();  // help() would describe the command that was given, which is this one
      answer.output = command->help(path);
    };
  });
}

void UseHome(const CLI::App& program, const Globals& globals) {
  if (program.count("--home") == 0) return;
  if (globals.home.empty()) throw UsageError("--home: the folder has no name");
  platform::Home::Use(globals.home);
}

void Run(CLI::App& program, const Globals& globals, const Command& chosen, int argc, char** argv, Answer* answer) {
  try {
    program.parse(argc, argv);
    answer->json = globals.json;
    UseHome(program, globals);
  } catch (const CLI::CallForHelp&) {
    answer->json = false;
    answer->output = program.help();
    return;
  } catch (const CLI::CallForVersion& version) {
    answer->json = false;
    answer->output = std::string(version.what()) + "\n";
    return;
  } catch (const CLI::ParseError& error) {
    throw UsageError(ParseProblem(program, error));
  }
  chosen(*answer);
}

void Fail(Answer* answer, HRESULT result, const std::string& error) {
  answer->result = result;
  answer->error = error;
}

}  // namespace

CLI::App* AddGroup(CLI::App* parent, const CommandTexts& texts) {
  CLI::App* group = parent->add_subcommand(texts.name, texts.description);
  group->require_subcommand(1);
  group->footer(texts.footer);
  return group;
}

std::string CheckUtf8(const std::string& argument) {
  return text::IsValidUtf8(argument) ? "" : "the text is no valid UTF-8";
}

std::string CheckFileName(const std::string& argument) {
  return argument.empty() ? "the file has no name" : "";
}

std::uint32_t NumberArgument(const std::string& what, const std::string& decimal, std::uint32_t most) {
  std::uint32_t number = 0;
  const char* const end = decimal.data() + decimal.size();
  const auto [last, error] = std::from_chars(decimal.data(), end, number);
  if (error == std::errc() && last == end && number <= most) return number;
  throw UsageError(what + ": a whole number from 0 to " + std::to_string(most) + " is needed");
}

int RunCommandLine(int argc, char** argv) {
  CLI::App program("Command-line client of KESTOR, the report-model repository.", "kestorctl");
  program.fallthrough();
  program.require_subcommand(1);
  program.get_formatter()->column_width(26);
  program.footer(kProgramFooter);
  Globals globals;
  AddGlobals(program, &globals);
  program.set_version_flag("--version", "kestorctl " KESTOR_VERSION, "Print the version");
  Command chosen;
  for (const auto add : kGroups)
    add(program, &chosen);
  AddHelp(program, &chosen);

  Answer answer;
  // CLI11 must not parse this: the words after it are an unfinished command line.
  if (argc > 1 && std::string_view(argv[1]) == "complete") {
    answer.output = Completions(program, {argv + 2, argv + argc});
    return Deliver(answer);
  }
  answer.json = AsksForJson(argc, argv);
  try {
    Run(program, globals, chosen, argc, argv, &answer);
  } catch (const UsageError& error) {
    answer.wrongUsage = true;
    Fail(&answer, E_INVALIDARG, error.what() + HelpHint(program));
  } catch (const LocalFailure& error) {
    Fail(&answer, error.Result(), error.what());
  } catch (const admin::Failure& error) {
    Fail(&answer, E_FAIL, error.what());
  } catch (const registry::FormatError& error) {
    Fail(&answer, HRESULT_FROM_WIN32(ERROR_BADDB), error.what());
  } catch (const std::filesystem::filesystem_error& error) {
    // When there are two paths, the second is the one that could not be made.
    const std::filesystem::path& path = error.path2().empty() ? error.path1() : error.path2();
    Fail(&answer, E_FAIL, path.string() + ": " + error.code().message());
  } catch (const std::bad_alloc&) {
    Fail(&answer, E_OUTOFMEMORY, "out of memory");
  }
  return Deliver(answer);
}

}  // namespace kestorctl
