#include "reservation.h"

#include <array>
#include <cstdio>

#include "host_error.h"
#include "path_name.h"

namespace files {
namespace {

constexpr std::string_view kHexadecimalDigits = "0123456789abcdef";
constexpr std::size_t kDigits = 16;
constexpr mode_t kModeOfNewFiles = 0666;

std::string ReservationName(std::string_view folded) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char c : folded)
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  std::array<char, kDigits + 1> digits = {};
  snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(hash));
  return std::string(kHiddenPrefix) + digits.data();
}

}  // namespace

DWORD Reservation::Take(const host::Descriptor& folder, std::string_view name, ShareMode mode) {
  std::string folded;
  if (!FoldName(name, &folded)) return ERROR_INVALID_NAME;
  const std::string hiddenName = ReservationName(folded);
  folder_ = &folder;
  return UntilNotOvertaken([&] {
    file_.Close();
    const DWORD error = TryTake(hiddenName, mode);
    if (error == ERROR_SUCCESS) {
      hiddenName_ = hiddenName;
    } else {
      file_.Close();
    }
    return error;
  });
}

DWORD Reservation::TryTake(const std::string& hiddenName, ShareMode mode) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
  if (const int error = host::Open(folder_->Number(), hiddenName, kFlags, &file_, kModeOfNewFiles); error != 0) {
    return OsError(error);
  }
  if (const DWORD error = TakeCreationLock(file_); error != ERROR_SUCCESS) return error;
  if (const DWORD error = TakeShareLock(file_, true, mode); error != ERROR_SUCCESS) return error;
  if (!LeadsTo(*folder_, hiddenName, file_)) return kStartAnew;
  struct stat own = {};
  if (const int error = host::Stat(file_, &own); error != 0) return OsError(error);
  if (!S_ISREG(own.st_mode)) return ERROR_ACCESS_DENIED;
  if (own.st_size == 0 && own.st_nlink == 1) return ERROR_SUCCESS;
  // What a killed process has left behind may have another owner, another mode and another name.
  if (const int error = host::Unlink(*folder_, hiddenName); error != 0) return OsError(error);
  return kStartAnew;
}

DWORD Reservation::TakeFreeName(const std::string& name) {
  const int error = host::RenameToFreeName(*folder_, hiddenName_, *folder_, name);
  if (error == 0) hiddenName_.clear();
  return OsError(error);
}

DWORD Reservation::ReplaceName(const std::string& name) {
  const int error = host::Rename(*folder_, hiddenName_, *folder_, name);
  if (error == 0) hiddenName_.clear();
  return OsError(error);
}

// The hidden name goes while the file is still locked, so that it is this file's for certain.
void Reservation::Cancel() noexcept {
  if (!hiddenName_.empty()) host::Unlink(*folder_, hiddenName_);
  hiddenName_.clear();
  file_.Close();
}

bool IsReservationName(std::string_view hiddenName) {
  return hiddenName.size() == kHiddenPrefix.size() + kDigits &&
         hiddenName.substr(0, kHiddenPrefix.size()) == kHiddenPrefix &&
         hiddenName.find_first_not_of(kHexadecimalDigits, kHiddenPrefix.size()) == std::string_view::npos;
}

bool LeadsTo(const host::Descriptor& folder, const std::string& name, const host::Descriptor& file) {
  struct stat own = {};
  struct stat named = {};
  return host::Stat(file, &own) == 0 && host::StatLink(folder.Number(), name, &named) == 0 &&
         own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

}  // namespace files
