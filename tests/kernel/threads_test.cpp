// Events, threads, the message queue and the command line.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <gtest/gtest.h>

#include "platform/kernel/kernel.h"
#include "support/support.h"

namespace {

TEST(Events, ReleaseOneWaiterOrAll) {
  for (const BOOL manual : {FALSE, TRUE}) {
    HANDLE event = CreateEventA(nullptr, manual, FALSE, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    SetEvent(event);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 1), manual != FALSE ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
    CloseHandle(event);
  }
  EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
  EXPECT_EQ(CloseHandle(nullptr), FALSE);
}

struct Shared {
  HANDLE event = nullptr;
  std::atomic<int> released{0};
  LONG volatile counter = 0;
};

DWORD WaitAndCount(void* parameter) {
  auto& shared = *static_cast<Shared*>(parameter);
  if (WaitForSingleObject(shared.event, INFINITE) == WAIT_OBJECT_0) ++shared.released;
  for (int i = 0; i < 10000; ++i)
    InterlockedIncrement(&shared.counter);
  for (int i = 0; i < 9999; ++i)
    InterlockedDecrement(&shared.counter);
  return 0;
}

TEST(Threads, WaitForEventsAndAreWaitedFor) {
  Shared shared;
  shared.event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  std::array<HANDLE, 4> threads{};
  std::array<DWORD, 4> ids{};
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = CreateThread(nullptr, 0, WaitAndCount, &shared, 0, &ids[i]);
    ASSERT_NE(threads[i], nullptr);
    EXPECT_NE(ids[i], GetCurrentThreadId());
  }
  // An auto-reset event lets one thread go for each signal.
  for (int signalled = 1; signalled <= 4; ++signalled) {
    SetEvent(shared.event);
    EXPECT_TRUE(support::WaitUntil([&] { return shared.released == signalled; }));
  }
  for (HANDLE thread : threads) {
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);
  }
  EXPECT_EQ(shared.counter, 4);
  CloseHandle(shared.event);
}

// Delivers one message for each byte in a pipe.
class PipeSource final : public MessageSource {
 public:
  PipeSource() { EXPECT_EQ(pipe(ends_), 0); }
  ~PipeSource() {
    close(ends_[0]);
    close(ends_[1]);
  }
  void Send(char byte) const { EXPECT_EQ(write(ends_[1], &byte, 1), 1); }

  bool Wait(int wakeDescriptor, MSG* message) override {
    std::array<pollfd, 2> waiting = {{{wakeDescriptor, POLLIN, 0}, {ends_[0], POLLIN, 0}}};
    poll(waiting.data(), waiting.size(), -1);
    char byte = 0;
    if ((waiting[1].revents & POLLIN) == 0 || read(ends_[0], &byte, 1) != 1) return false;
    *message = {nullptr, WM_USER, static_cast<WPARAM>(byte), 0};
    return true;
  }
  void Dispatch(const MSG& message) override { dispatched += static_cast<char>(message.wParam); }

  std::string dispatched;

 private:
  int ends_[2] = {-1, -1};
};

DWORD PostFromElsewhere(void* parameter) {
  Sleep(20);
  EXPECT_TRUE(PostThreadMessageA(*static_cast<DWORD*>(parameter), WM_QUIT, 0, 0));
  return 0;
}

TEST(MessageQueue, PostedMessagesComeBeforeTheSourceAndWakeIt) {
  PipeSource source;
  AttachMessageSource(&source);
  DWORD self = GetCurrentThreadId();
  source.Send('a');
  EXPECT_TRUE(PostThreadMessageA(self, WM_USER + 7, 1, 2));

  MSG message{};
  EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), TRUE);
  EXPECT_EQ(message.message, WM_USER + 7);
  EXPECT_EQ(message.wParam, 1U);
  EXPECT_EQ(message.lParam, 2);
  EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), TRUE);
  DispatchMessageA(&message);
  EXPECT_EQ(source.dispatched, "a");

  // A wait for the source ends when another thread posts.
  HANDLE thread = CreateThread(nullptr, 0, PostFromElsewhere, &self, 0, nullptr);
  EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), FALSE);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  AttachMessageSource(nullptr);
  EXPECT_EQ(PostThreadMessageA(0, WM_QUIT, 0, 0), FALSE) << "no thread has this identity";
}

TEST(CommandLine, IsTheWholeLineInTheCodePage) {
  int out[2];
  ASSERT_EQ(pipe(out), 0);
  support::Child child([&] {
    dup2(out[1], 1);
    execl("/proc/self/exe", "/opt/a b/kestor", "--print-command-line", "", "caf\xC3\xA9", "-RegServer", nullptr);
    return 127;
  });
  close(out[1]);
  std::string line(256, '\0');
  const ssize_t got = read(out[0], line.data(), line.size());
  close(out[0]);
  line.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(line, "\"/opt/a b/kestor\" --print-command-line \"\" caf\xE9 -RegServer");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--print-command-line") {
    const std::string line = GetCommandLineA();
    return write(1, line.data(), line.size()) == static_cast<ssize_t>(line.size()) ? 0 : 1;
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
