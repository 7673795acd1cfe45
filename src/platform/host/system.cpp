#include "platform/host/system.h"

#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/random.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "platform/host/fault_point.h"

namespace host {
namespace {

// Makes a call that transfers up to `system.bytes` bytes and returns -1 with errno on failure. Otherwise its result
// goes into `*result`.
template <typename Result, typename Call>
int Carry(const SystemCall& system, Result* result, const Call& call) {
  for (;;) {
    const Fate fate = FateOf(system);
    const auto value = fate.error == 0 ? call(std::min(system.bytes, fate.most)) : -1;
    if (value >= 0) {
      *result = static_cast<Result>(value);
      return 0;
    }
    const int error = fate.error != 0 ? fate.error : errno;
    if (error != EINTR) return error;
  }
}

template <typename Result, typename Call>
int Repeat(const SystemCall& system, Result* result, const Call& call) {
  return Carry(system, result, [&call](std::size_t) { return call(); });
}

template <typename Call>
int Repeat(const SystemCall& system, const Call& call) {
  int success = 0;
  return Repeat(system, &success, call);
}

// The path of an open folder, for calls that accept only a path.
std::string PathOf(const Descriptor& folder) {
  return "/proc/self/fd/" + std::to_string(folder.Number());
}

int RenameUnlessTaken(const Descriptor& oldFolder, const std::string& oldName, const Descriptor& newFolder,
                      const std::string& newName) {
  return Repeat({"renameat2", oldFolder.Number(), oldName.c_str(), newFolder.Number(), newName.c_str()}, [&] {
    return renameat2(oldFolder.Number(), oldName.c_str(), newFolder.Number(), newName.c_str(), RENAME_NOREPLACE);
  });
}

// True for the errors of a file system that does not support this kind of rename.
bool IsUnknownKind(int renameError) {
  return renameError == EINVAL || renameError == ENOSYS;
}

int StatWith(int folder, const char* path, int flags, unsigned wanted, struct stat* status) {
  struct statx found = {};
  const int error = Repeat({"statx", folder, path}, [&] { return statx(folder, path, flags, wanted, &found); });
  if (error != 0) return error;
  *status = {};
  status->st_dev = makedev(found.stx_dev_major, found.stx_dev_minor);
  status->st_ino = found.stx_ino;
  status->st_mode = found.stx_mode;
  status->st_nlink = found.stx_nlink;
  status->st_uid = found.stx_uid;
  status->st_gid = found.stx_gid;
  status->st_size = static_cast<off_t>(found.stx_size);
  status->st_mtim = {found.stx_mtime.tv_sec, found.stx_mtime.tv_nsec};
  status->st_ctim = {found.stx_ctime.tv_sec, found.stx_ctime.tv_nsec};
  return 0;
}

int StatWithoutTimes(int folder, const char* path, int flags, struct stat* status) {
  constexpr unsigned kWanted = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_UID | STATX_GID | STATX_INO | STATX_SIZE;
  return StatWith(folder, path, flags, kWanted, status);
}

struct FolderEntry {
  std::uint64_t inode;
  std::int64_t offset;
  unsigned short size;
  unsigned char type;
  char name[1];
};

}  // namespace

int Open(int folder, const std::string& path, int flags, Descriptor* opened, mode_t mode) {
  int number = -1;
  const int error = Repeat({"openat", folder, path.c_str()}, &number,
                           [&] { return openat(folder, path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode); });
  if (error == 0) *opened = Descriptor(number);
  return error;
}

int OpenFolder(int folder, const std::string& path, Descriptor* opened) {
  return Open(folder, path, O_RDONLY | O_DIRECTORY, opened);
}

int OpenFolderBelow(const Descriptor& folder, const std::string& path, Descriptor* opened) {
  struct open_how how = {};
  how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  int number = -1;
  const int error = Repeat({"openat2", folder.Number(), path.c_str()}, &number,
                           [&] { return syscall(SYS_openat2, folder.Number(), path.c_str(), &how, sizeof how); });
  if (error == 0) *opened = Descriptor(number);
  return error;
}

int Stat(int folder, const std::string& path, struct stat* status) {
  return StatWithoutTimes(folder, path.c_str(), 0, status);
}

int StatLink(int folder, const std::string& path, struct stat* status) {
  return StatWithoutTimes(folder, path.c_str(), AT_SYMLINK_NOFOLLOW, status);
}

int StatLinkWithTimes(int folder, const std::string& path, struct stat* status) {
  return Repeat({"fstatat", folder, path.c_str()},
                [&] { return fstatat(folder, path.c_str(), status, AT_SYMLINK_NOFOLLOW); });
}

int StatNow(int folder, const std::string& path, struct stat* status) {
  return StatWith(folder, path.c_str(), AT_STATX_FORCE_SYNC, STATX_BASIC_STATS, status);
}

int ReadLink(const std::string& path, std::string* target) {
  target->resize(PATH_MAX);
  std::size_t size = 0;
  const int error = Repeat({"readlink", AT_FDCWD, path.c_str()}, &size,
                           [&] { return readlink(path.c_str(), target->data(), target->size()); });
  target->resize(size);
  return error;
}

int RealPath(const Descriptor& folder, const std::string& name, std::string* path) {
  if (const Fate fate = FateOf({"realpath", folder.Number(), name.c_str()}); fate.error != 0) return fate.error;
  const std::string link = PathOf(folder) + "/" + name;
  const std::unique_ptr<char, decltype(&free)> real(realpath(link.c_str(), nullptr), &free);
  if (real == nullptr) return errno;
  *path = real.get();
  return 0;
}

int Unlink(const Descriptor& folder, const std::string& name) {
  return Repeat({"unlinkat", folder.Number(), name.c_str()},
                [&] { return unlinkat(folder.Number(), name.c_str(), 0); });
}

int Rename(const Descriptor& oldFolder, const std::string& oldName, const Descriptor& newFolder,
           const std::string& newName) {
  return Repeat({"renameat", oldFolder.Number(), oldName.c_str(), newFolder.Number(), newName.c_str()},
                [&] { return renameat(oldFolder.Number(), oldName.c_str(), newFolder.Number(), newName.c_str()); });
}

int RenameToFreeName(const Descriptor& oldFolder, const std::string& oldName, const Descriptor& newFolder,
                     const std::string& newName) {
  const int error = RenameUnlessTaken(oldFolder, oldName, newFolder, newName);
  if (!IsUnknownKind(error)) return error;
  // A link also refuses a name that is taken.
  if (const int linkError = Link(oldFolder, oldName, newFolder, newName); linkError != 0) return linkError;
  // A network file system that repeats the request finds that the name is gone.
  const int unlinkError = Unlink(oldFolder, oldName);
  return unlinkError == ENOENT ? 0 : unlinkError;
}

int Link(const Descriptor& folder, const std::string& name, const Descriptor& newFolder, const std::string& newName) {
  return Repeat({"linkat", folder.Number(), name.c_str(), newFolder.Number(), newName.c_str()},
                [&] { return linkat(folder.Number(), name.c_str(), newFolder.Number(), newName.c_str(), 0); });
}

int MakeFolder(const Descriptor& folder, const std::string& name) {
  return Repeat({"mkdirat", folder.Number(), name.c_str()},
                [&] { return mkdirat(folder.Number(), name.c_str(), 0777); });
}

int ChangeSpelling(const Descriptor& folder, const std::string& oldName, const std::string& newName) {
  const int error = RenameUnlessTaken(folder, oldName, folder, newName);
  return IsUnknownKind(error) ? Rename(folder, oldName, folder, newName) : error;
}

int MayUse(const std::string& path, int rights) {
  return Repeat({"faccessat", AT_FDCWD, path.c_str()},
                [&] { return faccessat(AT_FDCWD, path.c_str(), rights, AT_EACCESS); });
}

int GetMarks(const std::string& path, Marks* marks) {
  struct statx found = {};
  const int error =
      Repeat({"statx", AT_FDCWD, path.c_str()}, [&] { return statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE, &found); });
  if (error != 0) return error;
  marks->isImmutable = (found.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
  marks->isAppendOnly = (found.stx_attributes & STATX_ATTR_APPEND) != 0;
  return 0;
}

bool HasAccessList(const std::string& path) {
  ssize_t size = 0;
  return Repeat({"getxattr", AT_FDCWD, path.c_str()}, &size,
                [&] { return getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0); }) == 0;
}

int DiskOf(const std::string& path, struct statvfs* disk) {
  return Repeat({"statvfs", AT_FDCWD, path.c_str()}, [&] { return statvfs(path.c_str(), disk); });
}

int Stat(const Descriptor& file, struct stat* status) {
  return StatWithoutTimes(file.Number(), "", AT_EMPTY_PATH, status);
}

int StatNow(const Descriptor& file, struct stat* status) {
  return StatWith(file.Number(), "", AT_EMPTY_PATH | AT_STATX_FORCE_SYNC, STATX_BASIC_STATS, status);
}

bool SameFile(const Descriptor& a, const Descriptor& b) {
  struct stat first = {};
  struct stat second = {};
  return Stat(a, &first) == 0 && Stat(b, &second) == 0 && SameFile(first, second);
}

int Length(const Descriptor& file, off_t* length) {
  return Repeat({"lseek", file.Number()}, length, [&] { return lseek(file.Number(), 0, SEEK_END); });
}

int ReadAt(const Descriptor& file, void* buffer, std::size_t count, off_t position, std::size_t* read) {
  return Carry({.name = "pread", .descriptor = file.Number(), .bytes = count}, read,
               [&](std::size_t most) { return pread(file.Number(), buffer, most, position); });
}

int WriteAt(const Descriptor& file, const void* buffer, std::size_t count, off_t position, std::size_t* written) {
  return Carry({.name = "pwrite", .descriptor = file.Number(), .bytes = count}, written,
               [&](std::size_t most) { return pwrite(file.Number(), buffer, most, position); });
}

int Read(int descriptor, void* buffer, std::size_t count, std::size_t* read) {
  return Carry({.name = "read", .descriptor = descriptor, .bytes = count}, read,
               [&](std::size_t most) { return ::read(descriptor, buffer, most); });
}

int Write(int descriptor, const void* buffer, std::size_t count, std::size_t* written) {
  return Carry({.name = "write", .descriptor = descriptor, .bytes = count}, written,
               [&](std::size_t most) { return ::write(descriptor, buffer, most); });
}

int Truncate(const Descriptor& file, off_t length) {
  return Repeat({"ftruncate", file.Number()}, [&] { return ftruncate(file.Number(), length); });
}

int Sync(const Descriptor& fileOrFolder) {
  const int error = Repeat({"fsync", fileOrFolder.Number()}, [&] { return fsync(fileOrFolder.Number()); });
  // A file system that cannot flush a folder fails in this way; nothing more can be done then.
  return error == EINVAL ? 0 : error;
}

void StartWriting(const Descriptor& file) {
  sync_file_range(file.Number(), 0, 0, SYNC_FILE_RANGE_WRITE);
}

int SyncData(const Descriptor& file) {
  return Repeat({"fdatasync", file.Number()}, [&] { return fdatasync(file.Number()); });
}

void ForgetContent(const Descriptor& file) {
  posix_fadvise(file.Number(), 0, 0, POSIX_FADV_DONTNEED);
}

int ChangeMode(const Descriptor& file, mode_t mode) {
  return Repeat({"fchmod", file.Number()}, [&] { return fchmod(file.Number(), mode); });
}

int ChangeTime(const Descriptor& file, const struct timespec& changed) {
  const struct timespec times[] = {{0, UTIME_OMIT}, changed};
  return Repeat({"futimens", file.Number()}, [&] { return futimens(file.Number(), times); });
}

int ChangeOwner(const Descriptor& file, uid_t user, gid_t group) {
  return Repeat({"fchown", file.Number()}, [&] { return fchown(file.Number(), user, group); });
}

int GetAttribute(const Descriptor& file, const char* name, std::string* value) {
  constexpr std::size_t kLongest = std::size_t{64} << 10;
  int error = 0;
  for (const std::size_t room : {std::size_t{256}, kLongest}) {
    value->resize(room);
    std::size_t size = 0;
    error = Repeat({"fgetxattr", file.Number()}, &size,
                   [&] { return fgetxattr(file.Number(), name, value->data(), value->size()); });
    value->resize(size);
    if (error != ERANGE) break;
  }
  return error;
}

int SetAttribute(const Descriptor& file, const char* name, const std::string& value) {
  return Repeat({"fsetxattr", file.Number()},
                [&] { return fsetxattr(file.Number(), name, value.data(), value.size(), 0); });
}

int SetLock(const Descriptor& file, short type, LockRange range) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = range.start;
  lock.l_len = range.length;
  const int error = Repeat({"F_OFD_SETLK", file.Number()}, [&] { return fcntl(file.Number(), F_OFD_SETLK, &lock); });
  return error == EACCES ? EAGAIN : error;
}

int FindForeignLock(const Descriptor& file, LockRange range, off_t* start) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = range.start;
  lock.l_len = range.length;
  const int error = Repeat({"F_OFD_GETLK", file.Number()}, [&] { return fcntl(file.Number(), F_OFD_GETLK, &lock); });
  *start = error == 0 && lock.l_type != F_UNLCK ? lock.l_start : -1;
  return error;
}

int ReadNames(const Descriptor& folder, const std::function<void(const char* name, unsigned char type)>& visit) {
  Descriptor names;  // a separate opening, which starts at the first name
  if (const int error = OpenFolder(folder.Number(), ".", &names); error != 0) return error;

  constexpr std::size_t kBufferSize = 256 * 1024;
  const auto buffer = std::make_unique_for_overwrite<std::uint64_t[]>(kBufferSize / sizeof(std::uint64_t));
  const char* const start = reinterpret_cast<const char*>(buffer.get());
  for (;;) {
    std::size_t size = 0;
    const int error = Repeat({"getdents64", names.Number()}, &size,
                             [&] { return syscall(SYS_getdents64, names.Number(), buffer.get(), kBufferSize); });
    if (error != 0) return error;
    if (size == 0) return 0;
    for (std::size_t at = 0; at < size;) {
      const char* const position = start + at;
      unsigned short entrySize = 0;
      memcpy(&entrySize, position + offsetof(FolderEntry, size), sizeof entrySize);
      const char* const name = position + offsetof(FolderEntry, name);
      const auto type = static_cast<unsigned char>(position[offsetof(FolderEntry, type)]);
      if (strcmp(name, ".") != 0 && strcmp(name, "..") != 0) visit(name, type);
      at += entrySize;
    }
  }
}

bool IsLocal(const Descriptor& fileOrFolder) {
  constexpr std::uint32_t kXfs = 0x58465342;
  constexpr std::uint32_t kZfs = 0x2fc12fc1;
  constexpr std::uint32_t kBcachefs = 0xca451a4e;
  struct statfs status = {};
  const int number = fileOrFolder.Number();
  if (Repeat({"fstatfs", number}, [&] { return fstatfs(number, &status); }) != 0) return false;
  switch (static_cast<std::uint32_t>(status.f_type)) {
    case EXT4_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case RAMFS_MAGIC:
    case OVERLAYFS_SUPER_MAGIC:
    case MSDOS_SUPER_MAGIC:
    case kXfs:
    case kZfs:
    case kBcachefs:
      return true;
    default:
      return false;
  }
}

int MayMakeFiles(const Descriptor& folder) {
  return Repeat({"faccessat", folder.Number(), "."},
                [&] { return faccessat(folder.Number(), ".", W_OK | X_OK, AT_EACCESS); });
}

int FindRoom(const Descriptor& fileOrFolder) {
  struct statvfs status = {};
  const int number = fileOrFolder.Number();
  const int error = Repeat({"fstatvfs", number}, [&] { return fstatvfs(number, &status); });
  return error == 0 && status.f_blocks > 0 && status.f_bavail == 0 ? ENOSPC : error;
}

int OpenWatcher(Descriptor* watcher) {
  int number = -1;
  const int error = Repeat({"inotify_init1"}, &number, [] { return inotify_init1(IN_NONBLOCK | IN_CLOEXEC); });
  if (error == 0) *watcher = Descriptor(number);
  return error;
}

int AddWatch(const Descriptor& watcher, const Descriptor& folder, std::uint32_t events, int* watch) {
  return Repeat({"inotify_add_watch", watcher.Number()}, watch,
                [&] { return inotify_add_watch(watcher.Number(), PathOf(folder).c_str(), events); });
}

void RemoveWatch(const Descriptor& watcher, int watch) {
  Repeat({"inotify_rm_watch", watcher.Number()}, [&] { return inotify_rm_watch(watcher.Number(), watch); });
}

int ReadEvents(const Descriptor& watcher, void* buffer, std::size_t size, std::size_t* read) {
  return Repeat({"read", watcher.Number()}, read, [&] { return ::read(watcher.Number(), buffer, size); });
}

// Mixes in the clock each time, so that a forked process does not repeat its parent's numbers. Asking the system each
// time would cost as much as the lock for which the number is drawn.
std::uint64_t Random() {
  thread_local std::uint64_t state = [] {
    std::uint64_t seed = 0;
    Repeat({"getrandom"}, [&] { return getrandom(&seed, sizeof seed, 0); });
    return seed;
  }();
  state += static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) | 1;
  std::uint64_t mixed = state;
  mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBU;
  return mixed ^ mixed >> 31;
}

void OccupyStandardDescriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(standard, F_GETFD) < 0) open("/dev/null", standard == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

void UnmaskOwner() {
  umask(umask(0) & ~static_cast<mode_t>(S_IRWXU));
}

void PauseAtRandom() {
  std::this_thread::sleep_for(std::chrono::microseconds(20 + Random() % 300));
}

}  // namespace host
