#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace kestorctl {

namespace {

constexpr std::chrono::milliseconds kPause(500);

}  // namespace

Progress::Progress(const char* what)
    : what_(what), isTerminal_(isatty(STDERR_FILENO) != 0), next_(Clock::now() + kPause) {}

Progress::~Progress() {
  if (shown_) std::fputs("\r\x1B[K", stderr);
}

void Progress::Show(std::size_t done, std::size_t total) noexcept {
  if (!isTerminal_ || Clock::now() < next_) return;
  if (total == 0) {
    std::fprintf(stderr, "\r%s: %zu", what_, done);
  } else {
    std::fprintf(stderr, "\r%s: %zu of %zu", what_, done, total);
  }
  next_ = Clock::now() + kPause;
  shown_ = true;
}

}  // namespace kestorctl
