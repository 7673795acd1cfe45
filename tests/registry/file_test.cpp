// The file: who changes it at the same time, who may, and what is on the disk when a change fails.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "fixture.h"
#include "support/elsewhere.h"
#include "support/system_calls.h"

namespace {

using namespace std::string_literals;

namespace fs = std::filesystem;

using support::Elsewhere;
using support::SystemCalls;

using RegistryFile = Registry;

constexpr uid_t kNobody = 65534;

// Eight processes of two threads each, which also read what the others write.
TEST_F(RegistryFile, ManyWritersLoseNothingAndSeeWholeFiles) {
  constexpr int kProcesses = 8;
  constexpr int kValues = 25;
  const auto write = [](const std::string& path) {
    for (int i = 0; i < kValues; ++i) {
      EXPECT_EQ(Set(OpenedKey(path, true), std::to_string(i).c_str(), "x"), kSuccess);
      EXPECT_NO_THROW(registry::Check());
    }
  };
  support::AtOnce(kProcesses, [&write](unsigned i) {
    const std::string path = "W\\" + std::to_string(i);
    std::thread beside(write, path + "\\beside");
    write(path);
    beside.join();
  });
  for (int i = 0; i < kProcesses * kValues; ++i) {
    const std::string path = "W\\" + std::to_string(i / kValues);
    for (const std::string& written : {path, path + "\\beside"})
      EXPECT_EQ(Get(OpenedKey(written), std::to_string(i % kValues).c_str()), "1:x\0"s) << written << ' ' << i;
  }
  ExpectNoLeftovers();
}

TEST_F(RegistryFile, AKilledWriterLeavesTheOldOrTheNewState) {
  const OpenedKey key("K", true);
  for (int round = 0; round < 15; ++round) {
    ASSERT_EQ(Set(key, "v", "start"), kSuccess);
    support::Child writer([&] {
      for (std::size_t i = 0;; ++i)
        Set(key, "v", std::string(1000 + i % 7 * 5000, 'a'));
      return 0;
    });
    ASSERT_TRUE(support::WaitUntil([&] { return Get(key, "v") != "1:start\0"s; }));
    std::this_thread::sleep_for(std::chrono::microseconds(round * 150));  // another place in its work every time
    writer.Kill();
    writer.Wait();
    EXPECT_NO_THROW(registry::Check());
  }
  support::WriteFile(home_.Home() / ".registry.reg.new", "half a fi");
  ASSERT_EQ(Set(key, "v", "end"), kSuccess);
  ExpectNoLeftovers();
}

TEST_F(RegistryFile, ContentIsOnTheDiskBeforeItTakesItsNameAndAFailedStepLeavesTheOldOne) {
  const OpenedKey key("K", true);
  const std::string before = support::ReadFile(File());
  const struct {
    const char* step;
    int error;
    LONG result;
  } cases[] = {{"fsync file", EIO, ERROR_IO_DEVICE},
               {"rename hidden registry.reg", EINVAL, ERROR_GEN_FAILURE},
               {"fsync file", EPROTO, ERROR_GEN_FAILURE},
               {"rename hidden registry.reg", EACCES, ERROR_ACCESS_DENIED},
               {"rename hidden registry.reg", EROFS, ERROR_WRITE_PROTECT},
               {"rename hidden registry.reg", ENOENT, ERROR_PATH_NOT_FOUND}};
  for (const auto& c : cases) {
    const SystemCalls system(c.step, c.error);
    EXPECT_EQ(Set(key, "v", "x"), c.result) << c.step << ": " << std::strerror(c.error);
  }
  Elsewhere([&] {
    support::FillDisk(1000);
    EXPECT_EQ(Set(key, "v", std::string(2000, 'a')), LONG{ERROR_DISK_FULL});
  });
  EXPECT_EQ(support::ReadFile(File()), before);
  ExpectNoLeftovers();

  // There are folders that cannot be flushed.
  const SystemCalls system("fsync folder", EINVAL);
  EXPECT_EQ(Set(key, "v", "x"), kSuccess);
  EXPECT_THAT(system.Seen(),
              testing::ElementsAre("unlink hidden", "fsync file", "rename hidden registry.reg", "fsync folder"));
}

TEST_F(RegistryFile, ChangesFromOutsideAreSeenAtOnce) {
  const std::string start = "Windows Registry Editor Version 5.00\n[HKLM\\K]\n\"v\"=";
  support::WriteFile(File(), start + "\"0\"\n");
  const OpenedKey key("K");
  // Same inode, same size, and often the same time.
  for (char digit = '0'; digit <= '9'; ++digit) {
    support::WriteFile(File(), start + '"' + digit + "\"\n");
    EXPECT_EQ(Get(key, "v"), "1:"s + digit + '\0');
  }
  fs::remove(File());
  EXPECT_EQ(Get(key, "v"), "");
  EXPECT_EQ(OpenedKey("").Result(), kSuccess);
}

TEST_F(RegistryFile, WhatChangesNothingLeavesTheFileAlone) {
  const std::string before = "REGEDIT4\n\n; a comment\n[HKLM\\K]\n\"v\"=\"x\"\n";
  support::WriteFile(File(), before);
  const OpenedKey key("K", true);
  EXPECT_EQ(Set(key, "V", "x"), kSuccess);
  EXPECT_EQ(RegDeleteValueA(key, "none"), kNotFound);
  support::WriteFile(home_.Data() / "same.reg", "REGEDIT4\n[HKLM\\k]\n\"V\"=\"x\"\n[-HKLM\\none]\n");
  registry::Import(home_.Data() / "same.reg");
  EXPECT_EQ(support::ReadFile(File()), before);
}

TEST_F(RegistryFile, KeepsItsModeAndItsPlaceBehindALink) {
  const fs::path target = home_.Data() / "kept.reg";
  fs::create_symlink("../data/kept.reg", File());
  const OpenedKey key("K", true);
  fs::permissions(target, fs::perms(0640));
  ASSERT_EQ(Set(key, "v", "x"), kSuccess);
  EXPECT_TRUE(fs::is_symlink(File()));
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0640));
  EXPECT_THAT(support::Names(home_.Data()), testing::ElementsAre("kept.reg"));
}

TEST_F(RegistryFile, AFirstChangeMakesTheHomeIfThereIsRoomForIt) {
  fs::remove_all(home_.Home());
  EXPECT_EQ(OpenedKey("K").Result(), kNotFound);
  EXPECT_FALSE(fs::exists(home_.Home()));
  EXPECT_EQ(OpenedKey("K", true).Result(), kSuccess);

  fs::remove(File());
  fs::create_directory(File());
  EXPECT_EQ(OpenedKey("K", true).Result(), kDenied);
  fs::remove(File());
  ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
  EXPECT_EQ(OpenedKey("K").Result(), kDenied);
  fs::remove_all(home_.Home());
  support::WriteFile(home_.Home(), "no folder");
  EXPECT_EQ(OpenedKey("K", true).Result(), LONG{ERROR_PATH_NOT_FOUND});
}

TEST_F(RegistryFile, WithoutPermissionItCanStillBeRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  ASSERT_EQ(Set(OpenedKey("K\\L", true), "v", "x"), kSuccess);
  const std::string before = support::ReadFile(File());
  fs::permissions(home_.Home().parent_path(), fs::perms(0755));
  const auto readOnly = [] {
    const OpenedKey key("K\\L", true);  // it exists
    EXPECT_EQ(Get(key, "v"), "1:x\0"s);
    EXPECT_EQ(Set(key, "v", "y"), kDenied);
    EXPECT_EQ(OpenedKey("New", true).Result(), kDenied);
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "K"), kDenied);
  };
  // The folder may not be written, with and without a lock file in it.
  fs::permissions(home_.Home(), fs::perms(0555));
  Elsewhere(readOnly, kNobody);
  fs::remove(Lock());
  Elsewhere(readOnly, kNobody);
  // The folder may be written, but not the file.
  fs::permissions(home_.Home(), fs::perms(0777));
  fs::permissions(File(), fs::perms(0444));
  Elsewhere(readOnly, kNobody);
  EXPECT_EQ(support::ReadFile(File()), before);
  // The file may not even be read.
  fs::permissions(File(), fs::perms::none);
  Elsewhere([] { EXPECT_EQ(OpenedKey("K").Result(), kDenied); }, kNobody);
}

TEST_F(RegistryFile, OnlyWhoMayWriteTheHomeCanTakeTheLock) {
  for (const auto& [home, lock] : {std::pair(0700U, 0600U), {0755U, 0600U}, {0775U, 0660U}, {0777U, 0666U}}) {
    fs::permissions(home_.Home(), fs::perms(home));
    fs::remove(Lock());
    ASSERT_EQ(OpenedKey(std::to_string(home), true).Result(), kSuccess);
    EXPECT_EQ(fs::status(Lock()).permissions(), fs::perms(lock));
  }
  const OpenedKey key("K", true);
  const int held = open(Lock().c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(Set(key, "v", "x"), LONG{ERROR_LOCK_VIOLATION}) << "the lock is never released";
  EXPECT_EQ(OpenedKey("K").Result(), kSuccess);
  close(held);
  EXPECT_EQ(Set(key, "v", "x"), kSuccess);
}

TEST_F(RegistryFile, TheRightsOfAGroupPassToNoOther) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to give files away";
  constexpr gid_t kGroup = 4242;
  fs::permissions(home_.Home().parent_path(), fs::perms(0755));
  fs::permissions(home_.Home(), fs::perms(0777));
  ASSERT_EQ(OpenedKey("K", true).Result(), kSuccess);
  ASSERT_EQ(chown(File().c_str(), 0, kGroup), 0);
  fs::permissions(File(), fs::perms(0666));
  for (const bool isMember : {true, false}) {
    Elsewhere([&] {
      support::BecomeUser(kNobody, isMember ? std::vector{kGroup} : std::vector<gid_t>{});
      EXPECT_EQ(Set(OpenedKey("K"), "v", isMember ? "1" : "0"), kSuccess);
    });
    struct stat file {};
    ASSERT_EQ(stat(File().c_str(), &file), 0);
    EXPECT_EQ(file.st_gid == kGroup, isMember);
    EXPECT_EQ(file.st_mode & 0777, isMember ? 0666U : 0606U);
  }
}

}  // namespace
