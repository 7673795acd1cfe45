#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "folders.h"
#include "platform/host/system.h"
#include "platform/text/text.h"

namespace history {
namespace {

// A copy that is still being made is younger.
constexpr std::chrono::hours kLeftoverAge{24};

bool IsOld(const Descriptor& folder, const std::string& name) {
  struct stat status = {};
  if (host::StatLinkWithTimes(folder.Number(), name, &status) != 0) return false;
  return Clock::from_time_t(status.st_mtime) < Clock::now() - kLeftoverAge;
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

void VisitModels(const std::filesystem::path& folder, const std::string& module, const std::string& component,
                 std::string* trouble, const std::function<void(const Descriptor&, const std::string& model)>& visit) {
  const std::filesystem::path place = FolderOfPair(folder, module, component);
  Descriptor root;
  int error = host::OpenFolder(AT_FDCWD, folder, &root);
  if (error != 0) {
    if (trouble != nullptr) *trouble = folder.string() + ": " + std::strerror(error);
    return;
  }
  if (!IsFolderName(FolderName(module)) || !IsFolderName(FolderName(component))) return;
  Descriptor ofModule;
  Descriptor ofPair;
  error = OpenInner(root, FolderName(module), &ofModule);
  if (error == 0) error = OpenInner(ofModule, FolderName(component), &ofPair);
  std::vector<std::string> models;
  if (error == 0) error = host::ReadNames(ofPair, [&](const char* name, unsigned char) { models.emplace_back(name); });
  Say(trouble, place, error);
  std::sort(models.begin(), models.end());
  for (const std::string& model : models) {
    Descriptor versions;
    error = OpenInner(ofPair, model, &versions);
    if (error == 0) visit(versions, model);
    if (error != ENOTDIR && error != ELOOP) Say(trouble, place / model, error);
  }
}

void VisitVersions(const Descriptor& models,
                   const std::function<void(const Version& version, const std::string& name)>& visit,
                   const std::function<void(const std::string& name)>& leftover) {
  host::ReadNames(models, [&](const char* name, unsigned char) {
    if (const std::optional<Version> version = ParseName(name)) {
      visit(*version, name);
    } else if (leftover && std::string_view(name).starts_with(kUnfinished)) {
      leftover(name);
    }
  });
}

std::size_t PruneModel(const Descriptor& models, const Settings& settings, int* error) {
  std::vector<std::pair<Time, std::string>> versions;
  std::vector<std::string> doomed;
  VisitVersions(
      models, [&](const Version& version, const std::string& name) { versions.emplace_back(version.time, name); },
      [&](const std::string& name) {
        if (IsOld(models, name)) doomed.push_back(name);
      });
  const std::size_t leftovers = doomed.size();
  std::sort(versions.begin(), versions.end());
  const Time oldest = std::chrono::time_point_cast<std::chrono::microseconds>(Clock::now()) -
                      std::chrono::hours(24) * std::int64_t{settings.days};
  for (std::size_t i = 0; i < versions.size(); ++i) {
    const bool isTooMany = settings.versions != 0 && versions.size() - i > settings.versions;
    const bool isTooOld = settings.days != 0 && versions[i].first < oldest;
    if (isTooMany || isTooOld) doomed.push_back(versions[i].second);
  }
  std::size_t removed = 0;
  for (std::size_t i = 0; i < doomed.size(); ++i) {
    const int failure = host::Unlink(models, doomed[i]);
    if (failure == 0 && i >= leftovers) ++removed;
    if (failure != 0 && failure != ENOENT && error != nullptr && *error == 0) *error = failure;
  }
  return removed;
}

std::size_t Prune(const Settings& settings, const std::string& module, const std::string& component,
                  std::string* trouble) {
  std::size_t removed = 0;
  VisitModels(settings.folder, module, component, trouble, [&](const Descriptor& models, const std::string& model) {
    int error = 0;
    removed += PruneModel(models, settings, &error);
    Say(trouble, FolderOfPair(settings.folder, module, component) / model, error);
  });
  return removed;
}

}  // namespace history
