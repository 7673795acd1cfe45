// System calls on files, and allocations, that fail where a test wants it. This program has its own allocation.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <utility>

namespace faults {

// What strikes an operation at one place. Places are numbered from 1.
struct Attack {
  std::size_t call = 0;  // the system call that is struck; 0: none
  int error = 0;         // it fails with this errno value
  bool lasts = false;    // and so do all after it
  std::size_t most = 0;  // or it carries so many bytes at most, if it is a reading or writing of a file
  int errorBehind = 0;   // and then the next reading or writing fails with this errno value
  bool kills = false;    // or the process is killed before it
  // The file system cannot rename without replacing. Only the calls that change names are places then.
  bool refusesRenaming = false;
  std::size_t allocation = 0;  // the allocation that fails; 0: none
};

struct Strike {
  bool reached = false;   // the operation came to the place
  bool struck = false;    // and something happened there
  std::string call = {};  // its name
  // The inodes of files that were written, and of folders in which visible names changed, and that were not flushed
  // after that.
  std::set<ino_t> unflushed = {};
  std::set<std::pair<ino_t, std::string>> gained = {};  // folders with names that they got after they were flushed last
  // What a power failure between two calls could have made of it: names of files that took them before their content
  // was flushed, and of first-generation files that went before the name of their document was.
  std::set<std::string> tooEarly = {};
};

// What has happened so far, for what runs within the operation.
const Strike& Book();

// Runs an operation under attack.
Strike Run(const Attack& attack, const std::function<void()>& operation);

// The `place`-th allocation of all other threads from now on fails, counted from 1.
void StrikeOtherThreads(int place);
bool LeaveOtherThreads();  // no longer; true when one has failed

}  // namespace faults
