#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace kestorctl {

Progress::Progress(std::string what, std::size_t total, std::function<std::size_t()> done)
    : what_(std::move(what)), total_(total), done_(std::move(done)) {
  if (isatty(STDERR_FILENO) == 0) return;
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (...) {
    // Nothing is shown.
  }
}

Progress::~Progress() {
  ended_ = true;
  if (thread_.joinable()) thread_.join();
}

void Progress::Run() {
  constexpr int kStepsALine = 10;  // of the pauses below: two lines a second
  constexpr std::chrono::milliseconds kPause(50);
  bool shown = false;
  for (int step = 1; !ended_; ++step) {
    std::this_thread::sleep_for(kPause);
    if (step % kStepsALine != 0 || ended_) continue;
    try {
      std::fprintf(stderr, "\r%s: %zu of %zu", what_.c_str(), std::min(done_(), total_), total_);
      shown = true;
    } catch (...) {
      break;
    }
  }
  if (shown) std::fputs("\r\x1B[K", stderr);
}

}  // namespace kestorctl
