// The commands history: what the server has kept of the models that it changed.
#include "commands.h"
#include "content.h"
#include "failure.h"
#include "host_files.h"
#include "kept_versions.h"
#include "platform/text/text.h"
#include "text_table.h"

namespace kestorctl {

namespace {

using history::Version;

constexpr const char* kFooter =
    R"(Lists the versions that the history keeps of the models of a module and component, or of the model NAME alone, the
oldest first. A version is a file as it was before the server replaced, removed or overwrote it. Its line shows the time
of that change (UTC), the user, the change, the model, the kind of the file, its bytes, and the version number of a
document.

A new document has a version without content, so that "kestorctl undo" can take it back.

The home keeps a history if "kestorctl setup" has entered a folder for it. The folder holds each version as a whole
file.

With --json: "versions", each with "when", "user", "what" (made, overwritten, deleted, updated, renumbered, migrated),
"model", "kind" (document, first generation, export settings, filter), "bytes", "version" and "file".

Examples:
  kestorctl history CT 01
  kestorctl history CT 01 "Vendas por mês"
  kestorctl history read CT 01 Vendas --at 2026-11-26T22:15:44.168702Z -o vendas.old
  kestorctl history prune

Exit status: 0 listed, even if there are none; 3 not all could be read; 1 failure, such as no history; 2 wrong usage.)";

constexpr const char* kReadFooter =
    R"(Writes a version of a model to FILE, which is written whole or not at all, or to standard output, as "kestorctl read"
writes the content of a model: the document or, if there was none, the first-generation model. The model itself does not
change.

WHEN is a time that "kestorctl history" shows, or a local time such as "2026-11-26 14:30", or a time ago such as 12h:
the model is read as it was then. Without --at it is read as it was before its last change.

With --json: "when", "kind", "bytes", and the content as "kestorctl read" gives it.

Exit status: 0 read; 1 failure, such as no such version; 2 wrong usage.)";

constexpr const char* kPruneFooter =
    R"(Removes the versions that are over the limits: those of all models, of the models of MODULE, or of those of MODULE and
COMPONENT. For each model the server keeps what the last 50 operations have changed, and nothing for more than 400 days.
The numbers HistoricoVersoes and HistoricoDias of the registry key HKLM\SOFTWARE\Norvela\KESTOR set other limits; 0 is
no limit. The server does the same for a model whenever it keeps a version of it.

With --json: "removed", a number.

Exit status: 0 done; 3 not all could be removed; 1 failure, such as no history; 2 wrong usage.)";

struct HistoryOptions : ModelOptions {
  CLI::Option* nameGiven = nullptr;
};

struct ReadVersionOptions : ReadOptions {
  std::optional<std::string> when;
};

void List(const HistoryOptions& options, Answer& answer) {
  if (options.module.empty() || options.component.empty()) throw UsageError("MODULE and COMPONENT are required");
  const Versions versions = options.nameGiven->count() > 0
                                ? FindVersions(static_cast<const ModelOptions&>(options), answer)
                                : FindVersions(static_cast<const StoreOptions&>(options), answer);
  std::vector<TableRow> rows;
  answer.data["versions"] = nlohmann::ordered_json::array();
  for (const Version& version : versions) {
    const std::optional<USHORT> number = DocumentVersion(version);
    const std::string kind = WordOf(KindOf(version));
    rows.push_back({WhenOf(version), UserName(version.user), WhatOf(version), text::Presentable(StoreName(version)),
                    kind, std::to_string(version.size), number ? std::to_string(*number) : ""});
    answer.data["versions"].push_back({{"when", WhenOf(version)},
                                       {"user", UserName(version.user)},
                                       {"what", WhatOf(version)},
                                       {"model", StoreName(version)},
                                       {"kind", kind},
                                       {"bytes", version.size},
                                       {"version", number ? nlohmann::ordered_json(*number) : nullptr},
                                       {"file", version.file.string()}});
  }
  if (rows.empty()) return;
  answer.output =
      TextTable({{"WHEN"}, {"WHO"}, {"WHAT"}, {"MODEL"}, {"KIND"}, {"BYTES", true}, {"VERSION", true}}, rows);
}

void Read(const ReadVersionOptions& options, Answer& answer) {
  Versions all = FindVersions(options.model, answer);
  std::erase_if(all, [](const Version& one) { return KindOf(one) > Kind::firstGeneration; });
  const Versions versions = VersionsAt(all, options.model.name, options.when);
  const Version* chosen = &versions.front();
  for (const Version& version : versions) {
    if (KindOf(version) < KindOf(*chosen)) chosen = &version;
  }
  std::string content = Content(*chosen);
  const std::optional<USHORT> number = DocumentVersion(*chosen);
  if (number) content.erase(0, sizeof *number);
  answer.data["when"] = WhenOf(*chosen);
  answer.data["kind"] = WordOf(KindOf(*chosen));
  HandOut(content, options.output, answer);
  if (!answer.json) {
    answer.AddNote(WordOf(KindOf(*chosen)) + " of before " + WhenOf(*chosen) +
                   (number ? ", version " + std::to_string(*number) : ""));
  }
}

void Prune(const StoreOptions& options, Answer& answer) {
  std::string trouble;
  const std::size_t removed =
      history::Prune(RequireHistory(), text::FromUtf8(options.module), text::FromUtf8(options.component), &trouble);
  answer.data["removed"] = removed;
  answer.output = "removed: " + std::to_string(removed) + (removed == 1 ? " version\n" : " versions\n");
  answer.AddNote(trouble);
  answer.incomplete = !trouble.empty();
}

}  // namespace

void AddHistory(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"history", "List the versions of models that the history keeps", kFooter}, List);
  AddStoreOptions(command, options);
  for (const char* code : {"MODULE", "COMPONENT"})
    command->get_option(code)->required(false);
  options->nameGiven = AddText(command, "NAME", &options->name, "Name of the model")->required(false);
  const auto read = AddCommand(command, chosen, {"read", "Read a version of a model", kReadFooter}, Read);
  AddReadOptions(read.command, read.options);
  read.command->add_option("--at", read.options->when, "The time whose version is wanted")
      ->type_name("WHEN")
      ->check(CheckUtf8);
  const auto prune =
      AddCommand(command, chosen, {"prune", "Remove versions that are over the limits", kPruneFooter}, Prune);
  AddStoreOptions(prune.command, prune.options);
  for (const char* code : {"MODULE", "COMPONENT"})
    prune.command->get_option(code)->required(false);
}

}  // namespace kestorctl
