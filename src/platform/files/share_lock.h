// Share modes, as locks of the open file on bytes far beyond any content. They hold between all processes, end with the
// last descriptor of the opening however that comes about, and each is checked and taken in one step.
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

// Takes the locks of a share mode; they stay until the descriptor is closed. `writable` says whether the descriptor can
// be written to (whatever the mode): where it can, two openers that exclude each other meet in one call of the kernel,
// where it cannot, they meet in a small protocol of shared locks. One of two such openers gets the file, never both,
// never none.
// 0; 32 when a present opener is in the way; 36 when the file system keeps no locks.
DWORD TakeShareLock(const host::Descriptor& file, bool writable, ShareMode mode);

// Gives the locks of a share mode back before the descriptor is closed.
DWORD ReleaseShareLock(const host::Descriptor& file);

// True when another opening has the locks of a share mode; also when that cannot be found out.
bool IsHeldByOther(const host::Descriptor& file);

// A process that keeps every other opening from the file of a path (without symbolic links) and that this process may
// look at: its number, or "" when none is found.
std::string HolderOf(const std::string& path);

// The right to bring the file's name into being or to do away with it: held while that is under way, by one opening at
// a time. The first waits for another holder, 32 after two seconds, and is for descriptors that can be written to. The
// second is refused at once (32).
DWORD TakeCreationLock(const host::Descriptor& file);
DWORD TryCreationLock(const host::Descriptor& file, bool writable);
DWORD ReleaseCreationLock(const host::Descriptor& file);

}  // namespace files
