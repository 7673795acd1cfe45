// Makes system calls on files, and allocations, fail where a test asks for it. Programs that use it have their own
// allocator.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <utility>

namespace faults {

// A disturbance of an operation at one place. Places are numbered from 1.
struct Attack {
  std::size_t call = 0;  // the system call to disturb; 0: none
  int error = 0;         // it fails with this errno value
  bool lasts = false;    // and so do all later calls
  std::size_t most = 0;  // or it transfers at most this many bytes, if it reads or writes a file
  int errorBehind = 0;   // and then the next read or write fails with this errno value
  bool kills = false;    // or the process is killed before it
  // The file system cannot rename without replacing. Only calls that change names are then places.
  bool refusesRenaming = false;
  std::size_t allocation = 0;  // the allocation that fails; 0: none
};

struct Strike {
  bool reached = false;   // the operation reached the place
  bool struck = false;    // and was disturbed there
  std::string call = {};  // name of the disturbed call
  // The inodes of files that were written, and of folders whose visible names changed, without a flush since.
  std::set<ino_t> unflushed = {};
  std::set<std::pair<ino_t, std::string>> gained = {};  // folders with names that were added since their last flush
  // What a power failure could have damaged: names given to files before their content was flushed, and names of
  // first-generation files that were deleted before the name of their document was flushed.
  std::set<std::string> tooEarly = {};
};

// Returns the state so far, for code that runs within the operation.
const Strike& Book();

// Runs an operation under attack.
Strike Run(const Attack& attack, const std::function<void()>& operation);

// Makes the `place`-th allocation from now on by any other thread fail, counted from 1.
void StrikeOtherThreads(int place);
bool LeaveOtherThreads();  // stops that; returns true if an allocation has failed

}  // namespace faults
