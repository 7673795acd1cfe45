#include "lookup.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include "folder_index.h"
#include "platform/kernel/host_error.h"

namespace files {
namespace {

using Clock = std::chrono::steady_clock;

struct Kept {
  std::string path;
  FolderHandle folder;
  Clock::time_point opened;
};

thread_local bool keeps = false;
thread_local std::optional<Kept> kept;

bool TakeKept(const std::string& path, FolderHandle* folder) {
  constexpr auto kLongest = std::chrono::milliseconds(100);
  if (!kept || kept->path != path || Clock::now() - kept->opened > kLongest) return false;
  struct stat status = {};
  if (host::Stat(kept->folder, &status) != 0 || status.st_nlink == 0) return false;
  *folder = kept->folder;
  return true;
}

bool IsMissing(int error) {
  return error == ENOENT || error == ENOTDIR;
}

// Follows the components of `path` from `base` on as far as they exist. Returns the path up to there in the letter case
// on disk; the other components begin at `*rest`.
std::string Follow(std::string_view path, std::size_t base, std::size_t* rest) {
  std::string followed(path.substr(0, base));
  std::size_t at = base;
  while (at < path.size()) {
    const std::size_t start = path[at] == '/' ? at + 1 : at;
    const std::size_t end = std::min(path.find('/', start), path.size());
    host::Descriptor folder;
    if (host::OpenFolder(AT_FDCWD, followed.empty() ? "." : followed, &folder) != 0) break;
    Location location;
    location.folder = FolderHandle(std::move(folder));
    if (FindIn(std::string(path.substr(start, end - start)), &location) != ERROR_SUCCESS || !location.exists) break;
    if (!followed.empty()) followed += '/';
    followed += location.name;
    at = end;
  }
  *rest = at;
  return followed;
}

DWORD OpenFolderAt(const std::string& path, std::size_t base, FolderHandle* folder) {
  if (TakeKept(path, folder)) return ERROR_SUCCESS;
  host::Descriptor opened;
  int error = host::OpenFolder(AT_FDCWD, path, &opened);
  if (IsMissing(error)) {
    std::size_t rest = 0;
    const std::string followed = Follow(path, base, &rest);
    if (rest < path.size()) return ERROR_PATH_NOT_FOUND;
    error = host::OpenFolder(AT_FDCWD, followed, &opened);
  }
  if (error != 0) return IsMissing(error) ? ERROR_PATH_NOT_FOUND : platform::OsError(error);
  *folder = FolderHandle(std::move(opened));
  if (keeps) kept = Kept{path, *folder, Clock::now()};
  return ERROR_SUCCESS;
}

}  // namespace

KeptFolder::KeptFolder() : outermost_(!keeps) {
  keeps = true;
}

KeptFolder::~KeptFolder() {
  if (!outermost_) return;
  keeps = false;
  kept.reset();
}

DWORD TranslateFilePath(std::string_view text, PathName* path) {
  if (const DWORD error = TranslatePath(text, path); error != ERROR_SUCCESS) return error;
  if (!path->meansFolder) return ERROR_SUCCESS;
  FolderHandle folder;
  const DWORD error = OpenWholeFolder(*path, &folder);
  return error == ERROR_SUCCESS ? ERROR_ACCESS_DENIED : error;
}

DWORD OpenFolderOf(const PathName& path, FolderHandle* folder) {
  return path.HasName() ? OpenFolderAt(path.Folder(), path.base, folder) : ERROR_PATH_NOT_FOUND;
}

DWORD OpenWholeFolder(const PathName& path, FolderHandle* folder) {
  return OpenFolderAt(path.path, path.base, folder);
}

DWORD FindQuicklyIn(const std::string& name, Location* location) {
  if (host::IsLocal(location->folder)) return FindIn(name, location);
  location->name = name;
  location->isDeadLink = false;
  const int error = host::Stat(location->folder.Number(), name, &location->status);
  location->exists = error == 0;
  return error == ENOENT ? DWORD{ERROR_SUCCESS} : platform::OsError(error);
}

DWORD FindIn(const std::string& name, Location* location) {
  location->name = name;
  location->exists = false;
  location->isDeadLink = false;
  int error = host::Stat(location->folder.Number(), name, &location->status);
  // A name from the index may be removed, or change its letter case, before its status is read.
  constexpr int kAttempts = 3;
  for (int attempt = 0; error == ENOENT && attempt < kAttempts; ++attempt) {
    if (FolderIndexes::OfProcess().Find(location->folder, name, &location->name) != 0) {
      location->name = name;
      return ERROR_SUCCESS;
    }
    error = host::Stat(location->folder.Number(), location->name, &location->status);
  }
  location->exists = error == 0;
  if (error != ENOENT) return platform::OsError(error);
  struct stat link = {};
  location->isDeadLink = host::StatLink(location->folder.Number(), location->name, &link) == 0 && S_ISLNK(link.st_mode);
  if (!location->isDeadLink) location->name = name;
  return ERROR_SUCCESS;
}

DWORD Locate(const PathName& path, Location* location) {
  if (const DWORD error = OpenFolderOf(path, &location->folder); error != ERROR_SUCCESS) return error;
  return FindIn(path.Name(), location);
}

std::string SpellAsOnDisk(const PathName& path) {
  if (!path.HasName()) return path.path;
  std::size_t rest = 0;
  std::string spelled = Follow(path.path, path.base, &rest);
  if (rest < path.path.size()) {
    if (!spelled.empty() && path.path[rest] != '/') spelled += '/';
    spelled += std::string_view(path.path).substr(rest);
  }
  return spelled;
}

}  // namespace files
