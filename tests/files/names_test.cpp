// What a path leads to: letter case, refused names, error numbers.
#include <sys/inotify.h>
#include <sys/stat.h>

#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <thread>

#include "opening_modes.h"
#include "support/elsewhere.h"

namespace fs = std::filesystem;
using support::Elsewhere;
using support::ReadFile;
using support::WriteFile;
using Names = std::vector<std::string>;

namespace {

class NamesTest : public testing::Test {
 protected:
  NamesTest() { fs::current_path(home_.Home() / "work"); }
  ~NamesTest() override { fs::current_path("/"); }

  // Or the error number when it cannot be opened.
  static std::string Content(const std::string& path) {
    CFile file;
    const LONG error = OpenError(&file, path.c_str(), kReadShared);
    return error == 0 ? ContentOf(&file) : std::to_string(error);
  }

  static LONG RenameError(const char* from, const char* to) {
    return ErrorOf([&] { CFile::Rename(from, to); });
  }

  static LONG RemoveError(const char* path) {
    return ErrorOf([&] { CFile::Remove(path); });
  }

  support::TempHome home_;
};

}  // namespace

TEST_F(NamesTest, RefusedAndMissingPathsHaveTheirNumbers) {
  fs::create_directory(home_.Data() / "Dir");
  WriteFile(home_.Data() / "Dir" / "A.TXT", "a");
  WriteFile("R.TXT", "r");
  const std::map<LONG, Names> pathsOfErrors = {
      {0,
       {"D:\\Dir\\A.TXT", "d:/dir/a.txt", "D:\\Dir\\\\A.TXT", "D:\\Dir\\A.TXT. . ", "D:\\Dir. \\A.TXT", "D:Dir\\A.TXT",
        "D:\\Dir\\.\\A.TXT", "D:\\No\\..\\Dir\\A.TXT", "R.TXT", ".\\No\\..\\r.txt"}},
      {2, {"D:\\Dir\\B.TXT", "B.TXT", "COM0", "CONS"}},
      {3,
       {"D:\\No\\A.TXT", "D:\\Dir\\A.TXT\\B", "E:\\A.TXT", "\\A.TXT", "\\\\host\\share\\A", "", "..\\A.TXT",
        "D:\\..\\A.TXT", "D:\\Dir\\..\\..\\data\\Dir\\A.TXT", "A\\..\\..\\R.TXT", "No\\"}},
      {5, {"D:\\Dir", "D:\\Dir\\", "D:\\", "."}},
      {123,
       {"D:\\Dir\\A*.TXT", "A?.TXT", "A<B", "A>B", "A\"B", "A|B", "AB:C", "1:\\A", "A\tB", "\x1f", "D:\\...\\A.TXT",
        " . ", "CON", "nul.txt", "D:\\Com1\\A", "lpt9 .x", ".kestor-1", ".KESTOR-1"}},
      {206, {std::string(256, 'x'), std::string(200, '\xE9')}},
  };
  for (const auto& [error, paths] : pathsOfErrors) {
    for (const std::string& path : paths)
      EXPECT_EQ(OpenError(path.c_str(), kReadShared), error) << path;
  }
  EXPECT_EQ(OpenError("NEW.TXT", CFile::modeWrite | CFile::modeReadWrite), 87);
  for (const UINT flag : {files::nameAsGiven, files::mustBeNew, files::wholeUpdate})
    EXPECT_EQ(OpenError("NEW.TXT", kUpdateExclusive | flag), 87);
  EXPECT_EQ(RemoveError(nullptr), 3);
  CFileException failure;
  EXPECT_FALSE(CFile().Open("D:\\NONE.DAT", kReadShared, &failure));
  EXPECT_EQ(failure.m_strFileName, "D:\\NONE.DAT");
  EXPECT_EQ(failure.m_cause, CFileException::fileNotFound);
  EXPECT_EQ(CFileException::OsErrorToException(5), CFileException::accessDenied);
  EXPECT_EQ(CFileException::OsErrorToException(9999), CFileException::generic);
}

TEST_F(NamesTest, LetterCaseDoesNotMatterInAnyComponent) {
  const fs::path folder = home_.Data() / "Relat\u00f3rios" / "ANO";
  fs::create_directories(folder);
  WriteFile(folder / "CT01\u00c9t\u00e9.rxl", "summer");
  EXPECT_EQ(Content("D:\\RELAT\xD3RIOS\\ano\\ct01\xE9T\xC9.RXL"), "summer");

  EXPECT_EQ(OpenError("d:\\relat\xF3rios\\Ano\\\x8Apela.dat", kUpdateExclusive), 0);
  EXPECT_EQ(support::Names(folder), (Names{"CT01\u00c9t\u00e9.rxl", "\u0160pela.dat"}));
  std::string host;
  EXPECT_EQ(files::HostPath("D:\\RELAT\xD3RIOS\\ano\\New\\x", &host), 0u);
  EXPECT_TRUE(host.ends_with("/Relat\u00f3rios/ANO/New/x")) << host;

  // The exact name wins, then the first in byte order.
  for (const char* name : {"name.dat", "NAME.dat", "NaMe.dat"})
    WriteFile(name, name);
  EXPECT_EQ(Content("name.dat"), "name.dat");
  EXPECT_EQ(Content("NAME.DAT"), "NAME.dat");
  fs::remove("NAME.dat");
  EXPECT_EQ(Content("NAME.DAT"), "NaMe.dat");
}

TEST_F(NamesTest, ChangesOfOtherProcessesAreSeenAtOnce) {
  EXPECT_EQ(Content("a.dat"), "2");
  Elsewhere([] { WriteFile("A.DAT", "1"); });
  EXPECT_EQ(Content("a.dat"), "1");
  Elsewhere([] { fs::rename("A.DAT", "B.dat"); });
  EXPECT_EQ(Content("a.dat"), "2");
  EXPECT_EQ(Content("b.DAT"), "1");

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

  // Another folder of the same path.
  EXPECT_EQ(Content("D:\\c.dat"), "2");
  Elsewhere([&] {
    fs::rename(home_.Data(), home_.Data().string() + "-old");
    fs::create_directory(home_.Data());
    WriteFile(home_.Data() / "C.DAT", "c");
  });
  EXPECT_EQ(Content("D:\\c.dat"), "c");
}

TEST_F(NamesTest, FoldersThatCannotBeWatchedAreReadAnew) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a user of its own";
  fs::permissions(".", fs::perms(0777));
  constexpr uid_t kOther = 65533;
  const auto body = [] {
    while (inotify_init() >= 0) {
    }
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(Content("a.dat"), "2");
      WriteFile("A.DAT", "a");
      EXPECT_EQ(Content("a.dat"), "a");
      fs::remove("A.DAT");
    }
    // A folder that has been left alone for a while is taken to be as it was read; until it changes.
    WriteFile("A.DAT", "a");
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    EXPECT_EQ(Content("a.dat"), "a");
    fs::rename("A.DAT", "B.DAT");
    EXPECT_EQ(Content("b.dat"), "a");
    EXPECT_EQ(Content("a.dat"), "2");
  };
  Elsewhere(body, kOther);
}

TEST_F(NamesTest, ManyNamesComeAndGo) {
  constexpr int kNames = 600;
  const auto numbered = [](const char* name, int number) { return name + std::to_string(number); };
  for (int i = 0; i < kNames; ++i) {
    ASSERT_EQ(OpenError(numbered("Name", i).c_str(), kUpdateExclusive), 0);
    ASSERT_EQ(i % 3 != 0 ? RemoveError(numbered("NAME", i).c_str()) : 0, 0);
  }
  for (int i = 0; i < kNames; ++i)
    EXPECT_EQ(OpenError(numbered("nAME", i).c_str(), kReadExclusive), i % 3 != 0 ? 2 : 0);
}

TEST_F(NamesTest, RenamingGivesTheLetterCaseOfThePath) {
  WriteFile("CT01VENDAS.RXL", "v");
  EXPECT_EQ(RenameError("CT01Vendas.RXL", "CT01Vendas.RXL"), 0);
  EXPECT_EQ(support::Names("."), Names{"CT01Vendas.RXL"});
  EXPECT_EQ(RenameError("ct01vendas.rxl", "Other.rxl"), 0);

  WriteFile("TAKEN.DAT", "t");
  fs::create_hard_link("Other.rxl", "LINK.DAT");
  fs::create_directory("DIR");
  CFile creator;  // a name that is being created is taken
  ASSERT_EQ(OpenError(&creator, "COMING.DAT", kCreateExclusive), 0);
  const struct {
    const char* from;
    const char* to;
    LONG error;
  } cases[] = {{"Other.rxl", "taken.dat", 80},
               {"Other.rxl", "link.dat", 80},
               {"Other.rxl", "dir", 80},
               {"Other.rxl", "Coming.dat", 32},
               {"MISSING.DAT", "X.DAT", 2},
               {"Other.rxl", "NONE\\X.DAT", 3},
               {"DIR", "X", 5},
               {nullptr, "X", 3},
               {"Other.rxl", nullptr, 3},
               {"other.rxl", "dir\\Moved.rxl", 0}};
  for (const auto& c : cases)
    EXPECT_EQ(RenameError(c.from, c.to), c.error) << testing::PrintToString(c.to);
  EXPECT_EQ(ReadFile("DIR/Moved.rxl"), "v");
}

TEST_F(NamesTest, ReadOnlyFilesAreReadAndRenamedOnly) {
  WriteFile("FIXED.DAT", "fixed");
  fs::permissions("FIXED.DAT", fs::perms(0444));
  EXPECT_EQ(GetFileAttributesA("fixed.dat"), FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(OpenError("FIXED.DAT", kReadExclusive), 0);
  for (const UINT mode : {kCreateExclusive, kUpdateExclusive, kUpdateShared, UINT{CFile::modeWrite}})
    EXPECT_EQ(OpenError("Fixed.dat", mode), 5) << mode;
  EXPECT_EQ(RemoveError("FIXED.DAT"), 5);
  EXPECT_EQ(RenameError("FIXED.DAT", "Other.dat"), 0);
  EXPECT_EQ(ReadFile("Other.dat"), "fixed");
}

TEST_F(NamesTest, WhatIsNoFileIsNotOpenedAndLinksAreFollowed) {
  fs::create_directory("DIR");
  ASSERT_EQ(mkfifo("PIPE", 0666), 0);
  WriteFile("DIR/REAL.DAT", "old");
  fs::create_symlink("DIR/REAL.DAT", "LINK.DAT");
  fs::create_symlink("NOWHERE", "DANGLING");
  for (const UINT mode : {kReadShared, kReadExclusive, UINT{CFile::modeWrite}, kCreateExclusive, kUpdateExclusive}) {
    EXPECT_EQ(OpenError("DIR", mode), 5);
    EXPECT_EQ(OpenError("pipe", mode), 5);
    // Not even the name of a link that leads nowhere is free.
    EXPECT_EQ(OpenError("dangling", mode), (mode & CFile::modeCreate) != 0 ? 5 : 2);
  }
  EXPECT_EQ(RemoveError("dir"), 5);
  EXPECT_EQ(RenameError("DIR\\REAL.DAT", "dangling"), 80);
  EXPECT_EQ(support::Names("."), (Names{"DANGLING", "DIR", "LINK.DAT", "PIPE"}));
  EXPECT_EQ(GetFileAttributesA("dir"), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetFileAttributesA("link.dat"), FILE_ATTRIBUTE_NORMAL);
  for (const char* path : {static_cast<const char*>(nullptr), "none", "link.dat\\"})
    EXPECT_EQ(GetFileAttributesA(path), INVALID_FILE_ATTRIBUTES);

  CFile file;
  ASSERT_EQ(OpenError(&file, "Link.dat", kCreateExclusive | files::nameAsGiven), 0);
  file.Write("new", 3);
  EXPECT_EQ(OpenError("DIR\\REAL.DAT", kReadShared), 32);
  file.Close();
  EXPECT_TRUE(fs::is_symlink("LINK.DAT"));
  EXPECT_EQ(ReadFile("DIR/REAL.DAT"), "new");
  EXPECT_EQ(RemoveError("link.dat"), 0);
  EXPECT_TRUE(fs::exists("DIR/REAL.DAT"));
}
