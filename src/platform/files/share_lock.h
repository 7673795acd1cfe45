// Share modes, as locks of the open file on bytes far beyond any content. They hold between all processes, end when the
// opening's last descriptor is closed for whatever reason, and are each checked and taken in one step.
#pragma once

#include <string>

#include "platform/host/system.h"
#include "platform/kernel/kernel.h"

namespace files {

enum class Denial { none, write, both };

// What an opener does with the file, and what it denies the others meanwhile.
struct ShareMode {
  bool reads = false;
  bool writes = false;
  Denial denies = Denial::none;
};

// Takes the locks of a share mode, which stay until the descriptor is closed. `writable` says whether the descriptor
// can be written to, whatever the mode. If it can, one kernel call decides between two openers that exclude each other;
// otherwise a small protocol of shared locks does. Exactly one of two such openers gets the file.
// Returns 0; 32 when a current opener is in the way; 36 when the file system keeps no locks.
DWORD TakeShareLock(const host::Descriptor& file, bool writable, ShareMode mode);

// Releases the locks of a share mode before the descriptor is closed.
DWORD ReleaseShareLock(const host::Descriptor& file);

// True when another opener has the locks of a share mode, or when that cannot be found out.
bool IsHeldByOther(const host::Descriptor& file);

// Returns the number of a process that keeps every other opener away from the file of a path (without symbolic links),
// or "" when none is found. Finds only processes that this process may inspect.
std::string HolderOf(const std::string& path);

// The creation lock is the right to create or remove the file's name. One opener at a time holds it, while it does so.
// TakeCreationLock waits while another opener holds it, 32 after two seconds, and needs a writable descriptor.
// TryCreationLock fails at once (32).
DWORD TakeCreationLock(const host::Descriptor& file);
DWORD TryCreationLock(const host::Descriptor& file, bool writable);
DWORD ReleaseCreationLock(const host::Descriptor& file);

}  // namespace files
