// Expectations of a test that hold in another process.
#pragma once

#include <unistd.h>

#include <functional>
#include <gtest/gtest.h>

#include "support/support.h"

namespace support {

// Runs `body` in a process of its own, which belongs to `user` and waits for its end. What fails in it fails the test.
inline void Elsewhere(const std::function<void()>& body, uid_t user = geteuid()) {
  Child process([&] {
    if (user != geteuid()) BecomeUser(user);
    body();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(process.Wait(), 0);
}

}  // namespace support
