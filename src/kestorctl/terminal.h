// The terminal of standard output.
#pragma once

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>

namespace kestorctl {

// Returns the width in characters; 0 when standard output is no terminal.
inline std::size_t TerminalWidth() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace kestorctl
