// Extra steps where other machines may use the same files. Locks exclude other machines, but neither refresh what this
// machine has cached nor write out what it has changed.
#pragma once

#include <cerrno>

#include "platform/host/system.h"
#include "platform/kernel/host_error.h"

namespace files {

// Returned by the steps of an opening when the disk has changed meanwhile and the opening must start again. (The
// platform's own number for "try again"; it never reaches a caller.)
inline constexpr DWORD kStartAnew = 1237;

// Returns the platform's number for a failed step of an opening. ESTALE means that another machine has replaced the
// file, and the opening starts again.
inline DWORD OpeningError(int hostError) {
  return hostError == ESTALE ? kStartAnew : platform::OsError(hostError);
}

// True if another machine may have the file, whose status is `status`, open. A device with a major number is a disk,
// which is local or belongs to a cluster file system that keeps machines current by itself.
bool IsBetweenMachines(const host::Descriptor& file, const struct stat& status);

// For a file that has just been locked: drops what this machine has cached of its content, and gets its status again.
// Does nothing for a file that no other machine may have open.
DWORD CatchUpWithMachines(const host::Descriptor& file, struct stat* status);

}  // namespace files
