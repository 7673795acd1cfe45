// What a call shows on a terminal while it runs.
#include "progress.h"

#include <pty.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <gtest/gtest.h>
#include <string>

#include "support/support.h"

namespace {

// Returns what is shown when a call reports `steps` steps, each as soon as a display is due.
std::string Shown(std::size_t steps) {
  int terminal = -1;
  int end = -1;
  EXPECT_EQ(openpty(&terminal, &end, nullptr, nullptr, nullptr), 0);
  support::Child call([=] {
    if (dup2(end, STDERR_FILENO) < 0) return 1;
    kestorctl::Progress progress("counting");
    for (std::size_t step = 1; step <= steps; ++step) {
      const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
      support::WaitUntil([due] { return std::chrono::steady_clock::now() >= due; });
      progress.Show(step, steps);
    }
    return 0;
  });
  EXPECT_EQ(call.Wait(), 0);
  close(end);
  // A terminal returns what was written in pieces, and EIO once all of it is read and no process has its other end
  // open.
  std::string shown;
  std::array<char, 100> piece{};
  for (ssize_t size = 0; (size = read(terminal, piece.data(), piece.size())) > 0;)
    shown.append(piece.data(), static_cast<std::size_t>(size));
  close(terminal);
  return shown;
}

TEST(Progress, ShowsHowFarALongCallIs) {
  EXPECT_EQ(Shown(2), "\rcounting: 1 of 2\rcounting: 2 of 2\r\x1B[K");
  EXPECT_EQ(Shown(0), "");
}

}  // namespace
