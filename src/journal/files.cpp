#include "files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "platform/home/home.h"
#include "platform/host/whole_file.h"

namespace journal {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLockFile = "journal.lock";
constexpr host::LockRange kRotating = {0, 1};  // in that file

constexpr std::string_view kBefore = "journal.";
constexpr std::string_view kAfter = ".jsonl";
constexpr std::string_view kUnfinished = ".journal-";  // followed by the number of the process that creates a file
constexpr int kNoRegularFile = EINVAL;

// Returns 0 if the name is not that of an older file.
unsigned NumberOf(std::string_view name) {
  if (!name.starts_with(kBefore)) return 0;
  unsigned number = 0;
  const char* const digits = name.data() + kBefore.size();
  const bool isNumber = std::from_chars(digits, name.data() + name.size(), number).ec == std::errc();
  return isNumber && number != 0 && name == FileName(number) ? number : 0;
}

// Sets the rights before the file gets its name, because another user's process may open it at once.
int MakeFile(const Descriptor& folder, const std::string& name) {
  const std::string hidden = std::string(kUnfinished) + std::to_string(getpid());
  struct stat place = {};
  int error = host::Stat(folder, &place);
  if (error != 0) return error;
  host::Unlink(folder, hidden);
  Descriptor file;
  error = host::Open(folder.Number(), hidden, O_WRONLY | O_CREAT | O_EXCL, &file, 0600);
  if (error != 0) return error;
  host::TakeOverOwners(file, place);
  error = host::TakeFolderRights(file, folder);
  if (error == 0) error = host::RenameToFreeName(folder, hidden, folder, name);
  if (error != 0) host::Unlink(folder, hidden);
  return error == EEXIST ? 0 : error;
}

// Removes what killed processes have left. A process that is just creating a file finds it gone and creates it again.
void RemoveUnfinished(const Descriptor& folder) {
  std::vector<std::string> names;
  host::ReadNames(folder, [&names](const char* name, unsigned char) {
    if (std::string_view(name).starts_with(kUnfinished)) names.emplace_back(name);
  });
  for (const std::string& name : names)
    host::Unlink(folder, name);
}

// Keeps a file that a process may still append to; a later rotation deletes it.
void Delete(const Descriptor& folder, unsigned number) {
  Descriptor file;
  struct stat status = {};
  const std::string name = FileName(number);
  if (OpenFile(folder.Number(), name, Access::appending, &file, &status) != 0) return;
  if (host::SetLock(file, F_WRLCK, kAppending) == 0) host::Unlink(folder, name);
}

// Moves the files below the first free number up by one. There is a gap in the numbers if a process was killed during
// this.
int MoveUp(const Descriptor& folder) {
  std::vector<unsigned> older;
  if (const int error = FindOlder(folder, &older); error != 0) return error;
  unsigned free = 1;
  for (const unsigned number : older)
    free += number == free ? 1 : 0;
  for (unsigned number = free; number > 0; --number) {
    const int error = host::RenameToFreeName(folder, FileName(number - 1), folder, FileName(number));
    if (error != 0) return error;
  }
  return 0;
}

}  // namespace

std::string FileName(unsigned number) {
  return number == 0 ? "journal.jsonl" : std::string(kBefore) + std::to_string(number) + std::string(kAfter);
}

int FindOlder(const Descriptor& folder, std::vector<unsigned>* numbers) {
  numbers->clear();
  const int error = host::ReadNames(folder, [numbers](const char* name, unsigned char) {
    if (const unsigned number = NumberOf(name); number != 0) numbers->push_back(number);
  });
  std::sort(numbers->begin(), numbers->end());
  return error;
}

int OpenFile(int folder, const std::string& name, Access access, Descriptor* file, struct stat* status) {
  const int flags = (access == Access::appending ? O_RDWR | O_APPEND : O_RDONLY) | O_NOFOLLOW | O_NONBLOCK;
  Descriptor opened;
  int error = host::Open(folder, name, flags, &opened);
  if (error == 0) error = host::Stat(opened, status);
  if (error == 0 && !S_ISREG(status->st_mode)) error = S_ISDIR(status->st_mode) ? EISDIR : kNoRegularFile;
  if (error == 0) *file = std::move(opened);
  return error;
}

int OpenOrMakeFile(const fs::path& home, const std::string& name, Descriptor* file, struct stat* status) {
  const platform::ActingAsOwner owner(home);
  int error = OpenFile(AT_FDCWD, home / name, Access::appending, file, status);
  if (error != ENOENT) return error;
  Descriptor folder;
  error = host::OpenFolder(AT_FDCWD, home, &folder);
  if (error == 0) error = MakeFile(folder, name);
  return error != 0 ? error : OpenFile(folder.Number(), name, Access::appending, file, status);
}

bool Rotate(const fs::path& home, const struct stat& full, unsigned kept) {
  const platform::ActingAsOwner owner(home);
  Descriptor lock;
  struct stat status = {};
  if (OpenOrMakeFile(home, kLockFile, &lock, &status) != 0 || host::SetLock(lock, F_WRLCK, kRotating) != 0)
    return false;
  Descriptor folder;
  if (host::OpenFolder(AT_FDCWD, home, &folder) != 0) return false;
  if (host::StatLink(folder.Number(), FileName(0), &status) != 0 || !host::SameFile(status, full)) return true;
  RemoveUnfinished(folder);
  if (MoveUp(folder) != 0) return false;
  std::vector<unsigned> older;
  if (FindOlder(folder, &older) != 0) return true;
  for (auto number = older.rbegin(); number != older.rend() && *number > kept; ++number)
    Delete(folder, *number);
  return true;
}

std::string Reason(int error) {
  switch (error) {
    case 0:
      return "";
    case ELOOP:
      return "it is a symbolic link";
    case EISDIR:
      return "it is a folder";
    case kNoRegularFile:
      return "it is no regular file";
    case EAGAIN:
      return "another program has locked it";
    default:
      return std::strerror(error);
  }
}

}  // namespace journal
