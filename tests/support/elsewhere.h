// Checks the expectations of a test in other processes.
#pragma once

#include <unistd.h>

#include <deque>
#include <functional>
#include <gtest/gtest.h>

#include "support/support.h"

namespace support {

// Runs `body` in `count` processes at once, each with its own number. A failure in one fails the test.
inline void AtOnce(unsigned count, const std::function<void(unsigned)>& body) {
  std::deque<Child> processes;
  for (unsigned i = 0; i < count; ++i) {
    processes.emplace_back([&body, i] {
      body(i);
      return testing::Test::HasFailure() ? 1 : 0;
    });
  }
  for (Child& process : processes)
    EXPECT_EQ(process.Wait(), 0);
}

// Runs `body` in a process of `user` and waits for its end. A failure in it fails the test.
inline void Elsewhere(const std::function<void()>& body, uid_t user = geteuid()) {
  AtOnce(1, [&](unsigned) {
    if (user != geteuid()) BecomeUser(user);
    body();
  });
}

}  // namespace support
