#include "kept_versions.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fstream>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "explanation.h"
#include "failure.h"
#include "folder_plan.h"
#include "host_files.h"
#include "model_names.h"
#include "platform/text/text.h"
#include "stored_model.h"
#include "times.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;
using history::Time;
using history::Version;

constexpr std::size_t kVersionBytes = 2;
constexpr std::size_t kFilterHeader = 8;

// Parses a time as WhenOf writes it, or as `log --since` takes it.
std::optional<Time> ReadWhen(const std::string& text) {
  const auto timeOf = [](std::time_t seconds) {
    return std::chrono::time_point_cast<std::chrono::microseconds>(history::Clock::from_time_t(seconds));
  };
  constexpr std::time_t kLast = 4102444800;  // the year 2100: the clock cannot hold much later ones
  std::string_view rest;
  std::optional<std::tm> utc = ReadTime(text, "%Y-%m-%dT%H:%M:%S", &rest);
  const std::optional<std::time_t> seconds = utc ? std::optional(timegm(&*utc)) : ReadPastTime(text);
  if (!seconds || *seconds > kLast || *seconds < 0) return std::nullopt;
  Version version;
  version.time = timeOf(*seconds);
  if (!utc) return version.time;
  std::uint32_t fraction = 0;
  constexpr std::size_t kFraction = sizeof ".000000Z" - 1;
  if (rest.size() == kFraction) std::from_chars(rest.data() + 1, rest.data() + kFraction - 1, fraction);
  version.time += std::chrono::microseconds(fraction);
  return WhenOf(version) == text ? std::optional(version.time) : std::nullopt;
}

// Returns whether a filter has the version and the number of entries that the server would write for it.
bool HasUsualHeader(const std::string& filter) {
  std::uint32_t header[2] = {};
  if (filter.size() < sizeof header) return false;
  std::memcpy(header, filter.data(), sizeof header);
  return header[0] == 1 && filter.size() == sizeof header + std::size_t{header[1]} * sizeof(tagCAMPO_FILTRO);
}

// Returns whether the version's content was written after `time`.
bool IsWrittenAfter(const Version& version, Time time) {
  const auto nanoseconds = [](Time one) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(one.time_since_epoch()).count();
  };
  return version.written > nanoseconds(time) && version.written < nanoseconds(version.time);
}

bool HoldsModel(const Version& version) {
  return KindOf(version) <= Kind::firstGeneration && version.after != history::After::made;
}

// Leaves out files that were written after `time`: what they were then, or whether they existed, is not known. Throws
// LocalFailure when that is true of the model itself.
void LeaveOutLater(const std::string& name, const std::string& when, Time time, Versions* versions) {
  const bool hadModel = std::any_of(versions->begin(), versions->end(), HoldsModel);
  std::erase_if(*versions, [&](const Version& one) { return IsWrittenAfter(one, time); });
  if (versions->empty() || (hadModel && std::none_of(versions->begin(), versions->end(), HoldsModel)))
    throw LocalFailure("the history of " + name + " does not reach back to " + when);
}

void LeaveOutLive(const StoreOptions& store, Versions* versions) {
  if (versions->empty()) return;
  try {
    const ReportsFolder folder(store);
    std::erase_if(*versions, [&](const Version& one) {
      LiveFile live;
      return folder.Find(one, &live) && IsSameFile(one, live.status);
    });
  } catch (const LocalFailure&) {
    // Without the reports folder there are no live files.
  }
}

}  // namespace

bool IsSameFile(const Version& version, const struct stat& file) {
  return version.inode == file.st_ino && version.device == file.st_dev;
}

history::Settings RequireHistory() {
  RequireHome();
  history::Settings settings = history::ReadSettings();
  if (settings.folder.empty()) {
    throw LocalFailure("the home keeps no history: kestorctl setup --history DIR enters a folder for it");
  }
  return settings;
}

Versions FindVersions(const StoreOptions& store, Answer& answer) {
  std::string trouble;
  Versions versions = history::FindVersions(RequireHistory().folder, text::FromUtf8(store.module),
                                            text::FromUtf8(store.component), &trouble);
  if (!trouble.empty()) {
    answer.AddNote("not all of the history can be read: " + trouble);
    answer.incomplete = true;
  }
  LeaveOutLive(store, &versions);
  return versions;
}

ReportsFolder::ReportsFolder(const StoreOptions& store)
    : module_(text::FromUtf8(store.module)), component_(text::FromUtf8(store.component)) {
  std::string path;
  kestor::CCaminhosInstalacao::BuscaCaminhoRelatorios(path);
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(PlaceOf(path).folder, error)) {
    std::string name;
    if (text::FromUtf8Exactly(entry.path().filename().string(), &name)) files_.emplace(text::Upper(name), entry.path());
  }
  if (error) throw LocalFailure("the reports folder cannot be looked at: " + error.message());
}

bool ReportsFolder::Find(Kind kind, const std::string& model, const std::string& extension, LiveFile* file) const {
  const std::string codes =
      kind == Kind::document ? module_ + component_ : kestor::ModuloRel(module_) + kestor::ComponenteRel(component_);
  const auto found = files_.find(text::Upper(codes + text::FromUtf8(model + extension)));
  if (found == files_.end() || stat(found->second.c_str(), &file->status) != 0) return false;
  file->path = found->second;
  file->model = text::ToUtf8(kestor::NomeDoModelo(text::FromUtf8(file->path.filename().string()), codes.size()));
  return true;
}

bool ReportsFolder::Find(const Version& version, LiveFile* file) const {
  return Find(KindOf(version), version.model, version.extension, file);
}

Versions FindVersions(const ModelOptions& model, Answer& answer) {
  Versions versions = FindVersions(static_cast<const StoreOptions&>(model), answer);
  const std::string key = kestor::ChaveRelatorio(text::FromUtf8(model.name));
  std::erase_if(versions,
                [&](const Version& one) { return kestor::ChaveRelatorio(text::FromUtf8(StoreName(one))) != key; });
  return versions;
}

Versions VersionsAt(const Versions& all, const std::string& name, const std::optional<std::string>& when) {
  if (all.empty()) throw LocalFailure(name + ": the history has no version of it");
  std::optional<Time> time;
  if (when && !(time = ReadWhen(*when))) {
    throw UsageError("--at: " + *when +
                     " is neither a time that 'kestorctl history' tells nor one such as \"2026-11-26 14:30\" or 12h");
  }
  Versions versions;
  for (const Version& version : all) {
    const bool isThen = time ? version.time >= *time : version.IsOfOperation(all.back());
    const bool isFirst =
        std::none_of(versions.begin(), versions.end(), [&](const Version& one) { return AreOfOneFile(one, version); });
    if (isThen && isFirst) versions.push_back(version);
  }
  if (versions.empty()) throw LocalFailure(name + " has not been changed since " + *when);
  if (time) LeaveOutLater(name, *when, *time, &versions);
  // A document that a migration made of the model is no part of what the model was before.
  const auto first = std::find_if(versions.begin(), versions.end(),
                                  [](const Version& one) { return KindOf(one) == Kind::firstGeneration; });
  if (first != versions.end()) {
    const Time migrated = first->time;
    std::erase_if(versions, [&](const Version& one) { return KindOf(one) == Kind::document && one.time >= migrated; });
  }
  for (const Version& version : versions) {
    if (version.after == history::After::made)
      throw LocalFailure(name + " was not there before the change of " + WhenOf(version));
  }
  return versions;
}

std::string WhenOf(const Version& version) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(version.time);
  const std::string fraction = std::to_string(1'000'000 + (version.time - seconds).count()).substr(1);
  return UtcText(history::Clock::to_time_t(seconds), "%Y-%m-%dT%H:%M:%S") + "." + fraction + "Z";
}

std::string WhatOf(const Version& version) {
  if (version.after == history::After::made && version.method == "Grava") return "made";
  if (version.method == history::kMigration) return "migrated";
  if (version.method == "AlteraCodigoCampos") return "renumbered";
  if (version.method == "AtualizaRelatorio") return "updated";
  if (version.method == history::kDeletion || version.method == history::kDocumentDeletion) return "deleted";
  return "overwritten";
}

Kind KindOf(const Version& version) {
  // The name of a document may include any extension.
  for (const char* method : {"Grava", "AlteraCodigoCampos", history::kDocumentDeletion})
    if (version.method == method) return Kind::document;
  const std::string extension = text::FromUtf8(version.extension);
  if (text::EqualNoCase(extension, kestor::kExtensaoRel)) return Kind::firstGeneration;
  if (text::EqualNoCase(extension, kestor::kExtensaoExportacao)) return Kind::exportSettings;
  if (text::EqualNoCase(extension, kestor::kExtensaoFiltro)) return Kind::filter;
  return Kind::document;
}

std::string WordOf(Kind kind) {
  switch (kind) {
    case Kind::firstGeneration:
      return "first generation";
    case Kind::exportSettings:
      return "export settings";
    case Kind::filter:
      return "filter";
    default:
      return "document";
  }
}

std::string StoreName(const Version& version) {
  const bool isUsual = KindOf(version) != Kind::document ||
                       text::EqualNoCase(text::FromUtf8(version.extension), kestor::kExtensaoRelatorio);
  return isUsual ? version.model : version.model + version.extension;
}

std::string Content(const Version& version) {
  const std::string file = version.file.string();
  std::string content = ReadInput(file, kestor::kMaxConteudo + kVersionBytes);
  RequireStorable(version, content);
  return content;
}

void RequireStorable(const Version& version, const std::string& content) {
  const std::string file = version.file.string();
  if (KindOf(version) == Kind::document && content.size() < kVersionBytes)
    throw LocalFailure(file + " is too short for a model");
  if (KindOf(version) == Kind::exportSettings) ExportSettings(file, content);
  if (KindOf(version) == Kind::filter && !HasUsualHeader(content))
    throw LocalFailure(file + " is no filter as the server writes it");
}

std::optional<USHORT> DocumentVersion(const Version& version) {
  if (KindOf(version) != Kind::document || version.size < kVersionBytes) return std::nullopt;
  std::ifstream file(version.file, std::ios::binary);
  USHORT number = 0;
  if (!file.read(reinterpret_cast<char*>(&number), sizeof number)) return std::nullopt;
  return number;
}

bool AreOfOneFile(const Version& version, const Version& other) {
  const auto same = [](const std::string& one, const std::string& another) {
    return text::EqualNoCase(text::FromUtf8(one), text::FromUtf8(another));
  };
  return KindOf(version) == KindOf(other) && same(version.model, other.model) &&
         same(version.extension, other.extension);
}

// ---- Stores --------------------------------------------------------------------------------------------------------

ReportStore* Stores::Documents(Answer& answer) {
  const bool isNew = !documents_;
  if (isNew) documents_.emplace(store_.module, store_.component);
  const StoreSession& session = *documents_;  // whose models count once
  return (isNew ? IsOpen(*documents_, answer) : IsOpen(session, answer)) ? &*documents_ : nullptr;
}

LegacyStore* Stores::FirstGeneration(Answer& answer) {
  if (!firstGeneration_) firstGeneration_.emplace(store_.module, store_.component);
  return IsOpen(*firstGeneration_, answer) ? &*firstGeneration_ : nullptr;
}

bool Stores::Conclude(HRESULT result, Answer& answer) const {
  kestorctl::Conclude(result, answer);
  return result == S_OK;
}

bool Stores::Store(const Version& version, std::string content, bool mustBeNew, Answer& answer) {
  const std::string name = StoreName(version);
  const std::string file = version.file.string();
  if (KindOf(version) == Kind::document) {
    USHORT number = 0;
    std::memcpy(&number, content.data(), sizeof number);
    ReportStore* const store = Documents(answer);
    if (store == nullptr) return false;
    const auto flags = static_cast<unsigned char>(mustBeNew ? KESTOR_NaoSobreescrever : 0);
    const auto bytes = static_cast<LONG>(content.size() - kVersionBytes);
    return Conclude((*store)->Grava(ToBstr(name).get(), number, flags, bytes, BytesOf(content) + kVersionBytes),
                    answer);
  }
  LegacyStore* const store = FirstGeneration(answer);
  if (store == nullptr) return false;
  switch (KindOf(version)) {
    case Kind::exportSettings:
      return Conclude(ExportSettings(file, content).Store(*store, name), answer);
    case Kind::filter:
      return Conclude(Filter(file, content.substr(kFilterHeader)).Store(*store, name), answer);
    default:
      return Conclude((*store)->GravaRelatorio(ToBstr(name).get(), mustBeNew ? 0 : 1, static_cast<LONG>(content.size()),
                                               BytesOf(content)),
                      answer);
  }
}

bool Stores::Delete(const std::string& document, Answer& answer) {
  ReportStore* const store = Documents(answer);
  if (store == nullptr) return false;
  char deleted = 0;
  return Conclude((*store)->ExcluiRelatorio(ToBstr(document).get(), 0, &deleted), answer);
}

bool Stores::DeleteFile(const Version& version, Answer& answer) {
  LegacyStore* const store = FirstGeneration(answer);
  return store != nullptr &&
         Conclude((*store)->ExcluiRelatorio(ToBstr(version.model + version.extension).get()), answer);
}

void WarnOfMigration(Answer& answer) {
  answer.AddNote("the next command for the second generation migrates the first-generation models again");
}

void NoteHidden(Stores& stores, const std::string& name, Answer& answer) {
  ReportStore* const store = stores.Documents(answer);
  std::vector<std::string> deleted;
  if (store == nullptr || DeletedNames(*store, &deleted) != S_OK) return;
  const std::string ansi = text::FromUtf8(name);
  if (std::any_of(deleted.begin(), deleted.end(),
                  [&](const std::string& one) { return text::EqualNoCase(text::FromUtf8(one), ansi); })) {
    answer.AddNote(name + " is stored, but it stays hidden: a demonstration model of that name was deleted");
  }
}

}  // namespace kestorctl
