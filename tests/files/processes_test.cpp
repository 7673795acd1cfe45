// What processes and users see of each other's work in a folder.
#include <sys/stat.h>

#include <cerrno>

#include "fixture.h"

namespace {

using ProcessesTest = FilesTest;

TEST_F(ProcessesTest, ChangesOfOthersAreSeenAtOnce) {
  EXPECT_EQ(Content("a.dat"), "2");
  Elsewhere([] { WriteFile("A.DAT", "a"); });
  EXPECT_EQ(Content("a.dat"), "a");
  Elsewhere([] { fs::rename("A.DAT", "B.dat"); });
  EXPECT_EQ(Content("a.dat"), "2");
  EXPECT_EQ(Content("b.DAT"), "a");

  // A child process looks for itself, and takes no news away.
  Elsewhere([] {
    WriteFile("D.DAT", "d");
    EXPECT_EQ(Content("d.dat"), "d");
  });
  EXPECT_EQ(Content("d.dat"), "d");

  // More changes than the kernel keeps news of.
  Elsewhere([] {
    for (int i = 0; i < 9000; ++i) {
      fs::create_hard_link("D.DAT", "PASSING.DAT");
      fs::remove("PASSING.DAT");
    }
    WriteFile("LAST.DAT", "last");
  });
  EXPECT_EQ(Content("last.dat"), "last");
  EXPECT_EQ(Content("passing.dat"), "2");
}

TEST_F(ProcessesTest, FoldersThatCannotBeWatchedAreReadAnew) {
  bool isRead = false;
  const SystemCalls system([&](const host::SystemCall& call) -> host::Fate {
    const std::string_view name = call.name;
    isRead |= name == "getdents64";
    return {.error = name.starts_with("inotify") ? EMFILE : 0};
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(Content("a.dat"), "2");
    WriteFile("A.DAT", "a");
    EXPECT_EQ(Content("a.dat"), "a");
    fs::remove("A.DAT");
  }
  // A folder that has been left alone for a while is taken to be as it was read; until it changes.
  WriteFile("A.DAT", "a");
  EXPECT_TRUE(support::WaitUntil([&] {
    isRead = false;
    return Content("a.dat") == "a" && !isRead;
  }));
  fs::rename("A.DAT", "B.DAT");
  EXPECT_EQ(Content("b.dat"), "a");
  EXPECT_EQ(Content("a.dat"), "2");
}

TEST_F(ProcessesTest, AFileStaysWithItsModeAndItsGroupOrTheGroupLosesIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  constexpr gid_t kGroup = 65531;
  for (const bool isMember : {true, false}) {
    WriteFile("Model.RXL", "old");
    ASSERT_EQ(chown("Model.RXL", kOther, kGroup), 0);
    fs::permissions("Model.RXL", fs::perms(0666));
    Elsewhere([&] {
      support::BecomeUser(kNobody, isMember ? std::vector{kGroup} : std::vector<gid_t>{});
      CFile file;
      ASSERT_EQ(OpenError(&file, "Model.RXL", kCreateExclusive), 0);
      file.Close();
    });
    struct stat status {};
    ASSERT_EQ(stat("Model.RXL", &status), 0);
    EXPECT_EQ(status.st_uid, kNobody);
    EXPECT_EQ(status.st_gid, isMember ? kGroup : kNobody);
    EXPECT_EQ(status.st_mode & 0777, isMember ? 0666U : 0606U);
  }
}

}  // namespace
