#include "kept_versions.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include "common/nomes_arquivos.h"
#include "explanation.h"
#include "failure.h"
#include "host_files.h"
#include "model_names.h"
#include "platform/text/text.h"
#include "times.h"

namespace kestorctl {

namespace {

using history::Time;
using history::Version;

constexpr std::size_t kVersionBytes = 2;
constexpr std::size_t kFilterHeader = 8;

std::optional<Time> ReadWhen(const std::string& text) {
  std::string_view rest;
  std::optional<std::tm> utc = ReadTime(text, "%Y-%m-%dT%H:%M:%S", &rest);
  if (!utc) {
    const std::optional<std::time_t> local = ReadPastTime(text);
    if (!local) return std::nullopt;
    return std::chrono::time_point_cast<std::chrono::microseconds>(history::Clock::from_time_t(*local));
  }
  Time time = std::chrono::time_point_cast<std::chrono::microseconds>(history::Clock::from_time_t(timegm(&*utc)));
  if (rest.starts_with('.')) {
    rest.remove_prefix(1);
    std::int64_t unit = 100'000;
    for (; !rest.empty() && rest.front() >= '0' && rest.front() <= '9'; rest.remove_prefix(1), unit /= 10)
      time += std::chrono::microseconds((rest.front() - '0') * unit);
  }
  if (rest == "Z") rest.remove_prefix(1);
  return rest.empty() ? std::optional(time) : std::nullopt;
}

}  // namespace

history::Settings RequireHistory() {
  RequireHome();
  history::Settings settings = history::ReadSettings();
  if (settings.folder.empty()) {
    throw LocalFailure("the home keeps no history: kestorctl setup --history DIR enters a folder for it");
  }
  return settings;
}

Versions FindVersions(const StoreOptions& store, const std::string& name, Answer& answer) {
  std::string trouble;
  Versions versions = history::FindVersions(RequireHistory().folder, text::FromUtf8(store.module),
                                            text::FromUtf8(store.component), &trouble);
  if (!trouble.empty()) {
    answer.AddNote("not all of the history can be read: " + trouble);
    answer.incomplete = true;
  }
  const std::string stem(kestor::AntesDoPonto(text::FromUtf8(name)));
  std::erase_if(versions, [&](const Version& one) {
    return !name.empty() && !text::EqualNoCase(text::FromUtf8(one.model), stem);
  });
  return versions;
}

Versions VersionsAt(const Versions& all, const std::string& name, const std::optional<std::string>& when) {
  if (all.empty()) throw LocalFailure(name + ": the history has no version of it");
  Versions versions;
  if (!when) {
    std::copy_if(all.begin(), all.end(), std::back_inserter(versions),
                 [&](const Version& one) { return one.IsOfOperation(all.back()); });
    return versions;
  }
  const std::optional<Time> time = ReadWhen(*when);
  if (!time) {
    throw UsageError("--at: " + *when +
                     " is neither a time that 'kestorctl history' tells nor one such as \"2026-11-26 14:30\" or 12h");
  }
  const Version* model = nullptr;  // of the first generation
  for (const Version& version : all) {
    const bool isFirst = std::none_of(versions.begin(), versions.end(), [&](const Version& one) {
      return KindOf(one) == KindOf(version) && one.extension == version.extension && !one.IsOfOperation(version);
    });
    if (version.time >= *time && isFirst) versions.push_back(version);
  }
  if (versions.empty()) throw LocalFailure(name + " has not been changed since " + *when);
  for (const Version& version : versions) {
    if (KindOf(version) == Kind::firstGeneration) model = &version;
  }
  // What a migration made of the model came after it.
  if (model != nullptr) {
    const Time migrated = model->time;
    std::erase_if(versions, [&](const Version& one) { return KindOf(one) == Kind::document && one.time > migrated; });
  }
  return versions;
}

std::string WhenOf(const Version& version) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(version.time);
  const std::time_t whole = history::Clock::to_time_t(seconds);
  std::tm utc{};
  gmtime_r(&whole, &utc);
  char text[sizeof "2026-11-26T22:15:44"];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  const std::string fraction = std::to_string(1'000'000 + (version.time - seconds).count()).substr(1);
  return std::string(text) + "." + fraction + "Z";
}

std::string WhatOf(const Version& version) {
  if (version.method == "Inicializa") return "migrated";
  if (version.method == "AlteraCodigoCampos") return "renumbered";
  if (version.method == "AtualizaRelatorio") return "updated";
  if (version.method == "ExcluiRelatorio") return "deleted";
  return "overwritten";
}

Kind KindOf(const Version& version) {
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
  return ReadInput(version.file.string(), kestor::kMaxConteudo + kVersionBytes);
}

std::optional<USHORT> DocumentVersion(const Version& version) {
  if (KindOf(version) != Kind::document || version.size < kVersionBytes) return std::nullopt;
  std::ifstream file(version.file, std::ios::binary);
  USHORT number = 0;
  if (!file.read(reinterpret_cast<char*>(&number), sizeof number)) return std::nullopt;
  return number;
}

// ---- Stores --------------------------------------------------------------------------------------------------------

ReportStore* Stores::Documents(Answer& answer) {
  if (!documents_) documents_.emplace(store_.module, store_.component);
  return IsOpen(*documents_, answer) ? &*documents_ : nullptr;
}

LegacyStore* Stores::FirstGeneration(Answer& answer) {
  if (!firstGeneration_) firstGeneration_.emplace(store_.module, store_.component);
  return IsOpen(*firstGeneration_, answer) ? &*firstGeneration_ : nullptr;
}

bool Stores::Conclude(HRESULT result, Answer& answer) const {
  kestorctl::Conclude(result, answer);
  return result == S_OK;
}

bool Stores::Store(const Version& version, Answer& answer) {
  std::string content = Content(version);
  const std::string name = StoreName(version);
  const std::string file = version.file.string();
  if (KindOf(version) == Kind::document) {
    if (content.size() < kVersionBytes) throw LocalFailure(file + " is too short for a model");
    USHORT number = 0;
    std::memcpy(&number, content.data(), sizeof number);
    ReportStore* const store = Documents(answer);
    if (store == nullptr) return false;
    auto* const bytes = reinterpret_cast<unsigned char*>(content.data() + kVersionBytes);
    return Conclude(
        (*store)->Grava(ToBstr(name).get(), number, 0, static_cast<LONG>(content.size() - kVersionBytes), bytes),
        answer);
  }
  LegacyStore* const store = FirstGeneration(answer);
  if (store == nullptr) return false;
  switch (KindOf(version)) {
    case Kind::exportSettings:
      return Conclude(ExportSettings(file, content).Store(*store, name), answer);
    case Kind::filter:
      return Conclude(Filter(file, content.substr(std::min(kFilterHeader, content.size()))).Store(*store, name),
                      answer);
    default:
      return Conclude((*store)->GravaRelatorio(ToBstr(name).get(), 1, static_cast<LONG>(content.size()),
                                               reinterpret_cast<unsigned char*>(content.data())),
                      answer);
  }
}

bool Stores::Delete(const std::string& document, Answer& answer) {
  ReportStore* const store = Documents(answer);
  if (store == nullptr) return false;
  char deleted = 0;
  if (!Conclude((*store)->ExcluiRelatorio(ToBstr(document).get(), 0, &deleted), answer)) return false;
  if (deleted == 0) throw LocalFailure(document + ": its document has gone meanwhile");
  return true;
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
