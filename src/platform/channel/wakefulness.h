// A short busy wait for what is likely to arrive in a moment.
#pragma once

#include <sched.h>

#include <chrono>

namespace channel {

// Polls `isThere` for about as long as it takes to wake a sleeping process: when two processes exchange short messages,
// falling asleep and being woken takes longer than everything else. Does not yield in between, because another process
// would then keep the processor a hundred times as long. Returns false at once on a single processor, where the other
// process cannot run while this one polls.
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
