#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "folders.h"
#include "platform/host/system.h"
#include "platform/text/text.h"

namespace history {
namespace {

// A copy that is still being made is younger than this.
constexpr std::chrono::hours kLeftoverAge{24};

constexpr unsigned kMostDays = 100'000;  // a longer time means for ever
constexpr unsigned kMostOverLimit = 64;
constexpr unsigned kMoreAtOnce = 16;  // beyond RoomOverLimit, so that a lowered limit is reached step by step

bool IsOlder(const Descriptor& folder, const std::string& name, std::chrono::hours age) {
  struct stat status = {};
  if (host::StatLinkWithTimes(folder.Number(), name, &status) != 0) return false;
  return Clock::from_time_t(status.st_mtime) < Clock::now() - age;
}

void Say(std::string* trouble, const std::filesystem::path& place, int error) {
  if (trouble == nullptr || error == 0 || error == ENOENT) return;
  *trouble += (trouble->empty() ? "" : "; ") + place.string() + ": " + std::strerror(error);
}

}  // namespace

std::string FolderName(std::string_view code) {
  return text::ToUtf8(text::Upper(code));
}

std::filesystem::path FolderOfPair(const std::filesystem::path& folder, const std::string& module,
                                   const std::string& component) {
  return folder / FolderName(module) / FolderName(component);
}

bool IsFolderName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos && name.find('\0') == name.npos;
}

int OpenInner(const Descriptor& folder, const std::string& name, Descriptor* opened) {
  return host::Open(folder.Number(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW, opened);
}

int OpenPair(const std::filesystem::path& folder, const std::string& module, const std::string& component,
             Descriptor* pair) {
  if (!IsFolderName(FolderName(module)) || !IsFolderName(FolderName(component))) return ENOENT;
  Descriptor root;
  Descriptor ofModule;
  int error = host::OpenFolder(AT_FDCWD, folder, &root);
  if (error == 0) error = OpenInner(root, FolderName(module), &ofModule);
  return error == 0 ? OpenInner(ofModule, FolderName(component), pair) : error;
}

void VisitModels(const std::filesystem::path& folder, const std::string& module, const std::string& component,
                 const std::string& only, std::string* trouble,
                 const std::function<void(const Descriptor&, const std::string& model)>& visit) {
  const std::filesystem::path place = FolderOfPair(folder, module, component);
  Descriptor root;
  if (const int error = host::OpenFolder(AT_FDCWD, folder, &root); error != 0) {
    if (trouble != nullptr) *trouble = folder.string() + ": " + std::strerror(error);
    return;
  }
  Descriptor ofPair;
  int error = OpenPair(folder, module, component, &ofPair);
  std::vector<std::string> models;
  if (!only.empty()) {
    models.push_back(only);
  } else if (error == 0) {
    error = host::ReadNames(ofPair, [&](const char* name, unsigned char) { models.emplace_back(name); });
  }
  Say(trouble, place, error);
  if (error != 0) return;
  std::sort(models.begin(), models.end());
  for (const std::string& model : models) {
    Descriptor versions;
    error = OpenInner(ofPair, model, &versions);
    if (error == 0) visit(versions, model);
    if (error != ENOTDIR && error != ELOOP) Say(trouble, place / model, error);
  }
}

void VisitVersions(const Descriptor& models,
                   const std::function<void(const Version& version, const std::string& name)>& visit) {
  host::ReadNames(models, [&](const char* name, unsigned char) {
    if (const std::optional<Version> version = ParseName(name)) visit(*version, name);
  });
}

unsigned RoomOverLimit(const Settings& settings) {
  return settings.versions == 0 ? kMostOverLimit : std::min(settings.versions / 8, kMostOverLimit);
}

std::size_t PruneModel(const Descriptor& models, const Settings& settings, const Version* running, int* error) {
  if (running != nullptr && settings.versions == 0 && settings.days == 0) return 0;
  std::vector<std::string> versions;
  std::vector<std::string> doomed;
  host::ReadNames(models, [&](const char* name, unsigned char) {
    if (ParseName(name)) versions.emplace_back(name);
    if (std::string_view(name).starts_with(kUnfinished) && IsOlder(models, name, kLeftoverAge))
      doomed.emplace_back(name);
  });
  const std::size_t leftovers = doomed.size();
  std::sort(versions.begin(), versions.end(), std::greater<>());
  const Time now = std::chrono::time_point_cast<std::chrono::microseconds>(Clock::now());
  const std::string oldest =
      OperationName(now - std::chrono::hours(24) * std::int64_t{std::min(settings.days, kMostDays)}, 0);
  const std::string ofRunning = running == nullptr ? std::string() : OperationName(running->time, running->process);
  std::size_t operations = 0;
  std::string_view operation;
  for (const std::string& version : versions) {
    if (OperationOf(version) != operation) ++operations;
    operation = OperationOf(version);
    const bool isTooMany = settings.versions != 0 && operations > settings.versions;
    const bool isTooOld = settings.days != 0 && version < oldest;
    if ((isTooMany || isTooOld) && operation != ofRunning) doomed.push_back(version);
  }
  std::reverse(doomed.begin() + static_cast<std::ptrdiff_t>(leftovers), doomed.end());  // the oldest go first
  if (running != nullptr) doomed.resize(std::min<std::size_t>(doomed.size(), RoomOverLimit(settings) + kMoreAtOnce));
  std::size_t removed = 0;
  for (std::size_t i = 0; i < doomed.size(); ++i) {
    const int failure = host::Unlink(models, doomed[i]);
    if (failure == 0 && i >= leftovers) ++removed;
    if (failure != 0 && failure != ENOENT && error != nullptr && *error == 0) *error = failure;
  }
  return removed;
}

namespace {

// Returns the names of the folders in a folder, or only that of `only` unless it is empty.
std::vector<std::string> FoldersIn(const std::filesystem::path& folder, const std::string& only, std::string* trouble) {
  std::vector<std::string> names;
  if (!only.empty()) return {FolderName(only)};
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    std::error_code gone;
    if (entry.is_directory(gone) && !entry.is_symlink(gone)) names.push_back(entry.path().filename().string());
  }
  Say(trouble, folder, error.value());
  std::sort(names.begin(), names.end());
  return names;
}

// A note is useless once the versions that it is about are too old.
void RemoveOldNotes(const Settings& settings, const std::string& module, const std::string& component) {
  Descriptor pair;
  if (settings.days == 0 || OpenPair(settings.folder, module, component, &pair) != 0) return;
  std::vector<std::string> old;
  host::ReadNames(pair, [&](const char* name, unsigned char) {
    const auto age = std::chrono::hours(24) * std::int64_t{std::min(settings.days, kMostDays)};
    if (std::string_view(name).starts_with(kUndone) && IsOlder(pair, name, age)) old.emplace_back(name);
  });
  for (const std::string& name : old)
    host::Unlink(pair, name);
}

}  // namespace

std::size_t Prune(const Settings& settings, const std::string& module, const std::string& component,
                  std::string* trouble) {
  std::size_t removed = 0;
  for (const std::string& ofModule : FoldersIn(settings.folder, module, trouble)) {
    for (const std::string& ofPair : FoldersIn(settings.folder / ofModule, component, trouble)) {
      const std::filesystem::path pair = settings.folder / ofModule / ofPair;
      VisitModels(settings.folder, text::FromUtf8(ofModule), text::FromUtf8(ofPair), {}, trouble,
                  [&](const Descriptor& models, const std::string& model) {
                    int error = 0;
                    removed += PruneModel(models, settings, nullptr, &error);
                    Say(trouble, pair / model, error);
                    std::error_code notEmpty;
                    std::filesystem::remove(pair / model, notEmpty);
                  });
      RemoveOldNotes(settings, text::FromUtf8(ofModule), text::FromUtf8(ofPair));
    }
  }
  return removed;
}

}  // namespace history
