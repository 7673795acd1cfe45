// All system calls on files and folders. Each function returns 0 or an errno value and repeats the call when a signal
// interrupts it. A folder is an open descriptor or AT_FDCWD.
//
// Stat and the like give no times unless the name says so: asking for a file's times makes the system give the next
// write a new time, which a flush must then store as well.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/host/descriptor.h"

namespace host {

using platform::Descriptor;

// ---- Files by name -------------------------------------------------------------------------------------------------

int Open(int folder, const std::string& path, int flags, Descriptor* opened, mode_t mode = 0);
int OpenFolder(int folder, const std::string& path, Descriptor* opened);  // for reading its names and for Sync

// Opens a folder any number of levels below another one, in one call. Fails if a component is a symbolic link, and with
// ENOSYS on a system that lacks the call.
int OpenFolderBelow(const Descriptor& folder, const std::string& path, Descriptor* opened);

int Stat(int folder, const std::string& path, struct stat* status);      // of what a symbolic link leads to
int StatLink(int folder, const std::string& path, struct stat* status);  // of the symbolic link itself
int StatLinkWithTimes(int folder, const std::string& path, struct stat* status);
int StatNow(int folder, const std::string& path, struct stat* status);  // as below, of what a symbolic link leads to
int ReadLink(const std::string& path, std::string* target);
int RealPath(const Descriptor& folder, const std::string& name, std::string* path);
int Unlink(const Descriptor& folder, const std::string& name);
int Rename(const Descriptor& oldFolder, const std::string& oldName, const Descriptor& newFolder,
           const std::string& newName);
// The same, but EEXIST when the new name is taken. On a file system without this kind of rename the file has both names
// for a moment; they stay if the process is killed then, or if the removal of the old name fails, which is reported.
int RenameToFreeName(const Descriptor& oldFolder, const std::string& oldName, const Descriptor& newFolder,
                     const std::string& newName);
// Gives a file a second name; EEXIST when that is taken.
int Link(const Descriptor& folder, const std::string& name, const Descriptor& newFolder, const std::string& newName);
// Changes the letter case of a name. The new spelling must be reserved. The file never has both names at once.
int ChangeSpelling(const Descriptor& folder, const std::string& oldName, const std::string& newName);

// Checks whether the kernel lets this process, by its effective user, use what a path leads to: R_OK, W_OK and X_OK.
// Returns 0, or the errno value with which it would refuse.
int MayUse(const std::string& path, int rights);

// Marks that keep even the superuser from changing a file or folder, on file systems that have them.
struct Marks {
  bool isImmutable = false;
  bool isAppendOnly = false;
};
int GetMarks(const std::string& path, Marks* marks);

// True when a file or folder has an access control list besides its mode.
bool HasAccessList(const std::string& path);

int DiskOf(const std::string& path, struct statvfs* disk);  // the file system of a path

inline bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// True when the times of the last changes are equal. Both statuses must have times.
inline bool SameTimes(const struct stat& a, const struct stat& b) {
  return a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// The read-only attribute: no user has the permission to write. It binds the superuser as well.
inline bool IsReadOnly(const struct stat& status) {
  return (status.st_mode & 0222) == 0;
}

// ---- Open files ----------------------------------------------------------------------------------------------------

int Stat(const Descriptor& file, struct stat* status);
int StatNow(const Descriptor& file, struct stat* status);  // with times, and up to date on a network file system
bool SameFile(const Descriptor& a, const Descriptor& b);   // also false when that cannot be found out
int Length(const Descriptor& file, off_t* length);         // moves the descriptor's position
int ReadAt(const Descriptor& file, void* buffer, std::size_t count, off_t position, std::size_t* read);
int WriteAt(const Descriptor& file, const void* buffer, std::size_t count, off_t position, std::size_t* written);
int Read(int descriptor, void* buffer, std::size_t count, std::size_t* read);  // at the descriptor's position
int Write(int descriptor, const void* buffer, std::size_t count, std::size_t* written);
int Truncate(const Descriptor& file, off_t length);
int Sync(const Descriptor& fileOrFolder);
void StartWriting(const Descriptor& file);  // starts writing cached content to the disk, without waiting for it
int SyncData(const Descriptor& file);
void ForgetContent(const Descriptor& file);  // drops the content that this machine has cached
int ChangeMode(const Descriptor& file, mode_t mode);
int ChangeTime(const Descriptor& file, const struct timespec& changed);  // of the last change of the content
int ChangeOwner(const Descriptor& file, uid_t user, gid_t group);
int GetAttribute(const Descriptor& file, const char* name, std::string* value);  // ENODATA when it has none
int SetAttribute(const Descriptor& file, const char* name, const std::string& value);

// ---- Locks of the open file ----------------------------------------------------------------------------------------

struct LockRange {
  off_t start;
  off_t length;
};

int SetLock(const Descriptor& file, short type, LockRange range);  // F_RDLCK, F_WRLCK, F_UNLCK; EAGAIN when refused

// Looks for a lock of any type that another open file holds in the range; `*start` is where one begins, -1 if none.
int FindForeignLock(const Descriptor& file, LockRange range, off_t* start);

// ---- Folders -------------------------------------------------------------------------------------------------------

int MakeFolder(const Descriptor& folder, const std::string& name);  // for everybody, as far as the umask allows

// Calls `visit` for each name in the folder but "." and "..", with its type (DT_REG, …, DT_UNKNOWN).
int ReadNames(const Descriptor& folder, const std::function<void(const char* name, unsigned char type)>& visit);

// True for a file system that only this machine changes, so that the kernel knows of every change.
bool IsLocal(const Descriptor& fileOrFolder);

int MayMakeFiles(const Descriptor& folder);    // 0 if this process may now; otherwise EACCES, EROFS, …
int FindRoom(const Descriptor& fileOrFolder);  // ENOSPC when the file system has no block left

int OpenWatcher(Descriptor* watcher);
int AddWatch(const Descriptor& watcher, const Descriptor& folder, std::uint32_t events, int* watch);
void RemoveWatch(const Descriptor& watcher, int watch);
int ReadEvents(const Descriptor& watcher, void* buffer, std::size_t size, std::size_t* read);  // EAGAIN when none waits

// ---- Others --------------------------------------------------------------------------------------------------------

std::uint64_t Random();
void PauseAtRandom();  // a fraction of a millisecond, while waiting for another process

// A standard descriptor that the parent process closed would be given to the next file or socket, which would then
// receive what is meant for the parent. Opens a replacement for each that fails when it is used as intended.
void OccupyStandardDescriptors();

// Removes the owner's bits from this process's umask, because the owner needs these permissions on new files.
void UnmaskOwner();

}  // namespace host
