// Content: what is on the disk while a file is written, afterwards, and when a step fails or the writer is killed.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>

#include "opening_modes.h"
#include "platform/host/fault_point.h"
#include "shared_memory.h"
#include "support/elsewhere.h"
#include "support/system_calls.h"

namespace fs = std::filesystem;
using support::ReadFile;
using support::SystemCalls;
using support::WriteFile;

namespace {

using Names = std::vector<std::string>;
using Steps = std::vector<std::string>;

constexpr char kPath[] = "D:\\Model.RXL";
constexpr char kOtherSpelling[] = "D:\\MODEL.RXL";
constexpr char kNewPath[] = "D:\\New.DAT";
constexpr UINT kCreateAsGiven = kCreateExclusive | files::nameAsGiven;
constexpr UINT kCreateNew = kCreateExclusive | files::mustBeNew;
constexpr UINT kUpdateWhole = CFile::modeReadWrite | CFile::shareExclusive | files::wholeUpdate;

std::map<std::string, int> refused;  // system calls that are not made, and the errno values that they give

void Save(const char* path, UINT mode, const std::string& content = "new") {
  CFile file;
  CFileException failure;
  if (!file.Open(path, mode, &failure)) throw failure;
  const auto half = static_cast<UINT>(content.size() / 2);
  file.Write(content.data(), half);
  file.Write(content.data() + half, static_cast<UINT>(content.size()) - half);
  file.Close();
}

// The error number of saving, while a step of it fails.
LONG SaveError(const char* path, UINT mode, const char* failing, int hostError) {
  const SystemCalls system(failing, hostError);
  return ErrorOf([&] { Save(path, mode); });
}

// A content that tells whether it is whole: as many letters as the first one says.
std::string Version(std::size_t number) {
  return std::string(1 + number % 26 * 4000, static_cast<char>('a' + number % 26));
}

class ReplacementTest : public testing::Test {
 protected:
  fs::path File() const { return home_.Data() / "Model.RXL"; }
  Names Files() const { return support::Names(home_.Data()); }

  support::TempHome home_;
};

}  // namespace

host::Fate host::FateOf(const char* call, std::size_t /*bytes*/) {
  const auto found = refused.find(call);
  return {.error = found == refused.end() ? 0 : found->second};
}

TEST_F(ReplacementTest, NothingIsSeenBeforeClose) {
  for (const Names& before : {Names{}, Names{"Model.RXL"}}) {
    if (!before.empty()) WriteFile(File(), "old");
    CFile file;
    ASSERT_EQ(OpenError(&file, kOtherSpelling, kCreateExclusive), 0);
    file.Write("new", 3);
    EXPECT_EQ(fs::exists(File()), !before.empty());
    EXPECT_EQ(OpenError(kPath, kUpdateExclusive), 32);
    file.Abort();
    EXPECT_EQ(Files(), before);
  }
  EXPECT_EQ(ReadFile(File()), "old");
  fs::permissions(File(), fs::perms(0640));
  Save(kOtherSpelling, kCreateExclusive);
  EXPECT_EQ(Files(), Names{"Model.RXL"});
  EXPECT_EQ(ReadFile(File()), "new");
  EXPECT_EQ(fs::status(File()).permissions(), fs::perms(0640));
}

TEST_F(ReplacementTest, AnUpdateCopiesTheFileWhenItIsFirstWrittenTo) {
  WriteFile(File(), "0123456789");
  const auto inode = [this] {
    struct stat status = {};
    EXPECT_EQ(stat(File().c_str(), &status), 0);
    return status.st_ino;
  };
  const ino_t old = inode();
  CFile file;
  ASSERT_EQ(OpenError(&file, kPath, kUpdateWhole), 0);
  EXPECT_EQ(ContentOf(&file), "0123456789");
  EXPECT_EQ(Files(), Names{"Model.RXL"});
  file.Close();
  support::Elsewhere([] {
    support::FillDisk(5);
    CFile full;
    ASSERT_EQ(OpenError(&full, kPath, kUpdateWhole), 0);
    EXPECT_EQ(ErrorOf([&] { full.Write("x", 1); }), 112);
    EXPECT_EQ(ContentOf(&full), "0123456789");
    EXPECT_EQ(ErrorOf([&] { full.Close(); }), 112);
  });
  EXPECT_EQ(Files(), Names{"Model.RXL"});
  EXPECT_EQ(inode(), old);

  for (const bool closes : {false, true}) {
    ASSERT_EQ(OpenError(&file, kOtherSpelling, kUpdateWhole), 0);
    file.Seek(3, CFile::begin);
    file.Write("xyz", 3);
    char behind = 0;
    EXPECT_EQ(file.Read(&behind, 1), 1U);
    EXPECT_EQ(behind, '6');
    EXPECT_EQ(ReadFile(File()), "0123456789");
    EXPECT_EQ(OpenError(kPath, kReadShared), 32);
    if (closes) file.Close();
    file.Abort();
  }
  EXPECT_EQ(ReadFile(File()), "012xyz6789");
  EXPECT_EQ(Files(), Names{"Model.RXL"});
  EXPECT_EQ(OpenError(kNewPath, kUpdateWhole), 2);
}

TEST_F(ReplacementTest, WhatMustBeNewReplacesNothing) {
  Save(kPath, kCreateNew, "old");
  EXPECT_EQ(OpenError(kOtherSpelling, kCreateNew), 80);
  CFile file;
  ASSERT_EQ(OpenError(&file, kPath, kReadExclusive), 0);
  EXPECT_EQ(OpenError(kPath, kCreateNew), 80);
  file.Close();
  for (const char* theirs : {"New.DAT", "NEW.dat"}) {
    ASSERT_EQ(OpenError(&file, kNewPath, kCreateNew), 0);
    file.Write("new", 3);
    WriteFile(home_.Data() / theirs, "theirs");
    EXPECT_EQ(ErrorOf([&] { file.Close(); }), 80);
    EXPECT_EQ(ReadFile(home_.Data() / theirs), "theirs");
    EXPECT_EQ(Files(), (Names{"Model.RXL", theirs}));
    fs::remove(home_.Data() / theirs);
  }
  EXPECT_EQ(ReadFile(File()), "old");
}

TEST_F(ReplacementTest, ContentComesBeforeItsNameAndTheFolderLast) {
  const struct {
    std::function<void()> action;
    Steps steps;
  } cases[] = {
      {[] { Save(kPath, kCreateExclusive); }, {"fsync file", "rename2 hidden Model.RXL", "fsync folder"}},
      {[] { Save(kOtherSpelling, kCreateExclusive); }, {"fsync file", "rename hidden Model.RXL", "fsync folder"}},
      {[] { Save(kOtherSpelling, kCreateAsGiven); },
       {"fsync file", "rename2 Model.RXL MODEL.RXL", "rename hidden MODEL.RXL", "fsync folder"}},
      {[] { Save(kPath, kUpdateExclusive); }, {"fdatasync file"}},
      {[] { Save(kNewPath, kUpdateExclusive); }, {"rename2 hidden New.DAT", "fsync file", "fsync folder"}},
      {[] { CFile::Rename(kNewPath, "D:\\Other.DAT"); },
       {"rename2 New.DAT Other.DAT", "fsync folder", "unlink hidden"}},
      {[] { CFile::Remove("D:\\Other.DAT"); }, {"unlink Other.DAT", "fsync folder"}},
  };
  for (const auto& [action, steps] : cases) {
    const SystemCalls system;
    action();
    EXPECT_EQ(system.Seen(), steps);
  }
  EXPECT_EQ(Files(), Names{"MODEL.RXL"});
}

TEST_F(ReplacementTest, StepsThatFailLeaveTheOldContentUnderTheOldName) {
  WriteFile(File(), "old");
  const std::pair<const char*, const char*> cases[] = {
      {kPath, "fsync file"},
      {kPath, "rename hidden Model.RXL"},
      {kOtherSpelling, "rename2 Model.RXL MODEL.RXL"},
      {kOtherSpelling, "rename hidden MODEL.RXL"},
      {kNewPath, "rename2 hidden New.DAT"},
  };
  for (const auto& [path, failing] : cases) {
    EXPECT_EQ(SaveError(path, kCreateAsGiven, failing, EIO), 1117) << failing;
    EXPECT_EQ(Files(), Names{"Model.RXL"}) << failing;
  }
  EXPECT_EQ(SaveError(kPath, kCreateExclusive, "lock", ENOLCK), 36);
  support::Elsewhere([] {
    support::FillDisk(1000);
    CFile file;
    ASSERT_EQ(OpenError(&file, kPath, kCreateExclusive), 0);
    EXPECT_EQ(ErrorOf([&] { file.Write(std::string(2000, 'x').data(), 2000); }), 112);
    EXPECT_EQ(ErrorOf([&] { file.Close(); }), 112);
    EXPECT_FALSE(file.IsOpen());
  });
  EXPECT_EQ(ReadFile(File()), "old");
  EXPECT_EQ(Files(), Names{"Model.RXL"});

  EXPECT_EQ(SaveError(kPath, kCreateExclusive, "fsync folder", ENOSPC), 112);
  EXPECT_EQ(ReadFile(File()), "new") << "all that failed is the last step";
  EXPECT_EQ(SaveError(kPath, kUpdateExclusive, "fdatasync file", EIO), 1117);

  // There are file systems that cannot refuse to replace a name.
  EXPECT_EQ(SaveError(kOtherSpelling, kCreateAsGiven, "rename2 Model.RXL MODEL.RXL", EINVAL), 0);
  EXPECT_EQ(SaveError(kNewPath, kCreateExclusive, "rename2 hidden New.DAT", EINVAL), 0);
  EXPECT_EQ(Files(), (Names{"MODEL.RXL", "New.DAT"}));
  // There the old name may be gone when it is to be removed.
  refused = {{"renameat2", EINVAL}, {"unlinkat", ENOENT}};
  EXPECT_EQ(ErrorOf([] { CFile::Rename(kNewPath, "D:\\Other.DAT"); }), 0);
  refused.clear();
}

// Where the file system cannot rename without replacing, a new file has its name and the hidden one for a moment. Here
// the hidden one stays, as it does when the writer is killed.
TEST_F(ReplacementTest, AHiddenNameOfTheFileItselfHindersNoWriter) {
  const std::function<void()> next[] = {
      [] { Save(kPath, kCreateExclusive); },
      [] { Save(kPath, kUpdateWhole); },
      [] { Save(kOtherSpelling, kCreateAsGiven); },
      [] { CFile::Rename(kPath, kOtherSpelling); },
      [] {
        CFile::Remove(kPath);
        Save(kPath, kCreateNew);
      },
  };
  for (const auto& action : next) {
    refused = {{"renameat2", EINVAL}, {"unlinkat", ENOENT}};
    EXPECT_EQ(ErrorOf([] { Save(kPath, kCreateNew); }), 0);
    EXPECT_EQ(Files().size(), 2U);
    refused.erase("unlinkat");
    EXPECT_EQ(OpenError(kPath, kCreateNew), 80);
    EXPECT_EQ(ErrorOf(action), 0) << &action - next;
    EXPECT_EQ(Files().size(), 1U);
    EXPECT_EQ(ReadFile(home_.Data() / Files().front()), "new");
    refused.clear();
    for (const std::string& name : Files())
      fs::remove(home_.Data() / name);
  }
}

TEST_F(ReplacementTest, KilledAtAnyInstantTheDiskHasAWholeVersion) {
  std::minstd_rand random(20);
  WriteFile(File(), Version(0));
  SharedMemory<std::atomic<int>> lastToSave;
  const int rounds = support::LongTests() ? 1000 : 60;
  for (int round = 1; round <= rounds; ++round) {
    support::Child writer([&] {
      for (std::size_t number = 0;; ++number) {
        Save(kPath, kCreateExclusive, Version(number));
        *lastToSave = round;
      }
      return 0;
    });
    // Every other writer is past its first version when it is killed, however slow the disk is.
    if (round % 2 == 0) {
      ASSERT_TRUE(support::WaitUntil([&] { return *lastToSave == round; }));
    }
    usleep(static_cast<useconds_t>(random() % 8000));
    writer.Kill();
    writer.Wait();
    const std::string content = ReadFile(File());
    EXPECT_TRUE(content == Version(static_cast<std::size_t>(content[0] - 'a'))) << content.size();
    _finddata_t found;
    const std::intptr_t search = _findfirst("D:\\*", &found);
    EXPECT_STREQ(found.name, "Model.RXL");
    EXPECT_EQ(_findnext(search, &found), -1);
    _findclose(search);
    ASSERT_FALSE(HasFailure()) << round;
  }
  Save(kPath, kCreateExclusive);
  EXPECT_EQ(Files(), Names{"Model.RXL"});
}

TEST_F(ReplacementTest, TheFileStaysWithItsGroupOrTheGroupLosesIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  constexpr uid_t kOwner = 65533;
  constexpr uid_t kWriter = 65534;
  constexpr gid_t kOwnersGroup = 65531;
  fs::permissions(home_.Data(), fs::perms(0777));
  fs::current_path(home_.Data());
  for (const bool isMember : {true, false}) {
    WriteFile(File(), "old");
    ASSERT_EQ(chown(File().c_str(), kOwner, kOwnersGroup), 0);
    fs::permissions(File(), fs::perms(0666));
    support::Elsewhere([&] {
      support::BecomeUser(kWriter, isMember ? std::vector{kOwnersGroup} : std::vector<gid_t>{});
      Save("Model.RXL", kCreateExclusive);
    });
    struct stat status = {};
    ASSERT_EQ(stat(File().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kWriter);
    EXPECT_EQ(status.st_gid, isMember ? kOwnersGroup : kWriter);
    EXPECT_EQ(status.st_mode & 0777, isMember ? 0666U : 0606U);
  }
  fs::current_path("/");
}

TEST_F(ReplacementTest, LeftoversAreNeverWrittenThrough) {
  // The hidden file of a killed writer, with another name that leads to it.
  CFile writer;
  ASSERT_EQ(OpenError(&writer, kPath, kCreateExclusive), 0);
  const fs::path hidden = home_.Data() / Files().at(0);
  writer.Abort();
  const fs::path precious = home_.Data() / "PRECIOUS";
  WriteFile(precious, "precious");
  fs::create_hard_link(precious, hidden);
  Save(kPath, kCreateExclusive);
  EXPECT_EQ(ReadFile(File()), "new");
  fs::create_symlink("PRECIOUS", hidden);
  EXPECT_NE(OpenError(kPath, kCreateExclusive), 0);
  EXPECT_EQ(ReadFile(precious), "precious");
}

TEST_F(ReplacementTest, FilesInPlace) {
  constexpr LONGLONG kFar = 3LL << 30;  // lengths and positions have 64 bits
  char buffer[16] = {};
  CFile file;
  ASSERT_EQ(OpenError(&file, kPath, kCreateShared), 0);
  EXPECT_TRUE(fs::exists(File()));
  EXPECT_EQ(file.Seek(kFar, CFile::begin), kFar);
  file.Write("0123456789", 10);
  EXPECT_EQ(file.GetLength(), ULONGLONG{kFar} + 10);
  EXPECT_EQ(file.Seek(-4, CFile::end), kFar + 6);
  EXPECT_EQ(file.Read(buffer, sizeof buffer), 4u);
  EXPECT_STREQ(buffer, "6789");
  file.SetLength(5);
  EXPECT_EQ(file.Seek(0, CFile::current), 5);
  for (const LONGLONG offset : {LONGLONG{-1}, LONGLONG{INT64_MIN}})
    EXPECT_EQ(ErrorOf([&] { file.Seek(offset, CFile::begin); }), 131) << offset;
  file.Close();
  EXPECT_EQ(ErrorOf([&] { file.GetLength(); }), 6);
  EXPECT_NO_THROW(file.Close());

  ASSERT_EQ(OpenError(&file, kPath, kReadShared), 0);
  EXPECT_EQ(ErrorOf([&] { file.Write("x", 1); }), 5);
  EXPECT_EQ(ErrorOf([&] { file.SetLength(1); }), 5);
  ASSERT_EQ(OpenError(&file, kPath, UINT{CFile::modeWrite}), 0);
  EXPECT_EQ(ErrorOf([&] { file.Read(buffer, 1); }), 5);
  ASSERT_EQ(OpenError(&file, kPath, kUpdateExclusive), 0);
  EXPECT_EQ(ContentOf(&file), std::string(5, '\0'));
  ASSERT_EQ(OpenError(&file, kPath, kCreateShared), 0);
  EXPECT_EQ(ContentOf(&file), "");
}
