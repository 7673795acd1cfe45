// How far a long call is, for the user who waits at a terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace kestorctl {

// Shows "WHAT: 120 of 10000" in one line of standard error, over and over; nothing unless that is a terminal. The line
// is gone when the object is. Throws nothing: the call matters and the showing does not.
class Progress {
 public:
  explicit Progress(const char* what);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Shows this if it is time: not before the call has taken a moment, and then twice a second. A total of 0 is not
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
