// Share modes: between any two openers, in any order, from any process, also at the very same moment.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <random>

#include "opening_modes.h"
#include "shared_memory.h"
#include "support/elsewhere.h"

namespace fs = std::filesystem;
using support::BecomeUser;
using support::Child;
using support::Elsewhere;

namespace {

using Names = std::vector<std::string>;

constexpr uid_t kNobody = 65534;

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
  bool asNobody = false;  // who may not write to the superuser's files
};

// Lets two processes open one file at the same moment, many times over. In the folder that is the current directory.
class Race {
 public:
  Race(Contender a, Contender b, bool fileExists = true) : contenders_{a, b}, fileExists_(fileExists) {}

  // Fails the test when the platform would not have let it end so.
  void Run() {
    Child first([&] { return Contend(0); });
    Child second([&] { return Contend(1); });
    EXPECT_EQ(first.Wait() + second.Wait(), 0)
        << contenders_[0].flags << " gave " << state_->errors[0] << ", " << contenders_[1].flags << " gave "
        << state_->errors[1] << (fileExists_ ? "" : ", no file");
  }

 private:
  struct State {
    std::atomic<int> arrivals;
    std::array<std::atomic<LONG>, 2> errors;
  };

  // Waits until the other one is as far.
  void Meet() const {
    const int both = (state_->arrivals++ / 2 + 1) * 2;
    while (state_->arrivals < both)
      sched_yield();
  }

  int Contend(std::size_t self) {
    if (contenders_[self].asNobody) BecomeUser(kNobody);
    alarm(120);  // the other one may have given up
    const int rounds = support::LongTests() ? 10000 : 300;
    for (int round = 0; round < rounds; ++round) {
      Meet();
      for (int i = (round * 7 + static_cast<int>(self) * 13) % 50 * 20; i > 0; --i)
        std::atomic_signal_fence(std::memory_order_seq_cst);
      CFile file;
      const char* const name = self == 1 && round % 2 == 1 ? "File.Dat" : "FILE.DAT";
      state_->errors[self] = OpenError(&file, name, contenders_[self].flags);
      // Whoever has the file keeps it until both have tried.
      Meet();
      if (!IsRight()) return 1;
      round % 64 == 0 ? file.Close() : file.Abort();
      Meet();
      if (self == 0 && !fileExists_ && fs::remove("FILE.DAT") + fs::remove("File.Dat") > 1) return 2;
    }
    return 0;
  }

  bool IsRight() const {
    const auto [winner, loser] = std::minmax({state_->errors[0].load(), state_->errors[1].load()});
    const auto creators = std::count_if(contenders_.begin(), contenders_.end(),
                                        [](Contender c) { return (c.flags & CFile::modeCreate) != 0; });
    if (!fileExists_ && creators == 0) return winner == 2 && loser == 2;
    // Where only one creates the file, the other may come before it is there.
    if (!fileExists_ && creators == 1 && loser == 2) return winner == 0;
    return winner == 0 && loser == (Compatible(contenders_[0].flags, contenders_[1].flags) ? 0 : 32);
  }

  std::array<Contender, 2> contenders_;
  bool fileExists_;
  SharedMemory<State> state_;
};

// A process that holds a file open until it is killed.
class Holder {
 public:
  Holder(const char* name, UINT mode, uid_t user = geteuid())
      : process_([=, this] {
          if (user != geteuid()) BecomeUser(user);
          CFile file;
          if (!file.Open(name, mode)) return 1;
          *holds_ = true;
          return pause();
        }) {
    EXPECT_TRUE(support::WaitUntil([this] { return holds_->load(); }));
  }

  void Die() {
    process_.Kill();
    process_.Wait();
  }

 private:
  SharedMemory<std::atomic<bool>> holds_;
  Child process_;
};

class SharingTest : public testing::Test {
 protected:
  SharingTest() {
    fs::current_path(home_.Data());
    fs::permissions(".", fs::perms(0777));
    support::WriteFile("FILE.DAT", "content");
    fs::permissions("FILE.DAT", fs::perms(0644));
  }
  ~SharingTest() override { fs::current_path("/"); }

  static void ExpectExcluded(UINT held, const std::vector<UINT>& wantedModes) {
    for (const UINT wanted : wantedModes)
      EXPECT_EQ(OpenError("FILE.DAT", wanted), Compatible(held, wanted) ? 0 : 32) << held << ' ' << wanted;
  }

  support::TempHome home_;
};

class RaceTest : public SharingTest, public testing::WithParamInterface<UINT> {};

constexpr std::array kRacingModes = {kReadExclusive, kCreateExclusive, kUpdateExclusive,    kReadShared,
                                     kUpdateShared,  kCreateShared,    kCreateNothingDenied};

}  // namespace

TEST_F(SharingTest, OpeningSucceedsExactlyWhenAccessesMeetNoDenials) {
  std::vector<UINT> readingModes = AllModes();
  std::erase_if(readingModes, Writes);
  for (const UINT held : AllModes()) {
    CFile holder;
    ASSERT_EQ(OpenError(&holder, "FILE.DAT", held), 0);
    ExpectExcluded(held, AllModes());
    Elsewhere([&] { ExpectExcluded(held, AllModes()); });
    if (geteuid() == 0) Elsewhere([&] { ExpectExcluded(held, readingModes); }, kNobody);

    EXPECT_EQ(ErrorOf([] { CFile::Remove("FILE.DAT"); }), 32);
    EXPECT_EQ(ErrorOf([] { CFile::Rename("FILE.DAT", "OTHER.DAT"); }), 32);
    EXPECT_EQ(ErrorOf([] { CFile::Rename("FILE.DAT", "FILE.DAT"); }), 0);
  }
  if (geteuid() != 0) GTEST_SKIP() << "what follows needs two users";
  for (const UINT held : readingModes) {
    const Holder reader("FILE.DAT", held, kNobody);
    ExpectExcluded(held, AllModes());
    EXPECT_EQ(OpenError("FILE.DAT", kCreateExclusive), 32);
    EXPECT_EQ(ErrorOf([] { CFile::Remove("FILE.DAT"); }), 32);
  }
}

TEST_P(RaceTest, TwoOpenersAtTheSameMoment) {
  for (const Names& files : {Names{"FILE.DAT"}, Names{}}) {
    if (files.empty()) fs::remove("FILE.DAT");
    for (const UINT* other = std::find(kRacingModes.begin(), kRacingModes.end(), GetParam());
         other != kRacingModes.end(); ++other)
      Race({GetParam()}, {*other}, !files.empty()).Run();
    EXPECT_EQ(support::Names("."), files);
  }
}

INSTANTIATE_TEST_SUITE_P(EveryMode, RaceTest, testing::ValuesIn(kRacingModes));

TEST_F(SharingTest, TwoOpenersAtTheSameMomentOfWhomOneMayOnlyRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  const auto race = [](UINT nobodysMode, Contender other) { Race({nobodysMode, true}, other).Run(); };
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

// Many short openings, so that every step of one meets every step of another, and files come and go under the openers.
TEST_F(SharingTest, AHolderIsAloneAndHasTheFileOfTheNameWhateverOthersDo) {
  // In memory, where no waiting for a disk lies between the steps.
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
      Names names = support::Names(".");
      std::erase_if(names, [](const std::string& other) { return other[0] == '.'; });
      ASSERT_EQ(names.size(), 1U);
      ASSERT_EQ(support::ReadFile(names[0]), ContentOf(&file));
    }
    --*holders;
    if (commit) file.Close();
  };
  const auto work = [&](unsigned self) {
    std::mt19937 random(self);
    for (int i = support::LongTests() ? 1000000 : 20000; i > 0 && !HasFailure(); --i) {
      const char* const name = random() % 2 == 0 ? "FILE.DAT" : "file.dat";
      const auto choice = random() % 16;
      const LONG error = ErrorOf([&] {
        if (choice == 15) return CFile::Remove(name);
        if (choice == 14) return CFile::Rename(name, name);
        use(name,
            choice < 6    ? kCreateExclusive
            : choice < 12 ? kUpdateExclusive
                          : kReadExclusive,
            static_cast<unsigned>(random()), choice < 2);
      });
      EXPECT_TRUE(error == 0 || (choice >= 14 && (error == 2 || error == 32))) << error << " of choice " << choice;
    }
  };
  support::AtOnce(3, work);
  EXPECT_LE(support::Names(".").size(), 1u);
  fs::current_path("/");
}

TEST_F(SharingTest, HoldersThatDieHoldNothing) {
  Holder reader("FILE.DAT", kReadExclusive);
  Holder creator("NEW.DAT", kCreateExclusive);
  EXPECT_EQ(OpenError("FILE.DAT", kReadShared), 32);
  EXPECT_EQ(OpenError("new.dat", kCreateExclusive), 32);
  reader.Die();
  creator.Die();
  EXPECT_EQ(OpenError("FILE.DAT", kReadExclusive), 0);
  EXPECT_EQ(OpenError("new.dat", kCreateExclusive), 0);
}

TEST_F(SharingTest, WhatAnotherUserWasCreatingWhenKilledIsNobodys) {
  if (geteuid() != 0) GTEST_SKIP() << "needs three users";
  constexpr uid_t kOther = 65533;
  Holder holder("NEW.DAT", kCreateExclusive, kNobody);
  const auto create = [] { return OpenError("new.dat", kCreateExclusive); };
  const Names names = support::Names(".");
  const auto searchLater = [&] {
    fs::last_write_time(names[0], fs::file_time_type::clock::now() - std::chrono::hours(1));
    _finddata_t found;
    Elsewhere([&] { EXPECT_EQ(_findclose(_findfirst("*", &found)), 0); }, kOther);
  };
  Elsewhere([&] { EXPECT_EQ(create(), 32); }, kOther);
  searchLater();
  EXPECT_EQ(support::Names("."), names);

  holder.Die();
  fs::copy_file(names[0], "copy");
  Elsewhere([&] { EXPECT_EQ(create(), 0); }, kOther);
  EXPECT_EQ(support::Names("."), (Names{"FILE.DAT", "copy"}));

  fs::rename("copy", names[0]);
  searchLater();
  EXPECT_EQ(support::Names("."), Names{"FILE.DAT"});

  // The file may have its own name already.
  fs::rename("FILE.DAT", "NEW.DAT");
  fs::create_hard_link("NEW.DAT", names[0]);
  Elsewhere([] { EXPECT_EQ(ErrorOf([] { CFile::Rename("new.dat", "New.dat"); }), 0); }, kOther);
  EXPECT_EQ(support::Names("."), Names{"New.dat"});
}

TEST_F(SharingTest, DescriptorsDoNotLeak) {
  const auto useAll = [] {
    for (const UINT mode : kRacingModes) {
      for (const char* name : {"FILE.DAT", "file.dat", "MISSING.DAT", "NONE\\FILE.DAT", ".."}) {
        CFile holder;
        OpenError(&holder, name, mode);
        OpenError(name, mode);
      }
    }
    fs::remove("MISSING.DAT");
  };
  useAll();
  const std::size_t before = support::Names("/proc/self/fd").size();
  for (int i = 0; i < 100; ++i)
    useAll();
  EXPECT_EQ(support::Names("/proc/self/fd").size(), before);
}
