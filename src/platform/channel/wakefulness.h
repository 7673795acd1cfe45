// Waiting for what is likely to be there in a moment.
#pragma once

#include <sched.h>

#include <chrono>

namespace channel {

// Asks `isThere` again and again for about as long as it takes a sleeping process to wake up: between two processes
// that exchange short messages, falling asleep and being woken takes longer than all the rest. It does not give way to
// other processes in between, which would keep the processor for a hundred times as long. Where there is only one
// processor, the other process could not come while this one is awake: false at once.
template <typename Condition>
bool IsThereInAMoment(const Condition& isThere) {
  static const bool isAlone = [] {
    cpu_set_t processors;
    return sched_getaffinity(0, sizeof processors, &processors) == 0 && CPU_COUNT(&processors) == 1;
  }();
  if (isAlone) return false;
  constexpr std::chrono::microseconds kMoment(30);
  const auto end = std::chrono::steady_clock::now() + kMoment;
  do {
    if (isThere()) return true;
  } while (std::chrono::steady_clock::now() < end);
  return false;
}

}  // namespace channel
