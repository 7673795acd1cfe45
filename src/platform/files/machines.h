// What is to be done where other machines may use the same files. Locks keep them apart, but do not make what this
// machine has in memory current, nor write what it has to others.
#pragma once

#include <cerrno>

#include "platform/host/system.h"
#include "platform/kernel/host_error.h"

namespace files {

// What the steps of an opening give when the disk has changed under them and the opening must begin again. (The
// platform's own number for "try again"; it never reaches a caller.)
inline constexpr DWORD kStartAnew = 1237;

// The platform's number for a failed step of an opening. A file that another machine has replaced is looked for again.
inline DWORD OpeningError(int hostError) {
  return hostError == ESTALE ? kStartAnew : platform::OsError(hostError);
}

// True where another machine may have the file open, judged by the status of the file. A device with a major number is
// a disk, which is local or cared for by a cluster file system that keeps machines current by itself.
bool IsBetweenMachines(const host::Descriptor& file, const struct stat& status);

// For a file that has just been locked: forgets what this machine has kept of it, and asks for its status again.
DWORD CatchUpWithMachines(const host::Descriptor& file, struct stat* status);

}  // namespace files
