// The commands restore and undo: put versions of the history back into the stores.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>
#include <system_error>

#include "commands.h"
#include "common/nomes_arquivos.h"
#include "contract/results.h"
#include "failure.h"
#include "host_files.h"
#include "kept_versions.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;
using history::After;
using history::Version;

constexpr const char* kRestoreFooter =
    R"(Stores a version of a model that the history keeps, with the files kept with it: a document, a first-generation model,
export settings, a filter. Deleted models come back as well, and the first-generation models of a migration. What is
there now is replaced, and the history keeps it in turn.

WHEN is a time that "kestorctl history" shows, or a local time such as "2026-11-26 14:30", or a time ago such as 12h:
the model becomes what it was then, as far back as the history reaches. Without --at it becomes what it was before its
last change.

A model that was deleted with --demo stays hidden. A first-generation model is migrated again by the next command for
the second generation.

With --json: "restored", a list of objects with "model", "kind" and "when".

Examples:
  kestorctl restore CT 01 Vendas
  kestorctl restore CT 01 Vendas --at 2026-11-26T22:15:44.168702Z

Exit status: 0 restored; 1 failure, such as no such version; 2 wrong usage.)";

constexpr const char* kUndoFooter =
    R"(Takes back the last operation on a module and component that the history knows, from whichever station: a new document,
an overwriting, a deletion, or all of a renumbering or a migration, one model after the other. What has changed since,
or has been made anew, is not overwritten but named. Undoing a migration deletes its documents and stores the
first-generation models, which the next command for the second generation migrates again.

The next undo takes back the operation before. "kestorctl restore" brings back what undo has replaced or deleted. A
first-generation model that was new has no version, and undo does not know of it.

With --json: "operation" with "when", "user" and "what"; "restored", a list of objects with "model", "kind" and "when";
"deleted", a list of names; and "left", a list of objects with "model", "kind" and "reason".

Examples:
  kestorctl undo CT 01

Exit status: 0 all of it is taken back; 3 something is left as it is; 1 failure, such as no operation that could be
taken back; 2 wrong usage.)";

struct RestoreOptions : ModelOptions {
  std::optional<std::string> when;
};

void Tell(const char* did, const Version& version, Answer& answer) {
  const std::string kind = WordOf(KindOf(version));
  answer.output += std::string(did) + ": " + text::Presentable(StoreName(version)) + " (" + kind + ")\n";
  answer.data[did].push_back({{"model", StoreName(version)}, {"kind", kind}, {"when", WhenOf(version)}});
}

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
  if (!has(Kind::firstGeneration)) return;
  LiveFile document;
  if (ReportsFolder(options).Find(Kind::document, versions.front().model, std::string(kestor::kExtensaoRelatorio),
                                  &document)) {
    answer.AddNote(
        "there is a document of its name: the next command for the second generation drops the first-generation "
        "model again, unless that is deleted first");
  } else {
    WarnOfMigration(answer);
  }
}

// ---- Undoing -------------------------------------------------------------------------------------------------------

bool Holds(const LiveFile& file, const std::string& content) {
  if (static_cast<std::size_t>(file.status.st_size) != content.size()) return false;
  try {
    return ReadInput(file.path.string(), content.size()) == content;
  } catch (const LocalFailure&) {
    return false;
  }
}

// Takes back one operation, one model after the other. A model stays as it is when one of its files has changed since.
// What failed can be tried again.
class Undoing {
 public:
  // `all`: the versions of the module and component, including those of operations that are taken back already.
  Undoing(const StoreOptions& store, const Versions& all, Answer& answer)
      : store_(store),
        all_(all),
        history_(RequireHistory().folder),
        folder_(store),
        stores_(store),
        answer_(answer),
        operations_(all) {
    history::RemoveUndone(history_, Module(), Component(), &operations_);
    answer_.data["operation"] = nullptr;
    for (const char* member : {"restored", "deleted", "left"})
      answer_.data[member] = nlohmann::ordered_json::array();
  }

  // Takes back the latest operation whose effect is still there.
  void Run() {
    Version last;
    while (!didSomething_) {
      if (operations_.empty())
        throw LocalFailure("the history knows of no operation on these models that is not taken back");
      last = operations_.back();
      Versions versions;
      for (; !operations_.empty() && operations_.back().IsOfOperation(last); operations_.pop_back())
        versions.insert(versions.begin(), operations_.back());
      Undo(versions);
    }
    answer_.data["operation"] = {{"when", WhenOf(last)}, {"user", UserName(last.user)}, {"what", WhatOf(last)}};
    answer_.output.insert(0, WhatOf(last) + " by " + UserName(last.user) + " at " + WhenOf(last) + ":\n");
    if (comesBack_) WarnOfMigration(answer_);
  }

 private:
  std::string Module() const { return text::FromUtf8(store_.module); }
  std::string Component() const { return text::FromUtf8(store_.component); }

  void Undo(const Versions& versions) {
    std::map<std::string, Versions> models;
    for (const Version& version : versions)
      models[text::Upper(text::FromUtf8(version.model))].push_back(version);
    for (const auto& [key, ofModel] : models) {
      spellings_ = {ofModel.front().model};
      UndoModel(ofModel);
      for (const std::string& model : spellings_)
        NoteOwn(model);
    }
    if (!failed_) Note(versions.front());
  }

  struct Step {
    const Version* version;
    std::string content;  // to be stored, or of the document to be deleted
  };

  // Reads everything that it stores before it changes anything.
  void UndoModel(const Versions& versions) {
    std::vector<Step> stored;
    std::vector<Step> made;
    for (const Version& version : versions) {
      LiveFile file;
      const bool isThere = folder_.Find(version, &file);
      if (isThere) spellings_.insert(file.model);
      const bool isMade = version.after == After::made;
      if (isMade && !isThere) continue;
      std::string content;
      try {
        if (!isMade) content = Content(version);
        if (isThere && file.model == version.model && !isMade && Holds(file, content)) continue;
        if (isThere && version.after == After::gone) return Leave(versions, "there is one again");
        if (!isThere && version.after != After::gone) return Leave(versions, "it has been deleted since");
        if (isThere && !IsSuccessor(file, version))
          return Leave(versions, isMade ? "its document has changed since" : "it has changed since");
        if (isMade) content = ReadInput(file.path.string(), static_cast<std::size_t>(file.status.st_size));
      } catch (const LocalFailure& failure) {
        return Leave(versions, failure.what());
      }
      (isMade ? made : stored).push_back({&version, std::move(content)});
    }
    for (const Step& step : made)
      if (!stores_.Delete(StoreName(*step.version), answer_)) return LeaveFailed(versions);
    for (const Step& step : stored) {
      const bool mustBeNew = step.version->after == After::gone;
      if (stores_.Store(*step.version, step.content, mustBeNew, answer_)) {
        Tell("restored", *step.version, answer_);
        didSomething_ = true;
        comesBack_ = comesBack_ || KindOf(*step.version) == Kind::firstGeneration;
        if (KindOf(*step.version) == Kind::document && mustBeNew)
          NoteHidden(stores_, StoreName(*step.version), answer_);
        continue;
      }
      LeaveFailed(versions);
      // Puts back the documents that were deleted in vain.
      Answer ignored;
      for (const Step& document : made)
        if (&step == stored.data()) stores_.Store(*document.version, document.content, true, ignored);
      return;
    }
    for (const Step& step : made) {
      answer_.output += "deleted: " + text::Presentable(StoreName(*step.version)) + " (document)\n";
      answer_.data["deleted"].push_back(StoreName(*step.version));
      didSomething_ = true;
    }
  }

  // Returns whether a file is the one that took the version's place, or has become that again because later operations
  // were taken back. In the latter case it holds what the history has kept of that file.
  bool IsSuccessor(const LiveFile& file, const Version& version) const {
    const bool isMarked = version.after == After::replaced || version.after == After::made;
    if (isMarked && static_cast<std::uint64_t>(file.status.st_size) == version.sizeAfter &&
        history::Nanoseconds(file.status.st_mtim) == version.timeAfter) {
      return true;
    }
    // A file that was overwritten bears no mark of the operation, but no operation takes longer than this.
    constexpr std::int64_t kLongest = 2'000'000'000;
    const auto begun = std::chrono::duration_cast<std::chrono::nanoseconds>(version.time.time_since_epoch()).count();
    if (version.after == After::overwritten && std::abs(history::Nanoseconds(file.status.st_mtim) - begun) <= kLongest)
      return true;
    for (const Version& later : all_) {
      if (later.time <= version.time || later.after == After::made || !AreOfOneFile(later, version)) continue;
      const bool isThat = !isMarked || (later.size == version.sizeAfter && later.written == version.timeAfter);
      if (isThat && Holds(file, Content(later))) return true;
      if (!isMarked) return false;  // only the next version is what the overwriting made
    }
    return false;
  }

  void Note(const Version& operation) {
    const int error = history::NoteUndone(history_, Module(), Component(), operation);
    if (error == 0 || !isNoted_) return;
    isNoted_ = false;
    answer_.AddNote(
        "that this was taken back cannot be noted in the history, so the next undo does not go on from there: " +
        std::system_category().message(error));
    answer_.incomplete = true;
  }

  // Notes the operations by which this undo has stored and deleted as taken back: no later undo should touch them.
  void NoteOwn(const std::string& model) {
    for (const Version& own : history::FindVersions(history_, Module(), Component(), nullptr, model))
      if (own.time >= begun_ && own.user == geteuid()) Note(own);
  }

  void LeaveFailed(const Versions& versions) {
    failed_ = true;
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
    didSomething_ = true;
  }

  const StoreOptions store_;
  const Versions& all_;
  const fs::path history_;
  const history::Time begun_ = std::chrono::time_point_cast<std::chrono::microseconds>(history::Clock::now());
  const ReportsFolder folder_;
  Stores stores_;
  Answer& answer_;
  Versions operations_;              // those that Run has yet to look at
  std::set<std::string> spellings_;  // of the model that is being taken back
  bool comesBack_ = false;           // a first-generation model has been restored
  bool didSomething_ = false;        // there is something to report
  bool failed_ = false;              // something could not be stored or deleted
  bool isNoted_ = true;              // the history takes notes of what is taken back
};

void Undo(const StoreOptions& options, Answer& answer) {
  const Versions all = FindVersions(options, answer);
  if (answer.incomplete) throw LocalFailure("not all of the history can be read, so what came last is not known");
  Undoing(options, all, answer).Run();
}

}  // namespace

void AddRestore(CLI::App& program, Command* chosen) {
  const auto [restore, options] =
      AddCommand(&program, chosen, {"restore", "Bring a version of a model back", kRestoreFooter}, Restore);
  AddModelOptions(restore, options);
  restore->add_option("--at", options->when, "The time whose version is wanted")->type_name("WHEN")->check(CheckUtf8);
  const auto undo = AddCommand(&program, chosen, {"undo", "Take the last operation back", kUndoFooter}, Undo);
  AddStoreOptions(undo.command, undo.options);
}

}  // namespace kestorctl
