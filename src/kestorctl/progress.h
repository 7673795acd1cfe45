// How far a long call is, for the user who waits at a terminal.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>

namespace kestorctl {

// While the object lives, writes "WHAT: 120 of 10000" over and over into one line of standard error, from a moment on
// in which the call has not been quick; nothing unless that is a terminal. `done` counts what is done, on a thread of
// its own. The call matters and the showing does not: when the thread cannot start or `done` throws, the showing ends
// and nothing else does.
class Progress {
 public:
  Progress(std::string what, std::size_t total, std::function<std::size_t()> done);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  void Run();

  const std::string what_;
  const std::size_t total_;
  const std::function<std::size_t()> done_;
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace kestorctl
