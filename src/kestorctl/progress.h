// The progress of a long call, for a user who waits at a terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace kestorctl {

// Shows "WHAT: 120 of 10000" in one line of standard error and keeps it up to date; shows nothing unless that is a
// terminal. The destructor erases the line. Never throws: the call matters more than its display.
class Progress {
 public:
  explicit Progress(const char* what);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Updates the line, at most twice a second and not during the first half second. A total of 0 means that it is not
  // known.
  void Show(std::size_t done, std::size_t total) noexcept;

 private:
  using Clock = std::chrono::steady_clock;

  const char* const what_;
  const bool isTerminal_;
  Clock::time_point next_;
  bool shown_ = false;
};

}  // namespace kestorctl
