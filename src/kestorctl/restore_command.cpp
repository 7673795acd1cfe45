// The commands restore and undo: what the history keeps goes back into the stores.
#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "commands.h"
#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "failure.h"
#include "folder_plan.h"
#include "host_files.h"
#include "kept_versions.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;
using history::After;
using history::Version;

constexpr const char* kRestoreFooter =
    R"(Stores a version of a model that the history keeps, with what was kept beside it: a document, a first-generation model,
export settings, a filter. Deleted models come back as well, and the first-generation models of a migration. What is
there now is replaced, and the history keeps it in turn.

WHEN is a time that "kestorctl history" tells, or a local time such as "2026-11-26 14:30", or a time ago such as 12h: the
model becomes what it was then. Without --at it becomes what it was before its last change.

A model that was deleted with --demo stays hidden. A first-generation model is migrated again by the next command for the
second generation.

With --json: "restored", a list of objects with "model", "kind" and "when".

Examples:
  kestorctl restore CT 01 Vendas
  kestorctl restore CT 01 Vendas --at 2026-11-26T22:15:44.168702Z

Exit status: 0 restored; 1 failure, such as no such version; 2 wrong usage.)";

constexpr const char* kUndoFooter =
    R"(Takes back the last operation on a module and component that the history knows, whichever station made it: an
overwriting, a deletion, or all of a renumbering or a migration. What has changed since, or has been made anew, is not
overwritten but named. Undoing a migration deletes its documents and then stores the first-generation models, which the
next command for the second generation migrates again.

The history keeps what undo replaces: "kestorctl restore" brings it back. A model that was new has no version, and undo
does not know of it.

With --json: "operation" with "when", "user" and "what"; "restored", a list of objects with "model" and "kind"; "deleted",
a list of names; and "left", a list of objects with "model", "kind" and "reason".

Examples:
  kestorctl undo CT 01

Exit status: 0 all of it is taken back; 3 something is left as it is; 1 failure, such as an empty history; 2 wrong usage.)";

struct RestoreOptions : ModelOptions {
  std::optional<std::string> when;
};

void Tell(const char* did, const Version& version, Answer& answer) {
  const std::string kind = WordOf(KindOf(version));
  answer.output += std::string(did) + ": " + text::Presentable(StoreName(version)) + " (" + kind + ")\n";
  answer.data[did].push_back({{"model", StoreName(version)}, {"kind", kind}, {"when", WhenOf(version)}});
}

void WarnOfMigration(Answer& answer) {
  answer.AddNote("the next command for the second generation migrates the first-generation models again");
}

// Of several versions that an operation kept of one file the first is what it had found.
Versions FirstOfEach(const Versions& versions) {
  std::map<std::pair<std::string, std::string>, const Version*> first;
  for (const Version& version : versions) {
    const Version*& one = first[{text::Upper(text::FromUtf8(version.model)), text::Upper(version.extension)}];
    if (one == nullptr || version.timeAfter < one->timeAfter) one = &version;
  }
  Versions chosen;
  for (const auto& [key, version] : first)
    chosen.push_back(*version);
  return chosen;
}

void Restore(const RestoreOptions& options, Answer& answer) {
  const Versions versions =
      FirstOfEach(VersionsAt(FindVersions(options, options.name, answer), options.name, options.when));
  Stores stores(options);
  answer.data["restored"] = nlohmann::ordered_json::array();
  bool isDocument = false;
  for (const Version& version : versions) {
    if (!stores.Store(version, answer)) return;
    Tell("restored", version, answer);
    isDocument = isDocument || KindOf(version) == Kind::document;
  }
  if (isDocument) NoteHidden(stores, options.name, answer);
  if (std::any_of(versions.begin(), versions.end(),
                  [](const Version& one) { return KindOf(one) == Kind::firstGeneration; })) {
    WarnOfMigration(answer);
  }
}

// ---- Undoing -------------------------------------------------------------------------------------------------------

// The files of the reports folder, by their names in upper case.
class ReportsFolder {
 public:
  explicit ReportsFolder(const StoreOptions& store)
      : module_(text::FromUtf8(store.module)), component_(text::FromUtf8(store.component)) {
    std::string path;
    kestor::CCaminhosInstalacao::BuscaCaminhoRelatorios(path);
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(PlaceOf(path).folder, error)) {
      std::string name;
      if (text::FromUtf8Exactly(entry.path().filename().string(), &name)) files_[text::Upper(name)] = entry.path();
    }
    if (error) throw LocalFailure("the reports folder cannot be looked at: " + error.message());
  }

  // False when there is no such file.
  bool Find(Kind kind, const std::string& model, const std::string& extension, struct stat* status) const {
    const std::string codes =
        kind == Kind::document ? module_ + component_ : kestor::ModuloRel(module_) + kestor::ComponenteRel(component_);
    const auto found = files_.find(text::Upper(codes + text::FromUtf8(model + extension)));
    return found != files_.end() && stat(found->second.c_str(), status) == 0;
  }

 private:
  const std::string module_;
  const std::string component_;
  std::map<std::string, fs::path> files_;
};

std::int64_t Nanoseconds(const struct timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// Whether a file is the one that took the version's place.
bool IsSuccessor(const struct stat& file, const Version& version) {
  return version.after == After::replaced && static_cast<std::uint64_t>(file.st_size) == version.sizeAfter &&
         Nanoseconds(file.st_mtim) == version.timeAfter;
}

// A file that is overwritten keeps no mark of it; an operation takes no longer than this.
bool IsOverwrittenThen(const struct stat& file, const Version& version) {
  constexpr std::int64_t kLongest = 2'000'000'000;
  const std::int64_t begun =
      std::chrono::duration_cast<std::chrono::nanoseconds>(version.time.time_since_epoch()).count();
  return Nanoseconds(file.st_mtim) - begun <= kLongest;
}

// One operation that is taken back.
class Undoing {
 public:
  Undoing(const StoreOptions& store, const Versions& versions, Answer& answer)
      : folder_(store), stores_(store), all_(versions), versions_(FirstOfEach(versions)), answer_(answer) {
    for (const char* member : {"restored", "deleted", "left"})
      answer_.data[member] = nlohmann::ordered_json::array();
  }

  void Run() {
    // A document that a migration has made goes before the model comes back of which it was made.
    for (const Version& version : versions_) {
      if (IsOfMigration(version) && !DeleteDocumentOf(version)) return;
    }
    bool comesBack = false;
    for (const Version& version : versions_) {
      if (IsLeft(version)) continue;
      if (!stores_.Store(version, answer_)) return;
      Tell("restored", version, answer_);
      comesBack = comesBack || KindOf(version) == Kind::firstGeneration;
    }
    if (comesBack) WarnOfMigration(answer_);
  }

 private:
  static bool IsOfMigration(const Version& version) {
    return version.method == "Inicializa" && KindOf(version) == Kind::firstGeneration;
  }

  // False when the undoing ends here.
  bool DeleteDocumentOf(const Version& version) {
    struct stat status = {};
    const bool isThere = folder_.Find(Kind::document, version.model, std::string(kestor::kExtensaoRelatorio), &status);
    // One that was there before the migration has nothing to do with it.
    if (version.after != After::replaced || !isThere) return true;
    if (!IsSuccessor(status, version)) {
      Leave(version, "its document has changed since");
      return true;
    }
    if (!stores_.Delete(version.model, answer_)) return false;
    answer_.output += "deleted: " + text::Presentable(version.model) + " (document)\n";
    answer_.data["deleted"].push_back(version.model);
    return true;
  }

  bool IsLeft(const Version& version) {
    const std::string model = text::Upper(text::FromUtf8(version.model));
    if (std::find(left_.begin(), left_.end(), model) != left_.end()) return true;
    struct stat status = {};
    const bool isThere = folder_.Find(KindOf(version), version.model, version.extension, &status);
    if (version.after == After::gone || version.method == "Inicializa") {
      if (isThere) Leave(version, "there is one again");
      return isThere;
    }
    if (!isThere) {
      Leave(version, "it has been deleted since");
      return true;
    }
    const bool isAsLeft =
        version.after == After::overwritten
            ? IsOverwrittenThen(status, version)
            : std::any_of(all_.begin(), all_.end(), [&](const Version& one) { return IsSuccessor(status, one); });
    if (!isAsLeft) Leave(version, "it has changed since");
    return !isAsLeft;
  }

  void Leave(const Version& version, const std::string& reason) {
    const std::string kind = WordOf(KindOf(version));
    answer_.output += "left: " + text::Presentable(StoreName(version)) + " (" + kind + "): " + reason + "\n";
    answer_.data["left"].push_back({{"model", StoreName(version)}, {"kind", kind}, {"reason", reason}});
    answer_.incomplete = true;
    if (IsOfMigration(version)) left_.push_back(text::Upper(text::FromUtf8(version.model)));
  }

  const ReportsFolder folder_;
  Stores stores_;
  const Versions all_;
  const Versions versions_;
  Answer& answer_;
  std::vector<std::string> left_;  // first-generation models, in upper case
};

void Undo(const StoreOptions& options, Answer& answer) {
  Versions versions = FindVersions(options, {}, answer);
  if (versions.empty()) throw LocalFailure("the history knows of no operation on these models");
  const Version last = versions.back();
  std::erase_if(versions, [&](const Version& one) { return !one.IsOfOperation(last); });
  answer.data["operation"] = {{"when", WhenOf(last)}, {"user", UserName(last.user)}, {"what", WhatOf(last)}};
  answer.output = WhatOf(last) + " by " + UserName(last.user) + " at " + WhenOf(last) + ":\n";
  Undoing(options, versions, answer).Run();
}

}  // namespace

void AddRestore(CLI::App& program, Command* chosen) {
  const auto [restore, options] =
      AddCommand(&program, chosen, {"restore", "Bring a version of a model back", kRestoreFooter}, Restore);
  AddModelOptions(restore, options);
  restore->add_option("--at", options->when, "When it was so")->type_name("WHEN")->check(CheckUtf8);
  const auto undo = AddCommand(&program, chosen, {"undo", "Take the last operation back", kUndoFooter}, Undo);
  AddStoreOptions(undo.command, undo.options);
}

}  // namespace kestorctl
