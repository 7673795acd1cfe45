// The commands of the registry: they work on the home itself, not through the server.
#include <optional>
#include <string>

#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "host_files.h"
#include "platform/home/home.h"
#include "registry_values.h"

namespace kestorctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kGroupFooter =
    R"(A KEY starts with HKEY_LOCAL_MACHINE (HKLM) or HKEY_CLASSES_ROOT (HKCR); names ignore letter case. The registry is the
file registry.reg of the home. Commands that change it replace the file as a whole.

Exit status: 0 done; 1 failure, such as a key or value that does not exist; 2 wrong usage.)";

constexpr const char* kGetFooter =
    R"(Prints a value of KEY, or without NAME its default value: a text as it is, a list of texts one per line, a number in
decimal, and other data as bytes in hexadecimal.

With --json: "type", such as "REG_SZ", and "value": a text, a list of texts, a number, or hexadecimal digits.

Example:
  kestorctl registry get 'HKLM\SOFTWARE\Norvela' Relatorios

Exit status: 0 printed; 1 there is no such value, or another failure; 2 wrong usage.)";

constexpr const char* kSetFooter =
    R"(Sets a text value, and makes the key if it does not exist. An empty NAME is the key's default value.

Example:
  kestorctl registry set 'HKLM\SOFTWARE\Norvela' Relatorios 'D:\Dados\Relatorios'

Exit status: 0 set; 1 failure; 2 wrong usage.)";

constexpr const char* kDeleteFooter =
    R"(Deletes a value, or without NAME the key with everything below it. An empty NAME is the key's default value.

Examples:
  kestorctl registry delete 'HKLM\SOFTWARE\Norvela\Contabil' Path
  kestorctl registry delete 'HKLM\SOFTWARE\Norvela\Erros'

Exit status: 0 deleted; 1 there is no such key or value, or another failure; 2 wrong usage.)";

constexpr const char* kImportFooter =
    R"(Merges an export of the desktop platform, REGEDIT4 or version 5.00, into the registry, deletions included. If a line is
malformed, it changes nothing and names the line. It passes over the desktop's roots other than HKEY_LOCAL_MACHINE and
HKEY_CLASSES_ROOT. It enters keys below SOFTWARE\WOW6432Node\Norvela, where a 32-bit program has its keys on a 64-bit
desktop, below SOFTWARE\Norvela, and says so on standard error.

Exit status: 0 imported; 1 failure; 2 wrong usage.)";

constexpr const char* kExportFooter =
    R"(Writes the whole registry to FILE, as the desktop's own tools do: in UTF-16 with a byte order mark, so that it can be
imported there. FILE is written whole or not at all. Without FILE, or with -, the text goes to standard output in UTF-8.

With --json, unless FILE is written: "text".

Exit status: 0 exported; 1 failure; 2 wrong usage.)";

struct ValueOptions {
  std::string key;
  std::optional<std::string> name;
  std::string text;
};

struct FileOptions {
  std::string file = "-";
};

std::string NameInMessage(const ValueOptions& options) {
  if (!options.name) return options.key;
  return options.key + " " + (options.name->empty() ? "(default)" : *options.name);
}

[[noreturn]] void ThrowMissing(const std::string& what) {
  throw LocalFailure("the registry has no " + what, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
}

std::string TypeName(DWORD type) {
  switch (type) {
    case REG_NONE:
      return "REG_NONE";
    case REG_SZ:
      return "REG_SZ";
    case REG_EXPAND_SZ:
      return "REG_EXPAND_SZ";
    case REG_BINARY:
      return "REG_BINARY";
    case REG_DWORD:
      return "REG_DWORD";
    case REG_MULTI_SZ:
      return "REG_MULTI_SZ";
    default:
      return std::to_string(type);
  }
}

std::string Hexadecimal(const std::string& bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

DWORD Number(const std::string& bytes) {
  DWORD number = 0;
  for (std::size_t i = bytes.size(); i-- > 0;)
    number = number << 8 | static_cast<unsigned char>(bytes[i]);
  return number;
}

void TellValue(const Value& value, Answer& answer) {
  answer.data["type"] = TypeName(value.type);
  Json& data = answer.data["value"];
  if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
    data = value.Text();
    answer.output = value.Text() + "\n";
  } else if (value.type == REG_MULTI_SZ) {
    data = value.Texts();
    for (const std::string& text : value.Texts())
      answer.output += text + "\n";
  } else if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD)) {
    data = Number(value.data);
    answer.output = std::to_string(Number(value.data)) + "\n";
  } else {
    data = Hexadecimal(value.data);
    answer.output = Hexadecimal(value.data) + "\n";
  }
}

void Get(const ValueOptions& options, Answer& answer) {
  const KeyName key = ParseKey(options.key);
  const std::string name = AnsiArgument("NAME", options.name.value_or(""));
  RequireHome();
  if (!KeyExists(key)) ThrowMissing("key " + options.key);
  const std::optional<Value> value = ReadValue(key, name);
  if (!value) ThrowMissing(options.name ? "value " + NameInMessage(options) : "default value of " + options.key);
  TellValue(*value, answer);
}

void Set(const ValueOptions& options, Answer&) {
  const KeyName key = ParseKey(options.key);
  const std::string name = AnsiArgument("NAME", *options.name);
  const std::string text = AnsiArgument("TEXT", options.text);
  RequireHome();
  SetText(key, name, text);
}

void Delete(const ValueOptions& options, Answer&) {
  const KeyName key = ParseKey(options.key);
  const std::string name = AnsiArgument("NAME", options.name.value_or(""));
  if (!options.name && key.path.find_first_not_of('\\') == std::string::npos) {
    throw UsageError("KEY: a root cannot be deleted");
  }
  RequireHome();
  const bool deleted = options.name ? DeleteValue(key, name) : DeleteKey(key);
  registry::OwnedKey stays;
  if (!deleted && (options.name ? ReadValue(key, name).has_value()
                                : RegOpenKeyA(key.root, key.path.c_str(), stays.Out()) == LONG{ERROR_SUCCESS})) {
    throw LocalFailure("what the whole machine has stays: " + platform::Home::Current().SystemRegistry().string());
  }
  if (!deleted) ThrowMissing((options.name ? "value " : "key ") + NameInMessage(options));
}

void Import(const FileOptions& options, Answer& answer) {
  RequireHome();
  answer.note = RegistryExport(options.file).Import();
}

void Export(const FileOptions& options, Answer& answer) {
  RequireHome();
  std::string text;
  registry::Export("", &text);
  if (options.file != "-") {
    WriteOutput(options.file, registry::ToDesktopEncoding(text));
  } else if (answer.json) {
    answer.data["text"] = text;
  } else {
    answer.output = text;
  }
}

AddedCommand<ValueOptions> AddValueCommand(CLI::App* group, Command* chosen, const CommandTexts& texts,
                                           void (*run)(const ValueOptions&, Answer&), bool nameRequired) {
  const auto added = AddCommand(group, chosen, texts, run);
  AddText(added.command, "KEY", &added.options->key, "Key, such as HKLM\\SOFTWARE\\Norvela");
  AddText(added.command, "NAME", &added.options->name, "Name of the value")->required(nameRequired);
  return added;
}

CLI::Option* AddFileCommand(CLI::App* group, Command* chosen, const CommandTexts& texts,
                            void (*run)(const FileOptions&, Answer&), const char* file) {
  const auto [command, options] = AddCommand(group, chosen, texts, run);
  return command->add_option("FILE", options->file, file)->type_name("")->check(CheckFileName);
}

}  // namespace

void AddRegistry(CLI::App& program, Command* chosen) {
  CLI::App* group = AddGroup(&program, {"registry", "Read and change the registry of the home", kGroupFooter});
  AddValueCommand(group, chosen, {"get", "Print a value", kGetFooter}, Get, false);
  const auto [set, options] = AddValueCommand(group, chosen, {"set", "Set a text value", kSetFooter}, Set, true);
  AddText(set, "TEXT", &options->text, "The text");
  AddValueCommand(group, chosen, {"delete", "Delete a value or a key", kDeleteFooter}, Delete, false);
  AddFileCommand(group, chosen, {"import", "Merge an export file into the registry", kImportFooter}, Import,
                 "File in the desktop's export format; - is standard input")
      ->required();
  AddFileCommand(group, chosen, {"export", "Write the whole registry as an export file", kExportFooter}, Export,
                 "File to write; - is standard output");
}

}  // namespace kestorctl
