// The place where a test sees system calls and makes them fail.
#pragma once

#include <cstddef>
#include <limits>

namespace host {

// A system call that is about to be made.
struct SystemCall {
  const char* name;
  int descriptor = -1;       // the file, or the folder of `path`
  const char* path = "";     // empty where a call takes none
  int newFolder = -1;        // the folder of `newPath`
  const char* newPath = "";  // what a renaming or a link makes of `path`
  std::size_t bytes = 0;     // how many a reading or writing of a file is to carry
};

// What becomes of a system call.
struct Fate {
  int error = 0;                                               // not 0: it is not made and gives this errno value
  std::size_t most = std::numeric_limits<std::size_t>::max();  // bytes that a reading or writing carries at most
};

// Asked before every system call of this folder, each time that it is made. The system's own definition is alone in its
// source file, and this is a static library: a program that defines the function itself is linked without that one.
Fate FateOf(const SystemCall& call);

}  // namespace host
