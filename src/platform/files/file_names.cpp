// Removing and renaming files.
#include <optional>

#include "files.h"
#include "folder_index.h"
#include "keeping.h"
#include "lookup.h"
#include "opening.h"
#include "platform/kernel/host_error.h"
#include "replacement_group.h"
#include "reservation.h"

namespace files {
namespace {

// The folder whose removals this thread flushes together; none before the first removal.
struct GroupedFolder {
  FolderHandle folder;
  struct stat status = {};
};
thread_local std::optional<GroupedFolder> grouped;

DWORD FlushRemoval(const FolderHandle& folder) {
  struct stat own = {};
  if (!grouped || host::Stat(folder, &own) != 0) return platform::OsError(host::Sync(folder));
  if (!grouped->folder) *grouped = {folder, own};
  return host::SameFile(grouped->status, own) ? ERROR_SUCCESS : platform::OsError(host::Sync(folder));
}

DWORD RemoveFile(std::string_view text) {
  PathName path;
  if (const DWORD error = TranslateFilePath(text, &path); error != ERROR_SUCCESS) return error;
  FinishGroupWith(path);
  Location location;
  host::Descriptor file;
  if (const DWORD error = OpenLocated(path, kExclusiveReading, &location, &file); error != ERROR_SUCCESS) return error;
  if (host::IsReadOnly(location.status)) return ERROR_ACCESS_DENIED;
  const host::Descriptor& folder = location.folder;
  Keeper* const keeper = Keeping::Current();
  if (keeper != nullptr) {
    keeper->Keep({.way = LeavingFile::Way::removed,
                  .name = location.name,
                  .file = file,
                  .folder = &folder,
                  .entry = location.name});
  }
  if (const int error = host::Unlink(folder, location.name); error != 0) {
    if (keeper != nullptr) keeper->Drop();
    return platform::OsError(error);
  }
  FolderIndexes::OfProcess().CatchUp();
  return FlushRemoval(location.folder);
}

// One attempt to rename a file. It must be repeated if other processes change the names before they are locked.
class Renaming {
 public:
  // `*isOfNew` says whether a failure concerns the new path.
  DWORD Try(const PathName& oldPath, const PathName& newPath, bool* isOfNew) {
    newName_ = newPath.Name();
    *isOfNew = false;
    if (const DWORD error = Locate(oldPath, &from_); error != ERROR_SUCCESS) return error;
    if (!from_.exists) return ERROR_FILE_NOT_FOUND;
    *isOfNew = true;
    if (const DWORD error = Locate(newPath, &to_); error != ERROR_SUCCESS) return error;
    if (!IsTakenByOther()) return to_.exists && to_.name == newName_ ? ERROR_SUCCESS : Move(isOfNew);
    // Another process may have changed the letter case of the file between the two lookups. Only a lock on the file
    // makes that certain, because the process may have changed it back since.
    if (host::SameFile(from_.status, to_.status)) return Move(isOfNew);
    return IsUnchanged(from_) ? ERROR_FILE_EXISTS : kStartAnew;
  }

 private:
  static bool IsUnchanged(const Location& location) {
    struct stat now = {};
    return host::Stat(location.folder.Number(), location.name, &now) == 0 && host::SameFile(now, location.status);
  }

  bool IsTakenByOther() const {
    return to_.isDeadLink || (to_.exists && (to_.name != from_.name || !host::SameFile(from_.folder, to_.folder)));
  }

  DWORD Move(bool* isOfNew) {
    host::Descriptor file;
    *isOfNew = false;
    DWORD error = OpenAsWritten(from_.folder.Number(), from_.name, kExclusiveReading, &file);
    if (error != ERROR_SUCCESS) return error == ERROR_FILE_NOT_FOUND ? kStartAnew : error;
    // A process that meanwhile creates a file of the new name waits or is refused.
    *isOfNew = true;
    Reservation reservation;
    error = reservation.Take(to_.folder, newName_, file, kExclusiveWriting.share);
    if (error != ERROR_SUCCESS) return error;
    if (error = FindIn(newName_, &to_); error != ERROR_SUCCESS) return error;
    if (IsTakenByOther()) return ERROR_FILE_EXISTS;
    *isOfNew = false;
    // If the new name exists and is not another file's, it is the old name in another letter case.
    error = platform::OsError(to_.exists ? host::ChangeSpelling(to_.folder, from_.name, newName_)
                                         : host::RenameToFreeName(from_.folder, from_.name, to_.folder, newName_));
    if (error != ERROR_SUCCESS) return error;
    FolderIndexes::OfProcess().CatchUp();
    error = platform::OsError(host::Sync(to_.folder));
    if (error != ERROR_SUCCESS || host::SameFile(from_.folder, to_.folder)) return error;
    return platform::OsError(host::Sync(from_.folder));
  }

  Location from_;
  Location to_;
  std::string newName_;
};

DWORD RenameFile(std::string_view oldText, std::string_view newText, bool* isOfNew) {
  PathName oldPath;
  PathName newPath;
  *isOfNew = false;
  if (const DWORD error = TranslateFilePath(oldText, &oldPath); error != ERROR_SUCCESS) return error;
  *isOfNew = true;
  if (const DWORD error = TranslateFilePath(newText, &newPath); error != ERROR_SUCCESS) return error;
  FinishGroupWith(oldPath);
  FinishGroupWith(newPath);
  return UntilNotOvertaken([&] { return Renaming().Try(oldPath, newPath, isOfNew); });
}

}  // namespace

GroupedRemovals::GroupedRemovals() : m_outermost(!grouped) {
  if (m_outermost) grouped.emplace();
}

GroupedRemovals::~GroupedRemovals() {
  if (!m_outermost) return;
  if (grouped->folder) host::Sync(grouped->folder);
  grouped.reset();
}

}  // namespace files

void CFile::Remove(const char* path) {
  const std::string_view text = files::TextOf(path);
  const DWORD error = files::RemoveFile(text);
  if (error != ERROR_SUCCESS) throw CFileException::FromOsError(error, std::string(text));
}

void CFile::Rename(const char* oldPath, const char* newPath) {
  bool isOfNew = false;
  const DWORD error = files::RenameFile(files::TextOf(oldPath), files::TextOf(newPath), &isOfNew);
  if (error != ERROR_SUCCESS) {
    throw CFileException::FromOsError(error, std::string(files::TextOf(isOfNew ? newPath : oldPath)));
  }
}
