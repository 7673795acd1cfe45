// Events, threads, the message queue and the command line.
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <gtest/gtest.h>
#include <set>

#include "platform/kernel/kernel.h"
#include "support/support.h"

namespace {

TEST(Events, StaySignalledUntilOneWaiterOrForGood) {
  for (const BOOL manual : {FALSE, TRUE}) {
    HANDLE event = CreateEventA(nullptr, manual, FALSE, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 1), manual != FALSE ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
    CloseHandle(event);
  }
  EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
}

struct Shared {
  HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  std::atomic<int> released{0};
  LONG volatile counter = 0;
};

DWORD CountAndWait(void* parameter) {
  auto& shared = *static_cast<Shared*>(parameter);
  for (int i = 0; i < 500000; ++i)
    InterlockedIncrement(&shared.counter);
  for (int i = 0; i < 499999; ++i)
    InterlockedDecrement(&shared.counter);
  if (WaitForSingleObject(shared.event, INFINITE) == WAIT_OBJECT_0) ++shared.released;
  return 0;
}

TEST(Threads, WaitForEventsAndAreWaitedFor) {
  Shared shared;
  std::array<HANDLE, 4> threads{};
  std::set<DWORD> ids = {GetCurrentThreadId()};
  for (HANDLE& thread : threads) {
    DWORD id = 0;
    thread = CreateThread(nullptr, 0, CountAndWait, &shared, 0, &id);
    EXPECT_TRUE(ids.insert(id).second);
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

class BusySource final : public platform::MessageSource {
 public:
  bool Wait(int /*wakeDescriptor*/, MSG* message) override {
    *message = {nullptr, WM_USER, 5, 0};
    return true;
  }
  void Dispatch(const MSG& message) override { dispatched += message.wParam; }

  WPARAM dispatched = 0;
};

TEST(MessageQueue, PostedMessagesComeBeforeTheSource) {
  BusySource source;
  platform::AttachMessageSource(&source);
  EXPECT_TRUE(PostThreadMessageA(GetCurrentThreadId(), WM_USER + 7, 1, 2));
  MSG message{};
  EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), TRUE);
  EXPECT_EQ(message.message, WM_USER + 7);
  EXPECT_EQ(message.wParam, 1U);
  EXPECT_EQ(message.lParam, 2);
  EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), TRUE);
  DispatchMessageA(&message);
  EXPECT_EQ(source.dispatched, 5U);
  platform::AttachMessageSource(nullptr);
  EXPECT_EQ(PostThreadMessageA(0, WM_QUIT, 0, 0), FALSE) << "no thread has this identity";
}

TEST(CommandLine, IsTheWholeLineInTheCodePage) {
  const support::TempFolder folder;
  const std::filesystem::path out = folder.Path() / "out";
  support::Child child([&out] {
    if (freopen(out.c_str(), "w", stdout) == nullptr) return 1;
    return execl("/proc/self/exe", "/opt/a b/kestor", "--print-command-line", "", "caf\xC3\xA9", "-RegServer", nullptr);
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(support::ReadFile(out), "\"/opt/a b/kestor\" --print-command-line \"\" caf\xE9 -RegServer\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--print-command-line") return puts(GetCommandLineA()) < 0;
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
