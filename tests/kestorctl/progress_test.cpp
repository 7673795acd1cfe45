// What a call shows on a terminal while it runs. Counting never fails in the finished program.
#include "progress.h"

#include <pty.h>
#include <unistd.h>

#include <atomic>
#include <gtest/gtest.h>
#include <new>
#include <string>

#include "support/support.h"

namespace {

TEST(Progress, ShowsHowFarTheCallIsUntilThatCannotBeTold) {
  int terminal = -1;
  int end = -1;
  ASSERT_EQ(openpty(&terminal, &end, nullptr, nullptr, nullptr), 0);
  support::Child call([end] {
    if (dup2(end, STDERR_FILENO) < 0) return 1;
    std::atomic<int> asked = 0;
    const kestorctl::Progress progress("counting", 2, [&asked]() -> std::size_t {
      if (++asked == 1) return 1;
      throw std::bad_alloc();
    });
    return support::WaitUntil([&asked] { return asked == 2; }) ? 0 : 2;
  });
  ASSERT_EQ(call.Wait(), 0);
  close(end);
  std::string shown(100, '\0');
  shown.resize(static_cast<std::size_t>(read(terminal, shown.data(), shown.size())));
  EXPECT_EQ(shown, "\rcounting: 1 of 2\r\x1B[K");
}

}  // namespace
