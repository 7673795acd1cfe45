// Share modes: between any two openers, in any order, from any process, also at the very same moment.
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "opening_modes.h"
#include "shared_memory.h"
#include "support/support.h"

namespace fs = std::filesystem;

namespace {

constexpr uid_t kNobody = 65534;

std::vector<UINT> AllModes() {
  std::vector<UINT> modes;
  for (const UINT access : {CFile::modeRead, CFile::modeWrite, CFile::modeReadWrite}) {
    for (const UINT share : {CFile::shareDenyNone, CFile::shareDenyWrite, CFile::shareExclusive}) {
      modes.push_back(access | share);
    }
  }
  return modes;
}

// Where two processes meet.
class Barrier {
 public:
  // False when the other one does not come.
  bool Wait() {
    const int round = round_.load();
    if (arrived_.fetch_add(1) == 1) {
      arrived_ = 0;
      ++round_;
      return true;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (round_.load() == round) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      sched_yield();
    }
    return true;
  }

 private:
  std::atomic<int> arrived_ = 0;
  std::atomic<int> round_ = 0;
};

struct Contender {
  UINT flags;
  bool asNobody = false;  // who may not write to the superuser's files
};

// Lets two processes open one file at the same moment, many times over. In the folder that is the current directory.
class Race {
 public:
  Race(Contender a, Contender b, bool fileExists) : contenders_{a, b}, fileExists_(fileExists) {}

  // What went wrong, if anything.
  std::string Run(int rounds) {
    support::Child first([&] { return Contend(0, rounds); });
    support::Child second([&] { return Contend(1, rounds); });
    const int firstStatus = first.Wait();
    const int secondStatus = second.Wait();
    if (firstStatus == 0 && secondStatus == 0) return {};
    return "modes " + std::to_string(contenders_[0].flags) + " and " + std::to_string(contenders_[1].flags) + ", " +
           (fileExists_ ? "existing" : "missing") + " file: results " + std::to_string(state_->errors[0]) + " and " +
           std::to_string(state_->errors[1]) + " in round " + std::to_string(state_->round);
  }

 private:
  struct State {
    Barrier barrier;
    std::array<std::atomic<LONG>, 2> errors;
    std::atomic<int> round;
  };

  int Contend(std::size_t self, int rounds) {
    if (contenders_[self].asNobody && setresuid(kNobody, kNobody, kNobody) != 0) return 2;
    for (int round = 0; round < rounds; ++round) {
      if (!state_->barrier.Wait()) return 3;
      for (int i = (round * 7 + static_cast<int>(self) * 13) % 50 * 20; i > 0; --i) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
      }
      CFile file;
      const char* const name = self == 1 && round % 2 == 1 ? "File.Dat" : "FILE.DAT";
      state_->errors[self] = OpenError(&file, name, contenders_[self].flags);
      // Whoever has the file keeps it until both have tried.
      if (!state_->barrier.Wait()) return 3;
      if (!IsRight()) return 1;
      if (round % 64 == 0) {
        file.Close();
      } else {
        file.Abort();
      }
      if (!state_->barrier.Wait()) return 3;
      if (self != 0) continue;
      state_->round = round;
      if (!fileExists_ && fs::remove("FILE.DAT") && fs::remove("File.Dat")) return 4;
      if (!fileExists_) fs::remove("File.Dat");
    }
    return 0;
  }

  bool IsRight() const {
    const LONG a = state_->errors[0];
    const LONG b = state_->errors[1];
    const bool compatible = Compatible(contenders_[0].flags, contenders_[1].flags);
    const bool aCreates = (contenders_[0].flags & CFile::modeCreate) != 0;
    const bool bCreates = (contenders_[1].flags & CFile::modeCreate) != 0;
    if (fileExists_ || (aCreates && bCreates)) {
      return compatible ? a == 0 && b == 0 : (a == 0 && b == 32) || (a == 32 && b == 0);
    }
    if (!aCreates && !bCreates) return a == 2 && b == 2;
    // One creates the file, which the other finds, or not yet.
    const LONG creator = aCreates ? a : b;
    const LONG other = aCreates ? b : a;
    return creator == 0 && (other == 2 || other == (compatible ? 0 : 32));
  }

  std::array<Contender, 2> contenders_;
  bool fileExists_;
  SharedMemory<State> state_;
};

class SharingTest : public testing::Test {
 protected:
  SharingTest() {
    fs::current_path(home_.Data());
    fs::permissions(home_.Data(), fs::perms(0755));
    support::WriteFile("FILE.DAT", "content");
    fs::permissions("FILE.DAT", fs::perms(0644));
  }
  ~SharingTest() override { fs::current_path("/"); }

  static std::vector<std::string> VisibleNames() {
    std::vector<std::string> names = support::Names(".");
    std::erase_if(names, [](const std::string& name) { return name[0] == '.'; });
    return names;
  }

  static void RaceAllPairs(bool fileExists) {
    const std::vector<UINT> modes = {kReadExclusive, kCreateExclusive, kUpdateExclusive,    kReadShared,
                                     kUpdateShared,  kCreateShared,    kCreateNothingDenied};
    for (std::size_t a = 0; a < modes.size(); ++a) {
      for (std::size_t b = a; b < modes.size(); ++b) {
        EXPECT_EQ(Race({modes[a]}, {modes[b]}, fileExists).Run(Rounds(300, 10000)), "");
      }
    }
  }

  support::TempHome home_;
};

}  // namespace

TEST_F(SharingTest, OpeningSucceedsExactlyWhenAccessesMeetNoDenials) {
  for (const UINT held : AllModes()) {
    CFile holder;
    ASSERT_EQ(OpenError(&holder, "FILE.DAT", held), 0);
    for (const UINT wanted : AllModes()) {
      EXPECT_EQ(OpenError("FILE.DAT", wanted), Compatible(held, wanted) ? 0 : 32) << held << ' ' << wanted;
    }
    const auto tryAll = [&](bool asNobody) {
      if (asNobody && setresuid(kNobody, kNobody, kNobody) != 0) return 255;
      int wrong = 0;
      for (const UINT wanted : AllModes()) {
        if (asNobody && Writes(wanted)) continue;
        wrong += OpenError("FILE.DAT", wanted) != (Compatible(held, wanted) ? 0 : 32);
      }
      return wrong;
    };
    EXPECT_EQ(support::Child([&] { return tryAll(false); }).Wait(), 0) << held;
    if (geteuid() == 0) {
      EXPECT_EQ(support::Child([&] { return tryAll(true); }).Wait(), 0) << held;
    }
  }
}

TEST_F(SharingTest, WhoMayOnlyReadExcludesAsWell) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  for (const UINT held : AllModes()) {
    if (Writes(held)) continue;
    SharedMemory<Barrier> barrier;
    support::Child reader([&] {
      CFile holder;
      if (setresuid(kNobody, kNobody, kNobody) != 0 || !holder.Open("FILE.DAT", held)) return 1;
      return barrier->Wait() && barrier->Wait() ? 0 : 2;
    });
    ASSERT_TRUE(barrier->Wait());
    for (const UINT wanted : AllModes()) {
      EXPECT_EQ(OpenError("FILE.DAT", wanted), Compatible(held, wanted) ? 0 : 32) << held << ' ' << wanted;
    }
    EXPECT_EQ(OpenError("FILE.DAT", kCreateExclusive), 32);
    EXPECT_THROW(CFile::Remove("FILE.DAT"), CFileException);
    barrier->Wait();
    EXPECT_EQ(reader.Wait(), 0);
  }
}

TEST_F(SharingTest, TwoOpenersOfAnExistingFileAtTheSameMoment) {
  RaceAllPairs(true);
  EXPECT_EQ(support::Names("."), std::vector<std::string>{"FILE.DAT"});
}

TEST_F(SharingTest, TwoOpenersOfAMissingFileAtTheSameMoment) {
  fs::remove("FILE.DAT");
  RaceAllPairs(false);
  EXPECT_EQ(support::Names("."), std::vector<std::string>{});
}

TEST_F(SharingTest, TwoOpenersAtTheSameMomentOfWhomOneMayOnlyRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  for (const fs::perms permissions : {fs::perms(0644), fs::perms(0444)}) {
    fs::permissions("FILE.DAT", permissions);
    for (const UINT mode : {kReadExclusive, kReadShared}) {
      EXPECT_EQ(Race({kReadExclusive, true}, {mode, true}, true).Run(Rounds(300, 10000)), "");
      EXPECT_EQ(Race({kReadExclusive, true}, {mode, false}, true).Run(Rounds(300, 10000)), "");
    }
    EXPECT_EQ(Race({kReadShared, true}, {kReadExclusive, false}, true).Run(Rounds(300, 10000)), "");
  }
  fs::permissions("FILE.DAT", fs::perms(0644));
  for (const UINT mode : {kUpdateExclusive, kUpdateShared}) {
    EXPECT_EQ(Race({kReadExclusive, true}, {mode, false}, true).Run(Rounds(300, 10000)), "");
    EXPECT_EQ(Race({kReadShared, true}, {mode, false}, true).Run(Rounds(300, 10000)), "");
  }
}

// Many short openings, so that every step of one meets every step of another, and files come and go under the openers.
TEST_F(SharingTest, AHolderIsAloneAndHasTheFileOfTheNameWhateverOthersDo) {
  // In memory, where no waiting for a disk lies between the steps.
  setenv("TMPDIR", "/dev/shm", 1);
  const support::TempFolder folder;
  fs::current_path(folder.Path());
  SharedMemory<std::atomic<int>> holders;
  // What was wrong, or null.
  const auto use = [&](const char* name, UINT mode, bool commit, const std::string& content) -> const char* {
    CFile file;
    const LONG error = OpenError(&file, name, mode);
    if (error == 32 || (error == 2 && mode == kReadExclusive)) return nullptr;
    if (error != 0) return "not opened";
    if (++*holders != 1) return "not alone";
    if (mode == kCreateExclusive) {
      file.Write(content.data(), static_cast<UINT>(content.size()));
    } else {
      std::string own(static_cast<std::size_t>(file.GetLength()), '\0');
      file.Read(own.data(), static_cast<UINT>(own.size()));
      const std::vector<std::string> names = VisibleNames();
      if (names.size() != 1 || support::ReadFile(names[0]) != own) return "not the file of the name";
    }
    --*holders;
    if (commit) file.Close();
    return nullptr;
  };
  const auto body = [&](int self) {
    std::minstd_rand random(static_cast<unsigned>(self) + 1);
    for (int i = 0; i < Rounds(20000, 1000000); ++i) {
      const char* const name = random() % 2 == 0 ? "FILE.DAT" : "file.dat";
      const auto choice = random() % 16;
      const UINT mode = choice < 6 ? kCreateExclusive : choice < 12 ? kUpdateExclusive : kReadExclusive;
      try {
        if (choice == 15) {
          CFile::Remove(name);
        } else if (choice == 14) {
          CFile::Rename(name, name);
        } else if (const char* wrong = use(name, mode, choice < 2, std::to_string(i * 3 + self)); wrong != nullptr) {
          fprintf(stderr, "%s\n", wrong);
          return 1;
        }
      } catch (const CFileException& failure) {
        if (choice < 14 || (failure.m_lOsError != 2 && failure.m_lOsError != 32)) return 2;
      }
    }
    return 0;
  };
  support::Child first([&] { return body(0); });
  support::Child second([&] { return body(1); });
  support::Child third([&] { return body(2); });
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_EQ(third.Wait(), 0);
  EXPECT_LE(support::Names(".").size(), 1u);
  fs::current_path("/");
}

TEST_F(SharingTest, HoldersThatDieHoldNothing) {
  SharedMemory<Barrier> barrier;
  support::Child holder([&] {
    CFile file;
    CFile second;
    if (!file.Open("FILE.DAT", kReadExclusive) || !second.Open("NEW.DAT", kCreateExclusive)) return 1;
    barrier->Wait();
    return pause();
  });
  ASSERT_TRUE(barrier->Wait());
  EXPECT_EQ(OpenError("FILE.DAT", kReadShared), 32);
  EXPECT_EQ(OpenError("new.dat", kCreateExclusive), 32);
  holder.Kill();
  holder.Wait();
  EXPECT_EQ(OpenError("FILE.DAT", kReadExclusive), 0);
  EXPECT_EQ(OpenError("new.dat", kCreateExclusive), 0);
}

TEST_F(SharingTest, WhatAnotherUserWasCreatingWhenKilledIsNobodys) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  constexpr uid_t kOther = 65533;
  fs::permissions(".", fs::perms(0777));
  SharedMemory<Barrier> barrier;
  support::Child holder([&] {
    CFile file;
    if (setresuid(kNobody, kNobody, kNobody) != 0 || !file.Open("NEW.DAT", kCreateExclusive)) return 1;
    file.Write("x", 1);
    barrier->Wait();
    return pause();
  });
  ASSERT_TRUE(barrier->Wait());
  const auto create = [] {
    if (setresuid(kOther, kOther, kOther) != 0) return 255;
    return static_cast<int>(OpenError("new.dat", kCreateExclusive));
  };
  EXPECT_EQ(support::Child(create).Wait(), 32);
  const std::vector<std::string> names = support::Names(".");
  const auto list = [] {
    _finddata_t found;
    return setresuid(kOther, kOther, kOther) == 0 && _findfirst("*", &found) != -1 ? 0 : 1;
  };
  const auto age = [&] { fs::last_write_time(names[0], fs::file_time_type::clock::now() - std::chrono::hours(1)); };
  age();
  EXPECT_EQ(support::Child(list).Wait(), 0);
  EXPECT_EQ(support::Names("."), names);
  holder.Kill();
  holder.Wait();
  fs::copy_file(names[0], "copy");
  EXPECT_EQ(support::Child(create).Wait(), 0);
  EXPECT_EQ(support::Names("."), (std::vector<std::string>{"FILE.DAT", "copy"}));

  fs::rename("copy", names[0]);
  age();
  EXPECT_EQ(support::Child(list).Wait(), 0);
  EXPECT_EQ(support::Names("."), std::vector<std::string>{"FILE.DAT"});
}

TEST_F(SharingTest, OpenFilesAreNeitherRemovedNorRenamed) {
  for (const UINT held : AllModes()) {
    CFile holder;
    ASSERT_EQ(OpenError(&holder, "FILE.DAT", held), 0);
    try {
      CFile::Remove("FILE.DAT");
      ADD_FAILURE() << "removed";
    } catch (const CFileException& failure) {
      EXPECT_EQ(failure.m_cause, CFileException::sharingViolation);
    }
    EXPECT_THROW(CFile::Rename("FILE.DAT", "OTHER.DAT"), CFileException);
    EXPECT_NO_THROW(CFile::Rename("FILE.DAT", "FILE.DAT"));
  }
}

TEST_F(SharingTest, DescriptorsDoNotLeak) {
  const auto count = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()); };
  const auto useAll = [] {
    for (const UINT mode : {kReadExclusive, kCreateExclusive, kUpdateExclusive, kReadShared, kCreateShared}) {
      for (const char* name : {"FILE.DAT", "file.dat", "MISSING.DAT", "NONE\\FILE.DAT", ".."}) {
        CFile holder;
        OpenError(&holder, name, mode);
        OpenError(name, mode);
      }
    }
    std::error_code ignored;
    fs::remove("MISSING.DAT", ignored);
  };
  useAll();
  const auto before = count();
  for (int i = 0; i < 100; ++i)
    useAll();
  EXPECT_EQ(count(), before);
}
