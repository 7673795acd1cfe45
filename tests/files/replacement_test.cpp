// Content: what is on the disk while a file is written, afterwards, and when a step fails.
#include <sys/stat.h>

#include <cerrno>

#include "fixture.h"
#include "support/system_calls.h"

using support::SystemCalls;

namespace {

using ReplacementTest = FilesTest;
using Steps = std::vector<std::string>;

constexpr char kFile[] = "Model.RXL";
constexpr char kOtherSpelling[] = "MODEL.RXL";
constexpr char kNewFile[] = "New.DAT";
constexpr UINT kCreateAsGiven = kCreateExclusive | files::nameAsGiven;
constexpr UINT kCreateNew = kCreateExclusive | files::mustBeNew;
constexpr UINT kUpdateWhole = CFile::modeReadWrite | CFile::shareExclusive | files::wholeUpdate;

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

TEST_F(ReplacementTest, NothingIsSeenBeforeClose) {
  for (const Names& before : {Names{}, Names{kFile}}) {
    if (!before.empty()) WriteFile(kFile, "old");
    CFile file;
    ASSERT_EQ(OpenError(&file, kOtherSpelling, kCreateExclusive), 0);
    file.Write("new", 3);
    EXPECT_EQ(fs::exists(kFile), !before.empty());
    EXPECT_EQ(OpenError(kFile, kUpdateExclusive), 32);
    file.Abort();
    EXPECT_EQ(Here(), before);
  }
  EXPECT_EQ(ReadFile(kFile), "old");
  fs::permissions(kFile, fs::perms(0640));
  Save(kOtherSpelling, kCreateExclusive);
  EXPECT_EQ(Here(), Names{kFile});
  EXPECT_EQ(ReadFile(kFile), "new");
  EXPECT_EQ(fs::status(kFile).permissions(), fs::perms(0640));
}

TEST_F(ReplacementTest, AnUpdateCopiesTheFileWhenItIsFirstWrittenTo) {
  WriteFile(kFile, "0123456789");
  fs::create_hard_link(kFile, "LINK");  // still leads to the old file when that is replaced
  CFile file;
  ASSERT_EQ(OpenError(&file, kFile, kUpdateWhole), 0);
  EXPECT_EQ(ContentOf(&file), "0123456789");
  EXPECT_EQ(Here(), (Names{"LINK", kFile}));
  file.Close();
  Elsewhere([] {
    support::FillDisk(5);
    for (const UINT mode : {kCreateExclusive, kUpdateWhole}) {
      CFile full;
      ASSERT_EQ(OpenError(&full, kFile, mode), 0);
      EXPECT_EQ(ErrorOf([&] { full.Write("abcdefgh", 8); }), 112);
      EXPECT_TRUE(mode == kCreateExclusive || ContentOf(&full) == "0123456789");
      EXPECT_EQ(ErrorOf([&] { full.Close(); }), 112);
      EXPECT_FALSE(full.IsOpen());
    }
  });
  EXPECT_EQ(Here(), (Names{"LINK", kFile}));
  EXPECT_TRUE(fs::equivalent("LINK", kFile));
  for (const bool closes : {false, true}) {
    ASSERT_EQ(OpenError(&file, kOtherSpelling, kUpdateWhole), 0);
    file.Seek(3, CFile::begin);
    file.Write("xyz", 3);
    char behind = 0;
    EXPECT_EQ(file.Read(&behind, 1), 1U);
    EXPECT_EQ(behind, '6');
    EXPECT_EQ(ReadFile(kFile), "0123456789");
    EXPECT_EQ(OpenError(kFile, kReadShared), 32);
    if (closes) file.Close();
    file.Abort();
  }
  EXPECT_EQ(ReadFile(kFile), "012xyz6789");
  EXPECT_EQ(Here(), (Names{"LINK", kFile}));
  EXPECT_EQ(OpenError(kNewFile, kUpdateWhole), 2);
}

TEST_F(ReplacementTest, WhatMustBeNewReplacesNothing) {
  Save(kFile, kCreateNew, "old");
  EXPECT_EQ(OpenError(kOtherSpelling, kCreateNew), 80);
  CFile file;
  ASSERT_EQ(OpenError(&file, kFile, kReadExclusive), 0);
  EXPECT_EQ(OpenError(kFile, kCreateNew), 80);
  file.Close();
  for (const char* theirs : {kNewFile, "NEW.dat"}) {
    ASSERT_EQ(OpenError(&file, kNewFile, kCreateNew), 0);
    file.Write("new", 3);
    WriteFile(theirs, "theirs");
    EXPECT_EQ(ErrorOf([&] { file.Close(); }), 80);
    EXPECT_EQ(ReadFile(theirs), "theirs");
    EXPECT_EQ(Here(), (Names{kFile, theirs}));
    fs::remove(theirs);
  }
  EXPECT_EQ(ReadFile(kFile), "old");
}

TEST_F(ReplacementTest, ContentComesBeforeItsNameAndTheFolderLast) {
  const std::pair<std::function<void()>, Steps> cases[] = {
      {[] { Save(kFile, kCreateExclusive); }, {"fsync file", "rename2 hidden Model.RXL", "fsync folder"}},
      {[] { Save(kOtherSpelling, kCreateExclusive); }, {"fsync file", "rename hidden Model.RXL", "fsync folder"}},
      {[] { Save(kOtherSpelling, kCreateAsGiven); },
       {"fsync file", "rename2 Model.RXL MODEL.RXL", "rename hidden MODEL.RXL", "fsync folder"}},
      {[] { Save(kFile, kUpdateExclusive); }, {"fdatasync file"}},
      {[] { Save(kNewFile, kUpdateExclusive); }, {"rename2 hidden New.DAT", "fsync file", "fsync folder"}},
      {[] { CFile::Rename(kNewFile, "Other.DAT"); }, {"rename2 New.DAT Other.DAT", "fsync folder", "unlink hidden"}},
      {[] { CFile::Remove("Other.DAT"); }, {"unlink Other.DAT", "fsync folder"}},
  };
  for (const auto& [action, steps] : cases) {
    const SystemCalls system;
    action();
    EXPECT_EQ(system.Seen(), steps);
  }
  EXPECT_EQ(Here(), Names{kOtherSpelling});
}

TEST_F(ReplacementTest, StepsThatFailLeaveTheOldContentUnderTheOldName) {
  WriteFile(kFile, "old");
  const std::pair<const char*, const char*> cases[] = {{kFile, "fsync file"},
                                                       {kFile, "rename hidden Model.RXL"},
                                                       {kOtherSpelling, "rename2 Model.RXL MODEL.RXL"},
                                                       {kOtherSpelling, "rename hidden MODEL.RXL"},
                                                       {kNewFile, "rename2 hidden New.DAT"}};
  for (const auto& [path, failing] : cases) {
    EXPECT_EQ(SaveError(path, kCreateAsGiven, failing, EIO), 1117) << failing;
    EXPECT_EQ(Here(), Names{kFile}) << failing;
  }
  EXPECT_EQ(SaveError(kFile, kCreateExclusive, "lock", ENOLCK), 36);
  EXPECT_EQ(ReadFile(kFile), "old");
  EXPECT_EQ(Here(), Names{kFile});

  EXPECT_EQ(SaveError(kFile, kCreateExclusive, "fsync folder", ENOSPC), 112);
  EXPECT_EQ(ReadFile(kFile), "new") << "all that failed is the last step";
  EXPECT_EQ(SaveError(kFile, kUpdateExclusive, "fdatasync file", EIO), 1117);

  // There are file systems that cannot refuse to replace a name.
  EXPECT_EQ(SaveError(kOtherSpelling, kCreateAsGiven, "rename2", EINVAL), 0);
  EXPECT_EQ(SaveError(kNewFile, kCreateExclusive, "rename2", EINVAL), 0);
  EXPECT_EQ(Here(), (Names{kOtherSpelling, kNewFile}));
  // There the old name may be gone when it is to be removed.
  const SystemCalls system({{"rename2", EINVAL}, {"unlink", ENOENT}});
  EXPECT_EQ(RenameError(kNewFile, "Other.DAT"), 0);
}

// Where the file system cannot rename without replacing, a new file has its name and the hidden one for a moment. Here
// the hidden one stays, as it does when the writer is killed.
TEST_F(ReplacementTest, AHiddenNameOfTheFileItselfHindersNoWriter) {
  const std::function<void()> next[] = {
      [] { Save(kFile, kCreateExclusive); },
      [] { Save(kFile, kUpdateWhole); },
      [] { Save(kOtherSpelling, kCreateAsGiven); },
      [] { CFile::Rename(kFile, kOtherSpelling); },
      [] { CFile::Remove(kFile), Save(kFile, kCreateNew); },
  };
  for (const auto& action : next) {
    {
      const SystemCalls system({{"rename2", EINVAL}, {"unlink", ENOENT}});
      EXPECT_EQ(ErrorOf([] { Save(kFile, kCreateNew); }), 0);
    }
    EXPECT_EQ(Here().size(), 2U);
    const SystemCalls system("rename2", EINVAL);
    EXPECT_EQ(OpenError(kFile, kCreateNew), 80);
    EXPECT_EQ(ErrorOf(action), 0) << &action - next;
    ASSERT_EQ(Here().size(), 1U);
    EXPECT_EQ(ReadFile(Here().front()), "new");
    fs::remove(Here().front());
  }
}

TEST_F(ReplacementTest, TheFileStaysWithItsGroupOrTheGroupLosesIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  constexpr gid_t kGroup = 65531;
  for (const bool isMember : {true, false}) {
    WriteFile(kFile, "old");
    ASSERT_EQ(chown(kFile, kOther, kGroup), 0);
    fs::permissions(kFile, fs::perms(0666));
    Elsewhere([&] {
      support::BecomeUser(kNobody, isMember ? std::vector{kGroup} : std::vector<gid_t>{});
      Save(kFile, kCreateExclusive);
    });
    struct stat status {};
    ASSERT_EQ(stat(kFile, &status), 0);
    EXPECT_EQ(status.st_uid, kNobody);
    EXPECT_EQ(status.st_gid, isMember ? kGroup : kNobody);
    EXPECT_EQ(status.st_mode & 0777, isMember ? 0666U : 0606U);
  }
}

TEST_F(ReplacementTest, LeftoversAreNeverWrittenThrough) {
  // The hidden file of a killed writer, with another name that leads to it.
  CFile writer;
  ASSERT_EQ(OpenError(&writer, kFile, kCreateExclusive), 0);
  const std::string hidden = Here().at(0);
  writer.Abort();
  WriteFile("PRECIOUS", "precious");
  fs::create_hard_link("PRECIOUS", hidden);
  Save(kFile, kCreateExclusive);
  EXPECT_EQ(ReadFile(kFile), "new");
  fs::create_symlink("PRECIOUS", hidden);
  EXPECT_NE(OpenError(kFile, kCreateExclusive), 0);
  EXPECT_EQ(ReadFile("PRECIOUS"), "precious");
}

TEST_F(ReplacementTest, FilesInPlace) {
  constexpr LONGLONG kFar = 3LL << 30;  // lengths and positions have 64 bits
  char buffer[16] = {};
  CFile file;
  ASSERT_EQ(OpenError(&file, kFile, kCreateShared), 0);
  EXPECT_TRUE(fs::exists(kFile));
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

  ASSERT_EQ(OpenError(&file, kFile, kReadShared), 0);
  EXPECT_EQ(ErrorOf([&] { file.Write("x", 1); }), 5);
  EXPECT_EQ(ErrorOf([&] { file.SetLength(1); }), 5);
  ASSERT_EQ(OpenError(&file, kFile, UINT{CFile::modeWrite}), 0);
  EXPECT_EQ(ErrorOf([&] { file.Read(buffer, 1); }), 5);
  ASSERT_EQ(OpenError(&file, kFile, kUpdateExclusive), 0);
  EXPECT_EQ(ContentOf(&file), std::string(5, '\0'));
  ASSERT_EQ(OpenError(&file, kFile, kCreateShared), 0);
  EXPECT_EQ(ContentOf(&file), "");
}

}  // namespace
