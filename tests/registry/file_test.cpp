#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "fixture.h"

namespace {

using namespace std::string_literals;

namespace fs = std::filesystem;

using RegistryFile = Registry;

mode_t ModeOf(const fs::path& file) {
  return static_cast<mode_t>(fs::status(file).permissions());
}

int SetNumbered(int writer, int count) {
  for (int i = 0; i < count; ++i) {
    const OpenedKey key(("W\\" + std::to_string(writer)).c_str(), true);
    if (SetText(key.Get(), std::to_string(i).c_str(), "x") != kSuccess) return 1;
  }
  return 0;
}

void ExpectNumbered(int writers, int count) {
  for (int writer = 0; writer < writers; ++writer) {
    const OpenedKey key(("W\\" + std::to_string(writer)).c_str());
    for (int i = 0; i < count; ++i)
      EXPECT_EQ(Get(key.Get(), std::to_string(i).c_str()), "1:x\0"s) << writer << ' ' << i;
  }
}

TEST_F(RegistryFile, WritersInManyProcessesLoseNothing) {
  std::deque<support::Child> writers;
  for (int writer = 0; writer < 8; ++writer) {
    writers.emplace_back([writer] { return SetNumbered(writer, 50); });
  }
  for (support::Child& writer : writers)
    EXPECT_EQ(writer.Wait(), 0);
  ExpectNumbered(8, 50);
  ExpectNoLeftovers();
}

TEST_F(RegistryFile, WritersInManyThreadsLoseNothing) {
  std::deque<std::thread> writers;
  for (int writer = 0; writer < 4; ++writer)
    writers.emplace_back(SetNumbered, writer, 25);
  for (std::thread& writer : writers)
    writer.join();
  ExpectNumbered(4, 25);
}

TEST_F(RegistryFile, ReadersBesideAWriterSeeOneStateOrTheOther) {
  const OpenedKey key("K", true);
  const std::string text(2000, 'a');
  ASSERT_EQ(SetText(key.Get(), "v", text), kSuccess);
  support::Child writer([&] {
    for (int i = 0; i < 200; ++i) {
      if (SetText(key.Get(), "v", std::string(i % 2 == 0 ? 20 : 4000, 'a')) != kSuccess) return 1;
    }
    return SetText(key.Get(), "end", "x") == kSuccess ? 0 : 1;
  });
  bool ended = false;
  while (!ended) {
    const auto seen = Get(key.Get(), "v");
    if (!seen) continue;  // grew between the two questions
    EXPECT_TRUE(seen->size() == 23 || seen->size() == 2003 || seen->size() == 4003) << seen->size();
    EXPECT_EQ(seen->find_first_not_of('a', 2), seen->size() - 1);
    EXPECT_EQ(OpenedKey("K").Result(), kSuccess);
    ended = Get(key.Get(), "end").has_value();
  }
  EXPECT_EQ(writer.Wait(), 0);
}

TEST_F(RegistryFile, AKilledWriterLeavesTheOldOrTheNewState) {
  const OpenedKey key("K", true);
  for (int round = 0; round < 15; ++round) {
    ASSERT_EQ(SetText(key.Get(), "v", "start"), kSuccess);
    support::Child writer([&] {
      for (int i = 0;; ++i)
        SetText(key.Get(), "v", std::string(static_cast<std::size_t>(1000 + i % 7 * 5000), 'a'));
      return 0;
    });
    ASSERT_TRUE(support::WaitUntil([&] { return Get(key.Get(), "v") != "1:start\0"s; }));
    std::this_thread::sleep_for(std::chrono::microseconds(round * 150));  // another place in its work every time
    writer.Kill();
    writer.Wait();
    EXPECT_NO_THROW(registry::Check());
    for (const std::string& name : support::Names(home_.Home())) {
      EXPECT_TRUE(name[0] == '.' || name == "drives" || name == "work" || name.starts_with("registry.")) << name;
    }
  }
  support::WriteFile(home_.Home() / ".registry.reg.new", "half a fi");
  ASSERT_EQ(SetText(key.Get(), "v", "end"), kSuccess);
  ExpectNoLeftovers();
}

TEST_F(RegistryFile, ChangesFromOutsideAreSeenAtOnce) {
  const std::string start = "Windows Registry Editor Version 5.00\n[HKLM\\K]\n\"v\"=";
  support::WriteFile(File(), start + "\"0\"\n");
  const OpenedKey key("K");
  // Same inode, same size, and often the same time.
  for (char digit = '0'; digit <= '9'; ++digit) {
    support::WriteFile(File(), start + '"' + digit + "\"\n");
    EXPECT_EQ(Get(key.Get(), "v"), "1:"s + digit + '\0');
  }
  fs::remove(File());
  EXPECT_EQ(Get(key.Get(), "v"), std::nullopt);
  EXPECT_EQ(OpenedKey("").Result(), kSuccess);
}

TEST_F(RegistryFile, WhatChangesNothingLeavesTheFileAlone) {
  support::WriteFile(File(), "REGEDIT4\n\n; a comment\n[HKLM\\K]\n\"v\"=\"x\"\n");
  const std::string before = support::ReadFile(File());
  const OpenedKey key("K", true);
  EXPECT_EQ(SetText(key.Get(), "V", "x"), kSuccess);
  EXPECT_EQ(RegDeleteValueA(key.Get(), "none"), kNotFound);
  support::WriteFile(home_.Data() / "same.reg", "REGEDIT4\n[HKLM\\k]\n\"V\"=\"x\"\n[-HKLM\\none]\n");
  registry::Import(home_.Data() / "same.reg");
  EXPECT_EQ(support::ReadFile(File()), before);
}

TEST_F(RegistryFile, KeepsItsModeAndItsPlaceBehindALink) {
  const fs::path target = home_.Data() / "kept.reg";
  fs::create_symlink("../data/kept.reg", File());
  ASSERT_EQ(OpenedKey("K", true).Result(), kSuccess);
  ASSERT_TRUE(fs::is_symlink(File()));
  fs::permissions(target, static_cast<fs::perms>(0640));
  const OpenedKey key("K");
  ASSERT_EQ(SetText(key.Get(), "v", "x"), kSuccess);
  EXPECT_TRUE(fs::is_symlink(File()));
  EXPECT_EQ(ModeOf(target), 0640U);
  EXPECT_EQ(support::Names(home_.Data()), (std::vector<std::string>{"kept.reg"}));
}

TEST_F(RegistryFile, AFirstChangeMakesTheHome) {
  fs::remove_all(home_.Home());
  EXPECT_EQ(OpenedKey("K").Result(), kNotFound);
  EXPECT_FALSE(fs::exists(home_.Home()));
  EXPECT_EQ(OpenedKey("K", true).Result(), kSuccess);
  EXPECT_TRUE(fs::exists(File()));

  fs::remove_all(home_.Home());
  support::WriteFile(home_.Home(), "no folder");
  EXPECT_EQ(OpenedKey("K", true).Result(), LONG{ERROR_PATH_NOT_FOUND});
}

// Reads, and tries every change, as a user who has no special rights.
int UseWithoutRights() {
  if (geteuid() == 0 && setuid(65534) != 0) return 1;
  const OpenedKey key("K\\L", true);  // it exists
  if (key.Result() != kSuccess || Get(key.Get(), "v") != "1:x\0"s) return 2;
  if (SetText(key.Get(), "v", "y") != kDenied) return 3;
  if (OpenedKey("New", true).Result() != kDenied) return 4;
  if (RegDeleteValueA(key.Get(), "v") != kDenied) return 5;
  if (RegDeleteTreeA(HKEY_LOCAL_MACHINE, "K") != kDenied) return 6;
  return 0;
}

TEST_F(RegistryFile, WithoutPermissionItCanStillBeRead) {
  const OpenedKey key("K\\L", true);
  ASSERT_EQ(SetText(key.Get(), "v", "x"), kSuccess);
  const std::string before = support::ReadFile(File());
  const auto kReadOnly = static_cast<fs::perms>(0444);
  fs::permissions(home_.Home().parent_path(), static_cast<fs::perms>(0755));

  // The folder may not be written, with and without a lock file in it.
  fs::permissions(home_.Home(), static_cast<fs::perms>(0555));
  EXPECT_EQ(support::Child(UseWithoutRights).Wait(), 0);
  fs::permissions(home_.Home(), static_cast<fs::perms>(0755));
  fs::remove(Lock());
  fs::permissions(home_.Home(), static_cast<fs::perms>(0555));
  EXPECT_EQ(support::Child(UseWithoutRights).Wait(), 0);

  // The folder may be written, but not the file.
  fs::permissions(home_.Home(), static_cast<fs::perms>(0777));
  fs::permissions(File(), kReadOnly);
  EXPECT_EQ(support::Child(UseWithoutRights).Wait(), 0);
  EXPECT_EQ(support::ReadFile(File()), before);

  // The file may not even be read.
  fs::permissions(File(), fs::perms::none);
  EXPECT_EQ(support::Child([] {
              if (geteuid() == 0 && setuid(65534) != 0) return 1;
              return OpenedKey("K").Result() == kDenied ? 0 : 2;
            }).Wait(),
            0);
}

TEST_F(RegistryFile, OnlyWhoMayWriteTheHomeCanTakeTheLock) {
  const struct {
    mode_t home;
    mode_t lock;
  } kCases[] = {{0700, 0600}, {0755, 0600}, {0775, 0660}, {0777, 0666}};
  for (const auto& c : kCases) {
    ASSERT_EQ(chmod(home_.Home().c_str(), c.home), 0);
    fs::remove(Lock());
    ASSERT_EQ(OpenedKey(std::to_string(c.home).c_str(), true).Result(), kSuccess);
    EXPECT_EQ(ModeOf(Lock()), c.lock);
  }
}

TEST_F(RegistryFile, ALockThatIsNeverReleasedMakesChangesFail) {
  const OpenedKey key("K", true);
  const int lock = open(Lock().c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  EXPECT_EQ(SetText(key.Get(), "v", "x"), LONG{ERROR_LOCK_VIOLATION});
  EXPECT_EQ(OpenedKey("K").Result(), kSuccess);
  close(lock);
  EXPECT_EQ(SetText(key.Get(), "v", "x"), kSuccess);
}

// Sets a value as a user without rights, who is in `group` only.
int SetTextAs(gid_t group, const char* text) {
  if (setgroups(1, &group) != 0 || setgid(65534) != 0 || setuid(65534) != 0) return 1;
  return SetText(OpenedKey("K").Get(), "v", text) == kSuccess ? 0 : 2;
}

TEST_F(RegistryFile, TheRightsOfAGroupPassToNoOther) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to give files away";
  constexpr gid_t kGroup = 4242;
  ASSERT_EQ(chmod(home_.Home().parent_path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(home_.Home().c_str(), 0777), 0);
  ASSERT_EQ(OpenedKey("K", true).Result(), kSuccess);
  ASSERT_EQ(chown(File().c_str(), 0, kGroup), 0);
  ASSERT_EQ(chmod(File().c_str(), 0666), 0);
  struct stat file {};
  for (const gid_t group : {kGroup, kGroup + 1}) {
    EXPECT_EQ(support::Child([=] { return SetTextAs(group, std::to_string(group).c_str()); }).Wait(), 0);
    ASSERT_EQ(stat(File().c_str(), &file), 0);
    EXPECT_EQ(file.st_gid == kGroup, group == kGroup);
    EXPECT_EQ(ModeOf(File()), group == kGroup ? 0666U : 0606U);
  }
}

TEST_F(RegistryFile, WhatIsNoFileIsRefused) {
  fs::create_directory(File());
  EXPECT_EQ(OpenedKey("K").Result(), kDenied);
  EXPECT_EQ(OpenedKey("K", true).Result(), kDenied);
  fs::remove(File());
  ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
  EXPECT_EQ(OpenedKey("K").Result(), kDenied);
}

}  // namespace
