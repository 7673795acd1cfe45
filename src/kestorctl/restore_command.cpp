// The commands restore and undo: what the history keeps goes back into the stores.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "commands.h"
#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "contract/results.h"
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
model becomes what it was then, as far back as the history reaches. Without --at it becomes what it was before its last change.

A model that was deleted with --demo stays hidden. A first-generation model is migrated again by the next command for the
second generation.

With --json: "restored", a list of objects with "model", "kind" and "when".

Examples:
  kestorctl restore CT 01 Vendas
  kestorctl restore CT 01 Vendas --at 2026-11-26T22:15:44.168702Z

Exit status: 0 restored; 1 failure, such as no such version; 2 wrong usage.)";

constexpr const char* kUndoFooter =
    R"(Takes back the last operation on a module and component that the history knows, whichever station made it: a new
document, an overwriting, a deletion, or all of a renumbering or a migration, a model after the other. What has changed
since, or has been made anew, is not overwritten but named. Undoing a migration deletes its documents and stores the
first-generation models, which the next command for the second generation migrates again.

The next undo takes back the operation before. "kestorctl restore" brings back what undo has replaced or deleted. A
first-generation model that was new has no version, and undo does not know of it.

With --json: "operation" with "when", "user" and "what"; "restored", a list of objects with "model" and "kind"; "deleted",
a list of names; and "left", a list of objects with "model", "kind" and "reason".

Examples:
  kestorctl undo CT 01

Exit status: 0 all of it is taken back; 3 something is left as it is; 1 failure, such as no operation that could be taken
back; 2 wrong usage.)";

struct RestoreOptions : ModelOptions {
  std::optional<std::string> when;
};

void Tell(const char* did, const Version& version, Answer& answer) {
  const std::string kind = WordOf(KindOf(version));
  answer.output += std::string(did) + ": " + text::Presentable(StoreName(version)) + " (" + kind + ")\n";
  answer.data[did].push_back({{"model", StoreName(version)}, {"kind", kind}, {"when", WhenOf(version)}});
}

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
      if (text::FromUtf8Exactly(entry.path().filename().string(), &name))
        files_.emplace(text::Upper(name), entry.path());
    }
    if (error) throw LocalFailure("the reports folder cannot be looked at: " + error.message());
  }

  // False when there is no such file. Of names that differ in letter case alone any may count.
  bool Find(Kind kind, const std::string& model, struct stat* status, fs::path* path = nullptr) const {
    return Find(kind, model, std::string(ExtensionOf(kind)), status, path);
  }
  bool Find(const Version& version, struct stat* status, fs::path* path = nullptr) const {
    return Find(KindOf(version), version.model, version.extension, status, path);
  }

 private:
  static std::string_view ExtensionOf(Kind kind) {
    return kind == Kind::document ? kestor::kExtensaoRelatorio : kestor::kExtensaoRel;
  }

  bool Find(Kind kind, const std::string& model, const std::string& extension, struct stat* status,
            fs::path* path) const {
    const std::string codes =
        kind == Kind::document ? module_ + component_ : kestor::ModuloRel(module_) + kestor::ComponenteRel(component_);
    const auto found = files_.find(text::Upper(codes + text::FromUtf8(model + extension)));
    if (found == files_.end() || stat(found->second.c_str(), status) != 0) return false;
    if (path != nullptr) *path = found->second;
    return true;
  }

  const std::string module_;
  const std::string component_;
  std::map<std::string, fs::path> files_;
};

void Restore(const RestoreOptions& options, Answer& answer) {
  const Versions versions =
      VersionsAt(FindVersions(static_cast<const ModelOptions&>(options), answer), options.name, options.when);
  std::vector<std::string> contents;
  for (const Version& version : versions)
    contents.push_back(Content(version));
  Stores stores(options);
  answer.data["restored"] = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < versions.size(); ++i) {
    if (!stores.Store(versions[i], contents[i], false, answer)) return;
    Tell("restored", versions[i], answer);
  }
  const auto has = [&](Kind kind) {
    return std::any_of(versions.begin(), versions.end(), [&](const Version& one) { return KindOf(one) == kind; });
  };
  if (has(Kind::document)) NoteHidden(stores, StoreName(versions.front()), answer);
  struct stat document = {};
  if (!has(Kind::firstGeneration)) return;
  if (ReportsFolder(options).Find(Kind::document, versions.front().model, &document)) {
    answer.AddNote(
        "there is a document of its name: the next command for the second generation drops the first-generation "
        "model again, unless that is deleted first");
  } else {
    WarnOfMigration(answer);
  }
}

// ---- Undoing -------------------------------------------------------------------------------------------------------

// Whether a file is the one that took the version's place.
bool IsSuccessor(const struct stat& file, const Version& version) {
  if (version.after == After::overwritten) {
    // The file keeps no mark of it; an operation takes no longer than this.
    constexpr std::int64_t kLongest = 2'000'000'000;
    const auto begun = std::chrono::duration_cast<std::chrono::nanoseconds>(version.time.time_since_epoch()).count();
    return std::abs(history::Nanoseconds(file.st_mtim) - begun) <= kLongest;
  }
  return version.after != After::gone && static_cast<std::uint64_t>(file.st_size) == version.sizeAfter &&
         history::Nanoseconds(file.st_mtim) == version.timeAfter;
}

bool Holds(const fs::path& path, const struct stat& file, const std::string& content) {
  if (static_cast<std::size_t>(file.st_size) != content.size()) return false;
  try {
    return ReadInput(path.string(), content.size()) == content;
  } catch (const LocalFailure&) {
    return false;
  }
}

// One operation that is taken back, a model after the other: whatever happens meanwhile, no model is half taken back,
// and the next undo goes on with the rest.
class Undoing {
 public:
  Undoing(const StoreOptions& store, Answer& answer)
      : store_(store), history_(RequireHistory().folder), folder_(store), stores_(store), answer_(answer) {
    for (const char* member : {"restored", "deleted", "left"})
      answer_.data[member] = nlohmann::ordered_json::array();
  }

  void Run(const Versions& versions) {
    std::map<std::string, Versions> models;
    for (const Version& version : versions)
      models[text::Upper(text::FromUtf8(version.model))].push_back(version);
    for (const auto& [key, ofModel] : models) {
      UndoModel(ofModel);
      NoteOwn(ofModel.front().model);
    }
    history::NoteUndone(history_, Module(), Component(), versions.front());
    if (comesBack_) WarnOfMigration(answer_);
  }

 private:
  std::string Module() const { return text::FromUtf8(store_.module); }
  std::string Component() const { return text::FromUtf8(store_.component); }

  // All that is to be stored is read before anything is changed.
  void UndoModel(const Versions& versions) {
    std::vector<std::pair<const Version*, std::string>> stored;
    std::vector<const Version*> made;
    for (const Version& version : versions) {
      struct stat file = {};
      fs::path path;
      const bool isThere = folder_.Find(version, &file, &path);
      if (version.after == After::made) {
        if (isThere && !IsSuccessor(file, version)) return Leave(versions, "its document has changed since");
        if (isThere) made.push_back(&version);
        continue;
      }
      std::string content;
      try {
        content = Content(version);
      } catch (const LocalFailure& failure) {
        return Leave(versions, failure.what());
      }
      if (isThere && Holds(path, file, content)) continue;
      if (isThere && version.after == After::gone) return Leave(versions, "there is one again");
      if (!isThere && version.after != After::gone) return Leave(versions, "it has been deleted since");
      if (isThere && !IsSuccessor(file, version)) return Leave(versions, "it has changed since");
      stored.emplace_back(&version, std::move(content));
    }
    for (const Version* version : made) {
      if (!stores_.Delete(StoreName(*version), answer_)) return LeaveFailed(versions);
      answer_.output += "deleted: " + text::Presentable(StoreName(*version)) + " (document)\n";
      answer_.data["deleted"].push_back(StoreName(*version));
    }
    for (auto& [version, content] : stored) {
      if (!stores_.Store(*version, std::move(content), version->after == After::gone, answer_))
        return LeaveFailed({*version});
      Tell("restored", *version, answer_);
      comesBack_ = comesBack_ || KindOf(*version) == Kind::firstGeneration;
      if (KindOf(*version) == Kind::document && version->after == After::gone)
        NoteHidden(stores_, StoreName(*version), answer_);
    }
  }

  // What has been stored and deleted for this is nothing that anybody wants to take back.
  void NoteOwn(const std::string& model) const {
    for (const Version& own : history::FindVersions(history_, Module(), Component(), nullptr, model)) {
      if (own.time >= begun_ && own.user == geteuid()) history::NoteUndone(history_, Module(), Component(), own);
    }
  }

  void LeaveFailed(const Versions& versions) {
    Leave(versions, answer_.detail.empty() ? kestor::ResultCode(answer_.result) : answer_.detail);
    answer_.result = S_OK;
    answer_.detail.clear();
  }

  void Leave(const Versions& versions, const std::string& reason) {
    for (const Version& version : versions) {
      const std::string kind = WordOf(KindOf(version));
      answer_.output.append("left: ").append(text::Presentable(StoreName(version))).append(" (").append(kind);
      answer_.output.append("): ").append(reason) += '\n';
      answer_.data["left"].push_back({{"model", StoreName(version)}, {"kind", kind}, {"reason", reason}});
    }
    answer_.incomplete = true;
  }

  const StoreOptions store_;
  const fs::path history_;
  const history::Time begun_ = std::chrono::time_point_cast<std::chrono::microseconds>(history::Clock::now());
  const ReportsFolder folder_;
  Stores stores_;
  Answer& answer_;
  bool comesBack_ = false;  // a first-generation model
};

void Undo(const StoreOptions& options, Answer& answer) {
  Versions versions = FindVersions(options, answer);
  if (answer.incomplete) throw LocalFailure("not all of the history can be read, so what came last is not known");
  history::RemoveUndone(RequireHistory().folder, text::FromUtf8(options.module), text::FromUtf8(options.component),
                        &versions);
  if (versions.empty()) throw LocalFailure("the history knows of no operation on these models that is not taken back");
  const Version last = versions.back();
  std::erase_if(versions, [&](const Version& one) { return !one.IsOfOperation(last); });
  answer.data["operation"] = {{"when", WhenOf(last)}, {"user", UserName(last.user)}, {"what", WhatOf(last)}};
  answer.output = WhatOf(last) + " by " + UserName(last.user) + " at " + WhenOf(last) + ":\n";
  Undoing(options, answer).Run(versions);
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
