// What a call shows on a terminal while it runs.
#include "progress.h"

#include <pthread.h>
#include <pty.h>
#include <unistd.h>

#include <atomic>
#include <gtest/gtest.h>
#include <new>

#include "support/support.h"

namespace {

using kestorctl::Progress;

TEST(Progress, WhatFailsInItEndsTheShowingAlone) {
  // In a process of its own, whose standard error becomes a terminal.
  support::Child call([] {
    int terminal = -1;
    int end = -1;
    if (openpty(&terminal, &end, nullptr, nullptr, nullptr) != 0 || dup2(end, STDERR_FILENO) < 0) return 1;
    {
      std::atomic<bool> counts = false;
      const Progress uncounted("counting", 2, [&counts]() -> std::size_t {
        counts = true;
        throw std::bad_alloc();
      });
      if (!support::WaitUntil([&counts] { return counts.load(); })) return 2;
    }
    // No room for the stack of any thread.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 50);
    if (pthread_setattr_default_np(&attributes) != 0) return 3;
    const Progress unstarted("counting", 2, [] { return std::size_t{1}; });
    return 0;
  });
  EXPECT_EQ(call.Wait(), 0);
}

}  // namespace
