// What a call shows on a terminal while it runs. Counting never fails in the finished program.
#include "progress.h"

#include <pty.h>
#include <unistd.h>

#include <array>
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
  // A terminal hands over what was written in pieces, and answers EIO once all of it is read and nobody holds its end.
  std::string shown;
  std::array<char, 100> piece{};
  for (ssize_t size = 0; (size = read(terminal, piece.data(), piece.size())) > 0;) {
    shown.append(piece.data(), static_cast<std::size_t>(size));
  }
  EXPECT_EQ(shown, "\rcounting: 1 of 2\r\x1B[K");
}

}  // namespace
