#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "files.h"
#include "lookup.h"
#include "platform/kernel/host_error.h"
#include "replacement_group.h"

namespace {

DWORD StatusOf(const files::PathName& path, struct stat* status) {
  const int error = host::Stat(AT_FDCWD, path.path, status);
  if (error == 0) return ERROR_SUCCESS;
  files::Location location;
  if (const DWORD failure = files::Locate(path, &location); failure != ERROR_SUCCESS) return failure;
  *status = location.status;
  return location.exists ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

}  // namespace

DWORD GetFileAttributesA(const char* path) {
  files::PathName translated;
  struct stat status = {};
  if (files::TranslatePath(files::TextOf(path), &translated) != ERROR_SUCCESS) return INVALID_FILE_ATTRIBUTES;
  files::FinishGroupWith(translated);
  if (StatusOf(translated, &status) != ERROR_SUCCESS) return INVALID_FILE_ATTRIBUTES;
  if (S_ISDIR(status.st_mode)) return FILE_ATTRIBUTE_DIRECTORY;
  if (translated.meansFolder) return INVALID_FILE_ATTRIBUTES;
  return host::IsReadOnly(status) ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
}

std::optional<ULONGLONG> files::LengthOf(const char* path) {
  PathName translated;
  struct stat status = {};
  if (TranslateFilePath(TextOf(path), &translated) != ERROR_SUCCESS) return std::nullopt;
  FinishGroupWith(translated);
  if (StatusOf(translated, &status) != ERROR_SUCCESS || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<ULONGLONG>(status.st_size);
}

// File times advance in steps; those of FAT are the longest.
bool files::ContentWatch::HasChanged() {
  constexpr std::int64_t kLongestStep = 2;
  const std::optional<Stamp> before = std::exchange(m_last, std::nullopt);
  PathName path;
  struct stat status = {};
  if (TranslatePath(TextOf(m_path.c_str()), &path) != ERROR_SUCCESS) return true;
  const auto look = [&status](const std::string& name) { return host::StatNow(AT_FDCWD, name, &status) == 0; };
  if (!look(path.path) && !look(SpellAsOnDisk(path))) return true;
  const Stamp now = {status.st_dev,
                     status.st_ino,
                     status.st_size,
                     {status.st_mtim.tv_sec, status.st_mtim.tv_nsec},
                     {status.st_ctim.tv_sec, status.st_ctim.tv_nsec}};
  if (std::max(now.written.seconds, now.changed.seconds) + kLongestStep < time(nullptr)) m_last = now;
  return before != now;
}

bool files::IsOnLocalDisk(const char* path) {
  PathName translated;
  FolderHandle folder;
  return TranslatePath(TextOf(path), &translated) == ERROR_SUCCESS &&
         OpenWholeFolder(translated, &folder) == ERROR_SUCCESS && host::IsLocal(folder);
}

DWORD files::FolderError(const char* path) {
  PathName translated;
  if (const DWORD error = TranslatePath(TextOf(path), &translated); error != ERROR_SUCCESS) return error;
  host::Descriptor folder;
  const int error = host::OpenFolder(AT_FDCWD, SpellAsOnDisk(translated), &folder);
  return error == ENOENT || error == ENOTDIR ? DWORD{ERROR_PATH_NOT_FOUND} : platform::OsError(error);
}

DWORD files::ReplacementError(const char* path) {
  PathName translated;
  if (const DWORD error = TranslatePath(TextOf(path), &translated); error != ERROR_SUCCESS) return error;
  const std::string host = SpellAsOnDisk(translated);
  const int error = host::MayUse(host.substr(0, host.rfind('/') + 1), W_OK | X_OK);
  if (error == ENOENT || error == ENOTDIR) return ERROR_PATH_NOT_FOUND;
  if (error != 0) return platform::OsError(error);
  struct stat status = {};
  const bool isThere = StatusOf(translated, &status) == ERROR_SUCCESS;
  return isThere && (S_ISDIR(status.st_mode) || host::IsReadOnly(status)) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

DWORD files::HostPath(const char* path, std::string* host) {
  PathName translated;
  if (const DWORD error = TranslatePath(TextOf(path), &translated); error != ERROR_SUCCESS) return error;
  *host = SpellAsOnDisk(translated);
  return ERROR_SUCCESS;
}
