// The versions that the history keeps, as the commands name, tell and store them.
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

// Whether the version is the file of that status itself: a server that was killed before it changed a file has left
// one.
bool IsSameFile(const history::Version& version, const struct stat& file);

// What a version is of.
enum class Kind { document, firstGeneration, exportSettings, filter };
Kind KindOf(const history::Version& version);
std::string WordOf(Kind kind);

// The history's folder and limits. Throws LocalFailure where the home has no history.
history::Settings RequireHistory();

// All versions of a module and component, or of one model, the oldest operation first. A name with a dot is that of the
// file with the extension. A version that is still the file itself is none. What could not be read is noted in the
// answer, which then tells not all.
Versions FindVersions(const StoreOptions& store, Answer& answer);
Versions FindVersions(const ModelOptions& model, Answer& answer);

// The files of the reports folder that versions are of.
struct LiveFile {
  std::filesystem::path path;
  std::string model;  // as it is spelled there
  struct stat status = {};
};

class ReportsFolder {
 public:
  // Throws LocalFailure when the folder cannot be read.
  explicit ReportsFolder(const StoreOptions& store);

  // False when there is no such file. Of names that differ in letter case alone any may count.
  bool Find(const history::Version& version, LiveFile* file) const;
  bool Find(Kind kind, const std::string& model, const std::string& extension, LiveFile* file) const;

 private:
  const std::string module_;
  const std::string component_;
  std::map<std::string, std::filesystem::path> files_;  // by their names in capitals
};

// Of the versions of one model what it was at `when`: of each of its files the first that was kept then or later. What
// it was before its last change when no time is given. Throws LocalFailure where there is none, where the history does
// not reach back so far, and where the model was not there; UsageError for what is no time.
Versions VersionsAt(const Versions& all, const std::string& name, const std::optional<std::string>& when);

// When the operation began, such as 2026-11-26T22:15:44.168702Z.
std::string WhenOf(const history::Version& version);

// What the operation was, in words.
std::string WhatOf(const history::Version& version);

// The name by which the stores know the version's model.
std::string StoreName(const history::Version& version);

// The whole version. Throws LocalFailure, also where RequireStorable does.
std::string Content(const history::Version& version);

// Throws LocalFailure for a content that the methods would not store as it is.
void RequireStorable(const history::Version& version, const std::string& content);

// Whether two versions are of one file.
bool AreOfOneFile(const history::Version& version, const history::Version& other);

// The version number with which a document's file begins; none where it is too short for one.
std::optional<USHORT> DocumentVersion(const history::Version& version);

// The stores through which versions go back; each is opened when it is first needed.
class Stores {
 public:
  explicit Stores(const StoreOptions& store) : store_(store) {}

  // Stores the content of a version in the place of what is there; `mustBeNew`: a model that is there stays. False when
  // it is not stored; the answer has the result.
  bool Store(const history::Version& version, std::string content, bool mustBeNew, Answer& answer);
  // Deletes a document, which may be gone already.
  bool Delete(const std::string& document, Answer& answer);
  // Deletes the file of a version, which is of the first generation.
  bool DeleteFile(const history::Version& version, Answer& answer);

  // The store of documents; null, and the answer tells why, when it cannot be opened.
  ReportStore* Documents(Answer& answer);

 private:
  LegacyStore* FirstGeneration(Answer& answer);
  bool Conclude(HRESULT result, Answer& answer) const;

  const StoreOptions store_;
  std::optional<ReportStore> documents_;
  std::optional<LegacyStore> firstGeneration_;
};

// Adds what a user should know of first-generation models that have been stored.
void WarnOfMigration(Answer& answer);

// Adds what a user should know of a document that has come back and is hidden.
void NoteHidden(Stores& stores, const std::string& name, Answer& answer);

}  // namespace kestorctl
