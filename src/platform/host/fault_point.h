// Lets a test see system calls and make them fail.
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
  const char* newPath = "";  // the new name of a rename or link
  std::size_t bytes = 0;     // how many to read or write
};

// What becomes of a system call.
struct Fate {
  int error = 0;                                               // not 0: the call is not made and fails with it
  std::size_t most = std::numeric_limits<std::size_t>::max();  // the most bytes that the call may read or write
};

// Called before every system call of this folder, also before a repeated one. The default definition is alone in its
// source file, and this is a static library: a program that defines the function itself is linked without the default.
Fate FateOf(const SystemCall& call);

}  // namespace host
