// How processes and users affect each other: share modes between any two openers, in any order, from any process, also
// at the very same moment; the names of folders; rights.
#include <sched.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <random>

#include "fixture.h"
#include "support/shared_memory.h"

namespace {

constexpr UINT kCreateNothingDenied =
    CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite | CFile::shareDenyNone;
constexpr std::array kRacingModes = {kReadExclusive, kCreateExclusive, kUpdateExclusive,    kReadShared,
                                     kUpdateShared,  kCreateShared,    kCreateNothingDenied};

bool Writes(UINT flags) {
  return (flags & (CFile::modeWrite | CFile::modeReadWrite)) != 0;
}

bool Denies(UINT holder, UINT opener) {
  const bool deniesWriting = (holder & CFile::shareDenyNone) == 0;
  const bool deniesReading = deniesWriting && (holder & CFile::shareDenyWrite) == 0;
  const bool reads = (opener & CFile::modeWrite) == 0;
  return (deniesReading && reads) || (deniesWriting && Writes(opener));
}

// Returns whether the platform lets two openers share a file.
bool Compatible(UINT a, UINT b) {
  return !Denies(a, b) && !Denies(b, a);
}

std::vector<UINT> AllModes() {
  std::vector<UINT> modes;
  for (const UINT access : {CFile::modeRead, CFile::modeWrite, CFile::modeReadWrite}) {
    for (const UINT share : {CFile::shareDenyNone, CFile::shareDenyWrite, CFile::shareExclusive})
      modes.push_back(access | share);
  }
  return modes;
}

struct Contender {
  UINT flags;
  bool asNobody = false;  // a user who may not write the superuser's files
};

// Lets two processes open one file at the same moment, many times. Fails the test if the platform would not allow an
// outcome.
void Race(const std::array<Contender, 2>& contenders, bool fileExists = true) {
  struct State {
    std::atomic<int> arrivals;
    std::array<std::atomic<LONG>, 2> errors;
  };
  const SharedMemory<State> state;
  // Waits until the other process gets here.
  const auto meet = [&] {
    const int both = (state->arrivals++ / 2 + 1) * 2;
    while (state->arrivals < both)
      sched_yield();
  };
  const auto isRight = [&] {
    const auto [winner, loser] = std::minmax({state->errors[0].load(), state->errors[1].load()});
    const auto creators = std::count_if(contenders.begin(), contenders.end(),
                                        [](Contender c) { return (c.flags & CFile::modeCreate) != 0; });
    if (!fileExists && creators == 0) return winner == 2 && loser == 2;
    // If only one process creates the file, the other one may come before the file exists.
    if (!fileExists && creators == 1 && loser == 2) return winner == 0;
    return winner == 0 && loser == (Compatible(contenders[0].flags, contenders[1].flags) ? 0 : 32);
  };
  support::AtOnce(2, [&](unsigned self) {
    if (contenders[self].asNobody) support::BecomeUser(kNobody);
    alarm(120);  // the other process may have given up
    const int rounds = support::LongTests() ? 10000 : 300;
    for (int round = 0; round < rounds; ++round) {
      meet();
      for (int i = (round * 7 + static_cast<int>(self) * 13) % 50 * 20; i > 0; --i)
        std::atomic_signal_fence(std::memory_order_seq_cst);
      CFile file;
      const char* const name = self == 1 && round % 2 == 1 ? "File.Dat" : "FILE.DAT";
      state->errors[self] = OpenError(&file, name, contenders[self].flags);
      // Keeps the file open until both have tried.
      meet();
      ASSERT_TRUE(isRight()) << contenders[0].flags << " gave " << state->errors[0] << ", " << contenders[1].flags
                             << " gave " << state->errors[1] << (fileExists ? "" : ", no file");
      round % 64 == 0 ? file.Close() : file.Abort();
      meet();
      if (self != 0 || fileExists) continue;
      ASSERT_LE(fs::remove("FILE.DAT") + fs::remove("File.Dat"), 1);
    }
  });
}

class SharingTest : public FilesTest, public testing::WithParamInterface<UINT> {
 protected:
  SharingTest() {
    WriteFile("FILE.DAT", "content");
    fs::permissions("FILE.DAT", fs::perms(0644));
  }

  static void ExpectExcluded(UINT held, const std::vector<UINT>& wantedModes) {
    const auto descriptors = [] { return support::Names("/proc/self/fd").size(); };
    const std::size_t descriptorsBefore = descriptors();
    for (const UINT wanted : wantedModes)
      EXPECT_EQ(OpenError("FILE.DAT", wanted), Compatible(held, wanted) ? 0 : 32) << held << ' ' << wanted;
    // A process may close the watcher that it inherited and get none of its own.
    EXPECT_LE(descriptors(), descriptorsBefore);
  }
};

TEST_F(SharingTest, OpeningSucceedsExactlyWhenAccessesMeetNoDenials) {
  std::vector<UINT> readingModes = AllModes();
  std::erase_if(readingModes, Writes);
  const uid_t self = geteuid();
  for (const uid_t holdingUser : {self, kNobody}) {
    if (self != 0 && holdingUser != self) GTEST_SKIP() << "what follows needs two users";
    for (const UINT held : holdingUser == self ? AllModes() : readingModes) {
      CFile holder;
      ASSERT_EQ(seteuid(holdingUser), 0);
      const LONG error = OpenError(&holder, "FILE.DAT", held);
      ASSERT_EQ(seteuid(self), 0);
      ASSERT_EQ(error, 0);
      ExpectExcluded(held, AllModes());
      Elsewhere([&] { ExpectExcluded(held, AllModes()); });
      if (self == 0) Elsewhere([&] { ExpectExcluded(held, readingModes); }, kNobody);
      EXPECT_EQ(OpenError("FILE.DAT", kCreateExclusive), 32);
      EXPECT_EQ(ErrorOf([] { CFile::Remove("FILE.DAT"); }), 32);
      EXPECT_EQ(ErrorOf([] { CFile::Rename("FILE.DAT", "OTHER.DAT"); }), 32);
      EXPECT_EQ(ErrorOf([] { CFile::Rename("FILE.DAT", "FILE.DAT"); }), 0);
    }
  }
}

TEST_P(SharingTest, TwoOpenersAtTheSameMoment) {
  for (const Names& files : {Names{"FILE.DAT"}, Names{}}) {
    if (files.empty()) fs::remove("FILE.DAT");
    for (auto other = std::find(kRacingModes.begin(), kRacingModes.end(), GetParam()); other != kRacingModes.end();
         ++other)
      Race({{{GetParam()}, {*other}}}, !files.empty());
    EXPECT_EQ(Here(), files);
  }
}

INSTANTIATE_TEST_SUITE_P(EveryMode, SharingTest, testing::ValuesIn(kRacingModes));

TEST_F(SharingTest, TwoOpenersAtTheSameMomentOfWhomOneMayOnlyRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  const auto race = [](UINT nobodysMode, Contender other) { Race({{{nobodysMode, true}, other}}); };
  for (const auto permissions : {0444U, 0644U}) {
    fs::permissions("FILE.DAT", fs::perms(permissions));
    for (const UINT mode : {kReadExclusive, kReadShared}) {
      race(kReadExclusive, {mode, true});
      race(mode, {kReadExclusive});
    }
    race(kReadExclusive, {kReadShared});
  }
  for (const UINT mode : {kUpdateExclusive, kUpdateShared}) {
    race(kReadExclusive, {mode});
    race(kReadShared, {mode});
  }
}

// Opens files briefly and often, so that every step of one opener meets every step of another, and files come and go
// meanwhile.
TEST_F(SharingTest, AHolderIsAloneAndHasTheFileOfTheNameWhateverOthersDo) {
  // In memory, so that no step waits for a disk.
  if (!fs::is_directory("/dev/shm")) GTEST_SKIP() << "needs a folder in memory";
  setenv("TMPDIR", "/dev/shm", 1);
  const support::TempFolder folder;
  fs::current_path(folder.Path());
  SharedMemory<std::atomic<int>> holders;
  const auto use = [&](const char* name, UINT mode, unsigned content, bool commit) {
    CFile file;
    const LONG error = OpenError(&file, name, mode);
    if (error == 32 || (error == 2 && mode == kReadExclusive)) return;
    ASSERT_EQ(error, 0);
    ASSERT_EQ(++*holders, 1);
    if (mode == kCreateExclusive) {
      file.Write(&content, sizeof content);
    } else {
      Names names = Here();
      std::erase_if(names, [](const std::string& other) { return other[0] == '.'; });
      ASSERT_EQ(names.size(), 1U);
      ASSERT_EQ(ReadFile(names[0]), ContentOf(&file));
    }
    --*holders;
    if (commit) file.Close();
  };
  support::AtOnce(3, [&](unsigned self) {
    std::mt19937 random(self);
    for (int i = support::LongTests() ? 1000000 : 20000; i > 0 && !HasFailure(); --i) {
      const char* const name = random() % 2 == 0 ? "FILE.DAT" : "file.dat";
      const auto choice = random() % 16;
      const UINT mode = choice < 6 ? kCreateExclusive : choice < 12 ? kUpdateExclusive : kReadExclusive;
      const LONG error = ErrorOf([&] {
        if (choice == 15) return CFile::Remove(name);
        if (choice == 14) return CFile::Rename(name, name);
        use(name, mode, static_cast<unsigned>(random()), choice < 2);
      });
      EXPECT_TRUE(error == 0 || (choice >= 14 && (error == 2 || error == 32))) << error << " of choice " << choice;
    }
  });
  EXPECT_LE(Here().size(), 1u);
  fs::current_path("/");
}

// ---- Folders and users ---------------------------------------------------------------------------------------------

using FoldersTest = FilesTest;

TEST_F(FoldersTest, MoreChangesThanTheKernelKeepsNewsOf) {
  EXPECT_EQ(Content("last.dat"), "error 2");
  for (int i = 0; i < 9000; ++i) {
    WriteFile("PASSING.DAT", "");
    fs::remove("PASSING.DAT");
  }
  WriteFile("LAST.DAT", "last");
  EXPECT_EQ(Content("last.dat"), "last");
  EXPECT_EQ(Content("passing.dat"), "error 2");
}

TEST_F(FoldersTest, FoldersThatCannotBeWatchedAreReadAnew) {
  bool isRead = false;
  const SystemCalls system([&](const host::SystemCall& call) -> host::Fate {
    const std::string_view name = call.name;
    isRead |= name == "getdents64";
    return {.error = name.starts_with("inotify") ? EMFILE : 0};
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(Content("a.dat"), "error 2");
    WriteFile("A.DAT", "a");
    EXPECT_EQ(Content("a.dat"), "a");
    fs::remove("A.DAT");
  }
  EXPECT_TRUE(isRead);
  // The cached names of a folder that has been quiet for a while are used until it changes.
  WriteFile("A.DAT", "a");
  EXPECT_TRUE(support::WaitUntil([&] {
    isRead = false;
    return Content("a.dat") == "a" && !isRead;
  }));
  fs::rename("A.DAT", "B.DAT");
  EXPECT_EQ(Content("b.dat"), "a");
  EXPECT_EQ(Content("a.dat"), "error 2");
}

TEST_F(FoldersTest, AFileStaysWithItsModeAndItsGroupOrTheGroupLosesIt) {
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

  // If a file has an access control list, replacing it adds the former owner to the list.
  WriteFile("Listed.RXL", "old");
  ASSERT_EQ(chown("Listed.RXL", kOther, kOther), 0);
  const std::string list = AclWith(kNobody);
  ASSERT_EQ(setxattr("Listed.RXL", "system.posix_acl_access", list.data(), list.size(), 0), 0);
  for (const uid_t user : {kNobody, kOther, kNobody}) {
    Elsewhere([&] {
      support::BecomeUser(user);
      CFile file;
      ASSERT_EQ(OpenError(&file, "Listed.RXL", kCreateExclusive), 0) << user;
      file.Close();
    });
  }
}

}  // namespace
