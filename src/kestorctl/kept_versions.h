// The versions that the history keeps, as the commands find, name and store them.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "history/history.h"
#include "legacy_commands.h"
#include "model_options.h"

namespace kestorctl {

using Versions = std::vector<history::Version>;

// Returns whether the version is the file itself under another name. A server that is killed before it changes a file
// leaves such a version.
bool IsSameFile(const history::Version& version, const struct stat& file);

// The kind of file that a version is of.
enum class Kind { document, firstGeneration, exportSettings, filter };
Kind KindOf(const history::Version& version);
std::string WordOf(Kind kind);

// Returns the history's folder and limits. Throws LocalFailure when the home has no history.
history::Settings RequireHistory();

// Return all versions of a module and component, or of one model, the oldest operation first. A name with a dot
// includes the extension. A version that is another name of the live file is left out. When something cannot be read,
// the answer has a note and is incomplete.
Versions FindVersions(const StoreOptions& store, Answer& answer);
Versions FindVersions(const ModelOptions& model, Answer& answer);

// A file in the reports folder, as it is now.
struct LiveFile {
  std::filesystem::path path;
  std::string model;  // spelled as in the file's name
  struct stat status = {};
};

class ReportsFolder {
 public:
  // Throws LocalFailure when the folder cannot be read.
  explicit ReportsFolder(const StoreOptions& store);

  // Return false when there is no such file. Of names that differ only in letter case, any one may be found.
  bool Find(const history::Version& version, LiveFile* file) const;
  bool Find(Kind kind, const std::string& model, const std::string& extension, LiveFile* file) const;

 private:
  const std::string module_;
  const std::string component_;
  std::map<std::string, std::filesystem::path> files_;  // by name in capitals
};

// Returns what a model was at `when`, chosen from `all` its versions: for each of its files, the first version that was
// kept then or later. Without a time, returns what the model was before its last change. Throws LocalFailure when there
// is no such version, when the history does not reach back so far, and when the model did not exist; UsageError when
// `when` is not a time.
Versions VersionsAt(const Versions& all, const std::string& name, const std::optional<std::string>& when);

// Returns when the operation began, such as 2026-11-26T22:15:44.168702Z.
std::string WhenOf(const history::Version& version);

// Returns what the operation was, in one word.
std::string WhatOf(const history::Version& version);

// Returns the name by which the stores know the version's model.
std::string StoreName(const history::Version& version);

// Reads the whole version. Throws LocalFailure, also where RequireStorable does.
std::string Content(const history::Version& version);

// Throws LocalFailure for a content that the server's methods would not store unchanged.
void RequireStorable(const history::Version& version, const std::string& content);

// Returns whether two versions are of the same file.
bool AreOfOneFile(const history::Version& version, const history::Version& other);

// Returns the version number with which a document's file begins; none for another kind of file, and for a file that is
// too short or cannot be read.
std::optional<USHORT> DocumentVersion(const history::Version& version);

// The stores to which versions are put back. Each is opened when it is first needed.
class Stores {
 public:
  explicit Stores(const StoreOptions& store) : store_(store) {}

  // Stores the content of a version in place of what is there; with `mustBeNew`, only if the model does not exist.
  // Returns false when it is not stored; the answer has the result.
  bool Store(const history::Version& version, std::string content, bool mustBeNew, Answer& answer);
  // Deletes a document. Returns false when that fails, also because there is none; the answer has the result.
  bool Delete(const std::string& document, Answer& answer);
  // Deletes the file of a first-generation version. Also returns true when there is none, or when it stays because it
  // is in use.
  bool DeleteFile(const history::Version& version, Answer& answer);

  // Returns the store of documents. Null when it cannot be opened; the answer has the result.
  ReportStore* Documents(Answer& answer);

 private:
  LegacyStore* FirstGeneration(Answer& answer);
  bool Conclude(HRESULT result, Answer& answer) const;

  const StoreOptions store_;
  std::optional<ReportStore> documents_;
  std::optional<LegacyStore> firstGeneration_;
};

// Adds a note that the first-generation models that were stored will be migrated again.
void WarnOfMigration(Answer& answer);

// Adds a note when a document that was stored stays hidden.
void NoteHidden(Stores& stores, const std::string& name, Answer& answer);

}  // namespace kestorctl
