#include "opening.h"

#include <cerrno>

#include "folder_index.h"
#include "platform/kernel/host_error.h"

namespace files {
namespace {

// Opens for reading and writing where possible, whatever `mode` asks for: exclusive locks need a writable descriptor.
int OpenForLocking(int folder, const std::string& name, const OpenMode& mode, host::Descriptor* file, bool* writable) {
  // Does not wait if the name is that of a pipe.
  const int flags = O_NONBLOCK | (mode.noLink ? O_NOFOLLOW : 0);
  *writable = true;
  const int error = host::Open(folder, name, O_RDWR | flags, file);
  if (error != EACCES && error != EPERM && error != EROFS && error != ETXTBSY) return error;
  if (mode.share.writes && !mode.share.reads) return host::Open(folder, name, O_WRONLY | flags, file);
  if (mode.share.writes || mode.truncate) return error;
  *writable = false;
  return host::Open(folder, name, O_RDONLY | flags, file);
}

DWORD Create(const PathName& path, const OpenMode& mode, host::Descriptor* file, FolderHandle* createdIn) {
  Location location;
  if (const DWORD error = OpenFolderOf(path, &location.folder); error != ERROR_SUCCESS) return error;
  Reservation reservation;
  if (const DWORD error = reservation.Take(location.folder, path.Name(), /*held=*/{}, mode.share);
      error != ERROR_SUCCESS)
    return error;
  // Another process may have created the file before the name was reserved.
  if (const DWORD error = FindIn(path.Name(), &location); error != ERROR_SUCCESS) return error;
  if (location.exists) return kStartAnew;
  if (location.isDeadLink) return ERROR_ACCESS_DENIED;
  if (const DWORD error = reservation.TakeFreeName(path.Name()); error != ERROR_SUCCESS) return error;
  if (const DWORD error = reservation.Settle(); error != ERROR_SUCCESS) {
    host::Sync(location.folder);  // the name exists now, and the next opener relies on it
    return error;
  }
  *file = reservation.Release();
  *createdIn = std::move(location.folder);
  FolderIndexes::OfProcess().CatchUp();
  return ERROR_SUCCESS;
}

// The short path for openers that only read. They must not get a file that was replaced or removed before it was
// locked; such a file normally has no name left. (If it has other names, such as one in the history, it is a moment
// older than the file that has the name now, as if it had been read a moment earlier.) Looking the name up again would
// cost as much as opening the file.
DWORD LockForContent(host::Descriptor opened, bool writable, const ShareMode& share, host::Descriptor* file,
                     off_t* length) {
  const DWORD lockError = TakeShareLock(opened, writable, share);
  struct stat own = {};
  if (const int error = host::Stat(opened, &own); error != 0) return OpeningError(error);
  if (!S_ISREG(own.st_mode)) return ERROR_ACCESS_DENIED;
  if (lockError != ERROR_SUCCESS) return lockError;
  if (const DWORD error = CatchUpWithMachines(opened, &own); error != ERROR_SUCCESS) return error;
  if (own.st_nlink == 0) return kStartAnew;
  if (length != nullptr) *length = own.st_size;
  *file = std::move(opened);
  return ERROR_SUCCESS;
}

}  // namespace

DWORD OpenAsWritten(int folder, const std::string& name, const OpenMode& mode, host::Descriptor* file, off_t* length) {
  host::Descriptor opened;
  bool writable = false;
  if (const int error = OpenForLocking(folder, name, mode, &opened, &writable); error != 0) {
    return error == ELOOP && mode.noLink ? DWORD{ERROR_ACCESS_DENIED} : OpeningError(error);
  }
  if (mode.content) return LockForContent(std::move(opened), writable, mode.share, file, length);
  struct stat own = {};
  if (const int error = host::Stat(opened, &own); error != 0) return OpeningError(error);
  if (!S_ISREG(own.st_mode)) return ERROR_ACCESS_DENIED;
  const bool changes = mode.share.writes || mode.truncate;
  if (changes && host::IsReadOnly(own)) return ERROR_ACCESS_DENIED;

  if (const DWORD error = TakeShareLock(opened, writable, mode.share); error != ERROR_SUCCESS) return error;

  // Another process may have replaced or renamed the file before it was locked.
  struct stat named = {};
  if (host::Stat(folder, name, &named) != 0 || !host::SameFile(named, own)) {
    return kStartAnew;
  }
  own = named;
  if (const DWORD error = CatchUpWithMachines(opened, &own); error != ERROR_SUCCESS) return error;
  if (own.st_nlink == 0) return kStartAnew;
  if (mode.truncate) {
    if (const int error = host::Truncate(opened, 0); error != 0) return platform::OsError(error);
  }
  if (length != nullptr) *length = mode.truncate ? 0 : own.st_size;
  *file = std::move(opened);
  return ERROR_SUCCESS;
}

DWORD OpenExisting(const PathName& path, const OpenMode& mode, host::Descriptor* file, off_t* length) {
  const DWORD error = OpenAsWritten(AT_FDCWD, path.path, mode, file, length);
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND && error != kStartAnew) return error;
  Location location;
  return OpenLocated(path, mode, &location, file, length);
}

DWORD OpenLocated(const PathName& path, const OpenMode& mode, Location* location, host::Descriptor* file,
                  off_t* length) {
  return UntilNotOvertaken([&] {
    if (const DWORD error = Locate(path, location); error != ERROR_SUCCESS) return error;
    if (!location->exists) return ERROR_FILE_NOT_FOUND;
    const DWORD error = OpenAsWritten(location->folder.Number(), location->name, mode, file, length);
    return error == ERROR_FILE_NOT_FOUND ? kStartAnew : error;
  });
}

DWORD OpenOrCreate(const PathName& path, const OpenMode& mode, host::Descriptor* file, FolderHandle* createdIn) {
  return UntilNotOvertaken([&] {
    const DWORD error = OpenExisting(path, mode, file);
    if (error != ERROR_FILE_NOT_FOUND) return error;
    const DWORD createError = Create(path, mode, file, createdIn);
    return createError == ERROR_FILE_EXISTS ? kStartAnew : createError;
  });
}

}  // namespace files
