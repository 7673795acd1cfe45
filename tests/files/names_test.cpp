// What a path leads to: letter case, refused names, error numbers.
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "opening_modes.h"
#include "support/support.h"

namespace fs = std::filesystem;
using support::ReadFile;
using support::WriteFile;

namespace {

class NamesTest : public testing::Test {
 protected:
  NamesTest() { fs::current_path(home_.Home() / "work"); }
  ~NamesTest() override { fs::current_path("/"); }

  static std::string ContentOf(const std::string& path) {
    CFile file;
    if (const LONG error = OpenError(&file, path.c_str(), kReadShared); error != 0) return std::to_string(error);
    std::string content(static_cast<std::size_t>(file.GetLength()), '\0');
    content.resize(file.Read(content.data(), static_cast<UINT>(content.size())));
    return content;
  }

  static std::string Numbered(std::string name, int number) { return name.append(std::to_string(number)); }

  static LONG RenameError(const char* from, const char* to) {
    try {
      CFile::Rename(from, to);
      return 0;
    } catch (const CFileException& failure) {
      return failure.m_lOsError;
    }
  }

  static LONG RemoveError(const char* path) {
    try {
      CFile::Remove(path);
      return 0;
    } catch (const CFileException& failure) {
      return failure.m_lOsError;
    }
  }

  support::TempHome home_;
};

}  // namespace

TEST_F(NamesTest, RefusedAndMissingPathsHaveTheirNumbers) {
  fs::create_directories(home_.Data() / "Dir" / "Sub");
  WriteFile(home_.Data() / "Dir" / "A.TXT", "a");
  WriteFile("R.TXT", "r");
  const std::string longName(256, 'x');
  const struct {
    std::string path;
    LONG error;
  } cases[] = {
      {"D:\\Dir\\A.TXT", 0},
      {"d:/dir/a.txt", 0},
      {"D:\\Dir\\\\A.TXT", 0},
      {"D:\\Dir\\A.TXT. . ", 0},
      {"D:\\Dir. \\A.TXT", 0},
      {"D:Dir\\A.TXT", 0},
      {"D:\\Dir\\.\\A.TXT", 0},
      {"D:\\No\\..\\Dir\\A.TXT", 0},
      {"R.TXT", 0},
      {".\\No\\..\\r.txt", 0},
      {"D:\\Dir\\B.TXT", 2},
      {"B.TXT", 2},
      {"D:\\No\\A.TXT", 3},
      {"D:\\Dir\\A.TXT\\B", 3},
      {"E:\\A.TXT", 3},
      {"\\A.TXT", 3},
      {"\\\\host\\share\\A", 3},
      {"", 3},
      {"..\\A.TXT", 3},
      {"D:\\..\\A.TXT", 3},
      {"D:\\Dir\\..\\..\\data\\Dir\\A.TXT", 3},
      {"A\\..\\..\\R.TXT", 3},
      {"No\\", 3},
      {"D:\\Dir", 5},
      {"D:\\Dir\\", 5},
      {"D:\\", 5},
      {".", 5},
      {"D:\\Dir\\A*.TXT", 123},
      {"A?.TXT", 123},
      {"A<B", 123},
      {"A>B", 123},
      {"A\"B", 123},
      {"A|B", 123},
      {"AB:C", 123},
      {"1:\\A", 123},
      {"A\tB", 123},
      {"\x1f", 123},
      {"D:\\...\\A.TXT", 123},
      {" . ", 123},
      {"CON", 123},
      {"nul.txt", 123},
      {"D:\\Com1\\A", 123},
      {"lpt9 .x", 123},
      {"COM0", 2},
      {"CONS", 2},
      {".kestor-1", 123},
      {".KESTOR-1", 123},
      {longName, 206},
      {std::string(200, '\xE9'), 206},
  };
  for (const auto& c : cases)
    EXPECT_EQ(OpenError(c.path.c_str(), kReadShared), c.error) << c.path;
  EXPECT_EQ(OpenError("NEW.TXT", CFile::modeWrite | CFile::modeReadWrite), 87);
  EXPECT_EQ(OpenError("NEW.TXT", kUpdateExclusive | CFile::nameAsGiven), 87);
  EXPECT_EQ(GetFileAttributesA(nullptr), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(RemoveError(nullptr), 3);
  EXPECT_EQ(RenameError(nullptr, "NEW.TXT"), 3);
  EXPECT_EQ(RenameError("R.TXT", nullptr), 3);
}

TEST_F(NamesTest, ErrorNumbersHaveTheirCauses) {
  using E = CFileException;
  const std::vector<std::pair<DWORD, E::Cause>> cases = {
      {0, E::none},
      {2, E::fileNotFound},
      {3, E::badPath},
      {4, E::tooManyOpenFiles},
      {5, E::accessDenied},
      {6, E::invalidFile},
      {11, E::invalidFile},
      {17, E::badPath},
      {18, E::fileNotFound},
      {19, E::accessDenied},
      {25, E::badSeek},
      {31, E::generic},
      {32, E::sharingViolation},
      {33, E::lockViolation},
      {36, E::tooManyOpenFiles},
      {38, E::endOfFile},
      {39, E::diskFull},
      {80, E::accessDenied},
      {82, E::directoryFull},
      {112, E::diskFull},
      {123, E::badPath},
      {131, E::badSeek},
      {145, E::removeCurrentDir},
      {206, E::badPath},
      {1117, E::hardIO},
      {9999, E::generic},
  };
  for (const auto& [number, cause] : cases)
    EXPECT_EQ(E::OsErrorToException(number), cause) << number;
  E failure;
  CFile file;
  EXPECT_FALSE(file.Open("D:\\NONE.DAT", kReadShared, &failure));
  EXPECT_EQ(failure.m_strFileName, "D:\\NONE.DAT");
  EXPECT_EQ(failure.m_cause, E::fileNotFound);
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(NamesTest, LetterCaseDoesNotMatterInAnyComponent) {
  fs::create_directories(home_.Data() / "Relat\u00f3rios" / "ANO");
  const fs::path folder = home_.Data() / "Relat\u00f3rios" / "ANO";
  WriteFile(folder / "CT01\u00c9t\u00e9.rxl", "summer");
  EXPECT_EQ(ContentOf("D:\\RELAT\xD3RIOS\\ano\\ct01\xE9T\xC9.RXL"), "summer");

  CFile created;
  ASSERT_EQ(OpenError(&created, "d:\\relat\xF3rios\\Ano\\\x8Apela.dat", kCreateExclusive), 0);
  created.Close();
  EXPECT_EQ(support::Names(folder), (std::vector<std::string>{"CT01\u00c9t\u00e9.rxl", "\u0160pela.dat"}));
  std::string host;
  EXPECT_EQ(files::HostPath("D:\\RELAT\xD3RIOS\\ano\\\x9APELA.DAT", &host), 0u);
  EXPECT_TRUE(host.ends_with("/Relat\u00f3rios/ANO/\u0160pela.dat")) << host;
  EXPECT_EQ(files::HostPath("D:\\RELAT\xD3RIOS\\New\\x", &host), 0u);
  EXPECT_TRUE(host.ends_with("/Relat\u00f3rios/New/x")) << host;
}

TEST_F(NamesTest, TheExactNameWinsThenTheFirstInByteOrder) {
  WriteFile("name.dat", "third");
  WriteFile("NAME.dat", "first");
  WriteFile("NaMe.dat", "second");
  EXPECT_EQ(ContentOf("name.dat"), "third");
  EXPECT_EQ(ContentOf("NAME.DAT"), "first");
  fs::remove("NAME.dat");
  EXPECT_EQ(ContentOf("NAME.DAT"), "second");
}

TEST_F(NamesTest, ChangesOfOtherProcessesAreSeenAtOnce) {
  const auto change = [&](const std::function<void()>& body) {
    return support::Child([&] {
             body();
             return 0;
           }).Wait() == 0;
  };
  EXPECT_EQ(ContentOf("a.dat"), "2");
  ASSERT_TRUE(change([] { WriteFile("A.DAT", "1"); }));
  EXPECT_EQ(ContentOf("a.dat"), "1");
  ASSERT_TRUE(change([] { fs::rename("A.DAT", "A.dat"); }));
  EXPECT_EQ(ContentOf("a.DAT"), "1");
  ASSERT_TRUE(change([] { fs::rename("A.dat", "B.dat"); }));
  EXPECT_EQ(ContentOf("a.dat"), "2");
  EXPECT_EQ(ContentOf("b.DAT"), "1");
  ASSERT_TRUE(change([&] { fs::rename("B.dat", home_.Data() / "B.dat"); }));
  EXPECT_EQ(ContentOf("b.DAT"), "2");

  // A child process looks for itself, and takes no news away.
  EXPECT_EQ(support::Child([] {
              WriteFile("D.DAT", "d");
              return ContentOf("d.dat") == "d" ? 0 : 1;
            }).Wait(),
            0);
  EXPECT_EQ(ContentOf("d.dat"), "d");

  // More changes than the kernel keeps news of.
  ASSERT_TRUE(change([] {
    WriteFile("STAYING.DAT", "x");
    for (int i = 0; i < 9000; ++i) {
      fs::create_hard_link("STAYING.DAT", "PASSING.DAT");
      fs::remove("PASSING.DAT");
    }
    WriteFile("LAST.DAT", "last");
  }));
  EXPECT_EQ(ContentOf("last.dat"), "last");
  EXPECT_EQ(ContentOf("passing.dat"), "2");

  // Another folder of the same path.
  ASSERT_TRUE(change([&] {
    fs::rename(home_.Data(), home_.Data().string() + "-old");
    fs::create_directory(home_.Data());
    WriteFile(home_.Data() / "C.DAT", "c");
  }));
  EXPECT_EQ(ContentOf("D:\\c.dat"), "c");
  EXPECT_EQ(ContentOf("D:\\b.DAT"), "2");
}

TEST_F(NamesTest, FoldersThatCannotBeWatchedAreReadAnew) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a user of its own";
  fs::permissions(".", fs::perms(0777));
  const auto body = [] {
    constexpr uid_t kOther = 65533;
    if (setresuid(kOther, kOther, kOther) != 0) return 1;
    while (inotify_init() >= 0) {
    }
    for (int i = 0; i < 50; ++i) {
      const std::string name = Numbered("F", i) + ".DAT";
      const std::string otherCase = Numbered("f", i) + ".dat";
      if (ContentOf(otherCase) != "2") return 2;
      WriteFile(name, name);
      if (ContentOf(otherCase) != name) return 3;
      if (i % 2 == 0) fs::remove(name);
    }
    // A folder that has been left alone for a while is taken to be as it was read; until it changes.
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    if (ContentOf("f48.dat") != "2" || ContentOf("f49.dat") != "F49.DAT") return 4;
    fs::rename("F49.DAT", "F48.DAT");
    return ContentOf("f48.dat") == "F49.DAT" && ContentOf("f49.dat") == "2" ? 0 : 5;
  };
  EXPECT_EQ(support::Child(body).Wait(), 0);
}

TEST_F(NamesTest, ManyNamesComeAndGo) {
  constexpr int kNames = 600;
  for (int i = 0; i < kNames; ++i) {
    ASSERT_EQ(OpenError(Numbered("Name", i).c_str(), kUpdateExclusive), 0);
    if (i % 3 == 0) continue;
    ASSERT_EQ(RemoveError(Numbered("NAME", i).c_str()), 0);
  }
  for (int i = 0; i < kNames; ++i) {
    EXPECT_EQ(OpenError(Numbered("nAME", i).c_str(), kReadExclusive), i % 3 != 0 ? 2 : 0);
  }
  EXPECT_EQ(support::Names(".").size(), std::size_t{kNames / 3});
}

TEST_F(NamesTest, RenamingGivesTheLetterCaseOfThePath) {
  WriteFile("CT01VENDAS.RXL", "v");
  EXPECT_EQ(RenameError("CT01Vendas.RXL", "CT01Vendas.RXL"), 0);
  EXPECT_EQ(support::Names("."), std::vector<std::string>{"CT01Vendas.RXL"});
  EXPECT_EQ(RenameError("ct01vendas.rxl", "Other.rxl"), 0);
  EXPECT_EQ(ContentOf("OTHER.RXL"), "v");

  WriteFile("TAKEN.DAT", "t");
  fs::create_hard_link("Other.rxl", "LINK.DAT");
  fs::create_directory("DIR");
  EXPECT_EQ(RenameError("Other.rxl", "taken.dat"), 80);
  EXPECT_EQ(RenameError("Other.rxl", "link.dat"), 80);
  EXPECT_EQ(RenameError("Other.rxl", "dir"), 80);
  EXPECT_EQ(RenameError("MISSING.DAT", "X.DAT"), 2);
  EXPECT_EQ(RenameError("Other.rxl", "NONE\\X.DAT"), 3);
  EXPECT_EQ(RenameError("DIR", "X"), 5);
  EXPECT_EQ(RenameError("Other.rxl", "dir\\Moved.rxl"), 0);
  EXPECT_EQ(support::Names("DIR"), std::vector<std::string>{"Moved.rxl"});

  // A name that is being created is taken.
  CFile creator;
  ASSERT_EQ(OpenError(&creator, "COMING.DAT", kCreateExclusive), 0);
  EXPECT_EQ(RenameError("TAKEN.DAT", "Coming.dat"), 32);
}

TEST_F(NamesTest, ReadOnlyFilesAreReadAndRenamedOnly) {
  WriteFile("FIXED.DAT", "fixed");
  fs::permissions("FIXED.DAT", fs::perms(0444));
  EXPECT_EQ(GetFileAttributesA("fixed.dat"), FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(OpenError("FIXED.DAT", kReadExclusive), 0);
  for (const UINT mode : {kCreateExclusive, kUpdateExclusive, kUpdateShared, kCreateShared,
                          static_cast<UINT>(CFile::modeWrite), UINT{CFile::modeCreate}}) {
    EXPECT_EQ(OpenError("Fixed.dat", mode), 5) << mode;
  }
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
  for (const UINT mode :
       {kReadShared, kReadExclusive, static_cast<UINT>(CFile::modeWrite), kCreateExclusive, kUpdateExclusive}) {
    EXPECT_EQ(OpenError("DIR", mode), 5);
    EXPECT_EQ(OpenError("pipe", mode), 5);
  }
  EXPECT_EQ(RemoveError("dir"), 5);
  // Not even the name of a link that leads nowhere is free.
  for (const char* name : {"DANGLING", "dangling"}) {
    EXPECT_EQ(OpenError(name, kReadShared), 2);
    EXPECT_EQ(OpenError(name, kCreateExclusive), 5);
    EXPECT_EQ(OpenError(name, kUpdateExclusive), 5);
    EXPECT_EQ(RenameError("DIR\\REAL.DAT", name), 80);
  }
  EXPECT_EQ(support::Names("."), (std::vector<std::string>{"DANGLING", "DIR", "LINK.DAT", "PIPE"}));
  EXPECT_EQ(GetFileAttributesA("dir"), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetFileAttributesA("link.dat"), FILE_ATTRIBUTE_NORMAL);
  EXPECT_EQ(GetFileAttributesA("none"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetFileAttributesA("link.dat\\"), INVALID_FILE_ATTRIBUTES);

  CFile file;
  ASSERT_EQ(OpenError(&file, "Link.dat", kCreateExclusive | CFile::nameAsGiven), 0);
  file.Write("new", 3);
  EXPECT_EQ(OpenError("DIR\\REAL.DAT", kReadShared), 32);
  file.Close();
  EXPECT_TRUE(fs::is_symlink("LINK.DAT"));
  EXPECT_EQ(ReadFile("DIR/REAL.DAT"), "new");
  EXPECT_EQ(RemoveError("link.dat"), 0);
  EXPECT_TRUE(fs::exists("DIR/REAL.DAT"));
}
