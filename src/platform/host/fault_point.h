// The place where a test makes system calls fail.
#pragma once

#include <cstddef>
#include <limits>

namespace host {

// What becomes of a system call.
struct Fate {
  int error = 0;                                               // not 0: it is not made and gives this errno value
  std::size_t most = std::numeric_limits<std::size_t>::max();  // bytes that a reading or writing carries at most
};

// Asked before every system call of this folder, each time that it is made; `bytes`: how many a reading or writing of a
// file is to carry. The system's own definition is alone in its source file, and this is a static library: a program
// that defines the function itself is linked without that one.
Fate FateOf(const char* call, std::size_t bytes = 0);

}  // namespace host
