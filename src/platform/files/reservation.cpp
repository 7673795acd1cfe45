#include "reservation.h"

#include <cerrno>
#include <ctime>
#include <utility>

#include "path_name.h"
#include "platform/host/fnv1a.h"
#include "platform/host/whole_file.h"
#include "platform/kernel/host_error.h"
#include "reading.h"

namespace files {
namespace {

constexpr std::string_view kHexadecimalDigits = "0123456789abcdef";
constexpr mode_t kModeOfNewFiles = 0666;
constexpr int kNeitherLinkNorWait = O_NOFOLLOW | O_NONBLOCK;

}  // namespace

DWORD Reservation::Take(const host::Descriptor& folder, std::string_view name, const host::Descriptor& held,
                        ShareMode mode) {
  std::string folded;
  if (!FoldName(name, &folded)) return ERROR_INVALID_NAME;
  std::string hiddenName = ReservationName(folded);
  folder_ = &folder;
  return UntilNotOvertaken([&] {
    file_.Close();
    bool isNew = false;
    const DWORD error = TryTake(hiddenName, held, mode, &isNew);
    if (error == ERROR_SUCCESS) {
      NoteOwnChange();
      hiddenName_ = std::move(hiddenName);  // nothing may fail now that the file exists
    } else {
      file_.Close();
      if (isNew && error != kStartAnew) RemoveIfAbandoned(folder, hiddenName);
    }
    return error;
  });
}

DWORD Reservation::TryTake(const std::string& hiddenName, const host::Descriptor& held, ShareMode mode, bool* isNew) {
  if (const DWORD error = OpenHidden(hiddenName, held, isNew); error != ERROR_SUCCESS) return error;
  DWORD lockError = TakeCreationLock(file_);
  if (lockError == ERROR_SUCCESS) lockError = TakeShareLock(file_, true, mode);
  // Where the file system keeps no locks, no other process has this file locked.
  if (lockError == ERROR_SHARING_BUFFER_EXCEEDED && *isNew) host::Unlink(*folder_, hiddenName);
  if (lockError != ERROR_SUCCESS) return lockError;
  struct stat own = {};
  struct stat named = {};
  const bool isNamed = host::Stat(file_, &own) == 0 && host::StatLink(folder_->Number(), hiddenName, &named) == 0 &&
                       host::SameFile(named, own);
  if (!isNamed) return kStartAnew;
  own = named;
  if (const DWORD error = CatchUpWithMachines(file_, &own); error != ERROR_SUCCESS) return error;
  if (!S_ISREG(own.st_mode)) return ERROR_ACCESS_DENIED;
  if (own.st_nlink == 0) return kStartAnew;
  if (own.st_size == 0 && own.st_nlink == 1) return ERROR_SUCCESS;
  // A file that a killed process left may have another owner, another mode and a second name.
  const int error = host::Unlink(*folder_, hiddenName);
  return error == 0 || error == ENOENT ? kStartAnew : platform::OsError(error);
}

DWORD Reservation::OpenHidden(const std::string& hiddenName, const host::Descriptor& held, bool* isNew) {
  constexpr int kFlags = O_RDWR | kNeitherLinkNorWait;
  int error = host::Open(folder_->Number(), hiddenName, kFlags | O_CREAT | O_EXCL, &file_, kModeOfNewFiles);
  *isNew = error == 0;
  // At once: until the file has these rights, other users of the folder can neither lock nor inspect it.
  if (*isNew) error = host::TakeFolderRights(file_, *folder_);
  if (error == ENOENT) return ERROR_PATH_NOT_FOUND;  // the folder itself is gone
  if (error != EEXIST) return platform::OsError(error);
  if (!held || !LeadsTo(*folder_, hiddenName, held)) {
    error = host::Open(folder_->Number(), hiddenName, kFlags, &file_);
    if (error == ENOENT) return kStartAnew;
    if (error != EACCES) return OpeningError(error);
  }
  // The hidden file belongs to another user, whose process is at work or was killed, or it is the held file, whose
  // writer was killed.
  const DWORD removeError = RemoveIfAbandoned(*folder_, hiddenName, held);
  return removeError == ERROR_SUCCESS ? kStartAnew : removeError;
}

// Another process may have taken over the hidden name, because this one was silent for so long that it seemed dead.
DWORD Reservation::CheckHiddenName() const {
  return LeadsTo(*folder_, hiddenName_, file_) ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_SHARING_VIOLATION};
}

DWORD Reservation::TakeFreeName(const std::string& name) {
  if (const DWORD error = CheckHiddenName(); error != ERROR_SUCCESS) return error;
  const int error = host::RenameToFreeName(*folder_, hiddenName_, *folder_, name);
  // If only the removal of the hidden name failed, the file has its name. The next opener that reserves the name
  // removes the hidden one.
  if (error != 0 && !LeadsTo(*folder_, name, file_)) return platform::OsError(error);
  hiddenName_.clear();
  return ERROR_SUCCESS;
}

DWORD Reservation::ReplaceName(const std::string& name) {
  if (const DWORD error = CheckHiddenName(); error != ERROR_SUCCESS) return error;
  const int error = host::Rename(*folder_, hiddenName_, *folder_, name);
  if (error == 0) hiddenName_.clear();
  return platform::OsError(error);
}

// Removes the hidden name while the file is still locked, so that the name certainly belongs to this file.
void Reservation::Cancel() noexcept {
  if (!hiddenName_.empty()) host::Unlink(*folder_, hiddenName_);
  hiddenName_.clear();
  file_.Close();
}

// Every opener that reserves a name takes the creation lock first: while it is held here, no other process gets the
// file. A writer keeps its share lock for as long as its file has the hidden name: a file that the caller has locked
// exclusively has no writer.
DWORD RemoveIfAbandoned(const host::Descriptor& folder, const std::string& hiddenName, const host::Descriptor& held) {
  host::Descriptor file;
  int error = host::Open(folder.Number(), hiddenName, O_RDWR | kNeitherLinkNorWait, &file);
  const bool writable = error != EACCES;
  if (!writable) error = host::Open(folder.Number(), hiddenName, O_RDONLY | kNeitherLinkNorWait, &file);
  if (error == ENOENT) return kStartAnew;
  // Its owner was stopped before it could give the file the rights of the folder.
  if (error == EACCES && IsOld(folder, hiddenName)) return platform::OsError(host::Unlink(folder, hiddenName));
  if (error != 0) return platform::OsError(error);
  struct stat status = {};
  if (error = host::Stat(file, &status); error != 0) return platform::OsError(error);
  if (!S_ISREG(status.st_mode)) return ERROR_ACCESS_DENIED;
  if (const DWORD lockError = TryCreationLock(file, writable); lockError != ERROR_SUCCESS) {
    return lockError == ERROR_SHARING_VIOLATION ? kStartAnew : lockError;
  }
  if (!(held && host::SameFile(file, held)) && IsHeldByOther(file)) return ERROR_SHARING_VIOLATION;
  if (error = host::Stat(file, &status); error != 0) return OpeningError(error);
  if (const DWORD stale = CatchUpWithMachines(file, &status); stale != ERROR_SUCCESS) return stale;
  if (status.st_nlink == 0 || !LeadsTo(folder, hiddenName, file)) return kStartAnew;
  error = host::Unlink(folder, hiddenName);
  return error == ENOENT ? kStartAnew : platform::OsError(error);
}

bool IsOld(const host::Descriptor& folder, const std::string& hiddenName) {
  constexpr time_t kSafeAge = 60;
  struct stat status = {};
  return host::StatLinkWithTimes(folder.Number(), hiddenName, &status) == 0 && S_ISREG(status.st_mode) &&
         time(nullptr) - status.st_mtim.tv_sec >= kSafeAge;
}

std::string ReservationName(std::string_view folded) {
  return std::string(kHiddenPrefix) + platform::Fnv1a(folded);
}

bool IsReservationName(std::string_view hiddenName) {
  return hiddenName.size() == kHiddenPrefix.size() + platform::kFnv1aDigits &&
         hiddenName.substr(0, kHiddenPrefix.size()) == kHiddenPrefix &&
         hiddenName.find_first_not_of(kHexadecimalDigits, kHiddenPrefix.size()) == std::string_view::npos;
}

bool LeadsTo(const host::Descriptor& folder, const std::string& name, const host::Descriptor& file) {
  struct stat own = {};
  struct stat named = {};
  return host::Stat(file, &own) == 0 && host::StatLink(folder.Number(), name, &named) == 0 &&
         host::SameFile(own, named);
}

}  // namespace files
