// What a path leads to: letter case, refused names, error numbers, wild-card search.
#include <sys/inotify.h>
#include <sys/stat.h>

#include <chrono>
#include <map>
#include <thread>

#include "fixture.h"

namespace {

using NamesTest = FilesTest;

// Or the error number when it cannot be opened.
std::string Content(const std::string& path) {
  CFile file;
  const LONG error = OpenError(&file, path.c_str(), kReadShared);
  return error == 0 ? ContentOf(&file) : std::to_string(error);
}

// Folders with a slash in front.
Names Find(const std::string& pattern) {
  Names names;
  _finddata_t found;
  const std::intptr_t search = _findfirst(pattern.c_str(), &found);
  for (bool isThere = search != -1; isThere; isThere = _findnext(search, &found) == 0)
    names.push_back((found.attrib == FILE_ATTRIBUTE_DIRECTORY ? "/" : "") + std::string(found.name));
  if (search != -1) _findclose(search);
  return names;
}

void Make(const Names& names) {
  for (const std::string& name : names)
    WriteFile(name, name);
}

TEST_F(NamesTest, RefusedAndMissingPathsHaveTheirNumbers) {
  fs::create_directory("Dir");
  Make({"Dir/A.TXT", "R.TXT"});
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
  for (const UINT flags : {UINT{CFile::modeWrite | CFile::modeReadWrite}, kUpdateExclusive | files::nameAsGiven,
                           kUpdateExclusive | files::mustBeNew, kUpdateExclusive | files::wholeUpdate})
    EXPECT_EQ(OpenError("NEW.TXT", flags), 87) << flags;
  EXPECT_EQ(RemoveError(nullptr), 3);
  CFileException failure;
  EXPECT_FALSE(CFile().Open("D:\\NONE.DAT", kReadShared, &failure));
  EXPECT_EQ(failure.m_strFileName, "D:\\NONE.DAT");
  EXPECT_EQ(failure.m_cause, CFileException::fileNotFound);
  EXPECT_EQ(CFileException::OsErrorToException(5), CFileException::accessDenied);
  EXPECT_EQ(CFileException::OsErrorToException(9999), CFileException::generic);
}

TEST_F(NamesTest, LetterCaseDoesNotMatterInAnyComponent) {
  fs::create_directories("Relat\u00f3rios/ANO");
  WriteFile("Relat\u00f3rios/ANO/CT01\u00c9t\u00e9.rxl", "summer");
  EXPECT_EQ(Content("D:\\RELAT\xD3RIOS\\ano\\ct01\xE9T\xC9.RXL"), "summer");
  EXPECT_EQ(OpenError("d:\\relat\xF3rios\\Ano\\\x8Apela.dat", kUpdateExclusive), 0);
  EXPECT_EQ(support::Names("Relat\u00f3rios/ANO"), (Names{"CT01\u00c9t\u00e9.rxl", "\u0160pela.dat"}));
  std::string host;
  EXPECT_EQ(files::HostPath("D:\\RELAT\xD3RIOS\\ano\\New\\x", &host), 0u);
  EXPECT_TRUE(host.ends_with("/Relat\u00f3rios/ANO/New/x")) << host;

  // The exact name wins, then the first in byte order.
  Make({"name.dat", "NAME.dat", "NaMe.dat"});
  EXPECT_EQ(Content("name.dat"), "name.dat");
  EXPECT_EQ(Content("NAME.DAT"), "NAME.dat");
  fs::remove("NAME.dat");
  EXPECT_EQ(Content("NAME.DAT"), "NaMe.dat");
}

TEST_F(NamesTest, ChangesOfOtherProcessesAreSeenAtOnce) {
  EXPECT_EQ(Content("a.dat"), "2");
  Elsewhere([] { Make({"A.DAT"}); });
  EXPECT_EQ(Content("a.dat"), "A.DAT");
  Elsewhere([] { fs::rename("A.DAT", "B.dat"); });
  EXPECT_EQ(Content("a.dat"), "2");
  EXPECT_EQ(Content("b.DAT"), "A.DAT");

  // A child process looks for itself, and takes no news away.
  Elsewhere([] {
    Make({"D.DAT"});
    EXPECT_EQ(Content("d.dat"), "D.DAT");
  });
  EXPECT_EQ(Content("d.dat"), "D.DAT");

  // More changes than the kernel keeps news of.
  Elsewhere([] {
    for (int i = 0; i < 9000; ++i) {
      fs::create_hard_link("D.DAT", "PASSING.DAT");
      fs::remove("PASSING.DAT");
    }
    Make({"LAST.DAT"});
  });
  EXPECT_EQ(Content("last.dat"), "LAST.DAT");
  EXPECT_EQ(Content("passing.dat"), "2");
}

TEST_F(NamesTest, FoldersThatCannotBeWatchedAreReadAnew) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a user of its own";
  const auto body = [] {
    while (inotify_init() >= 0) {
    }
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(Content("a.dat"), "2");
      Make({"A.DAT"});
      EXPECT_EQ(Content("a.dat"), "A.DAT");
      fs::remove("A.DAT");
    }
    // A folder that has been left alone for a while is taken to be as it was read; until it changes.
    Make({"A.DAT"});
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    EXPECT_EQ(Content("a.dat"), "A.DAT");
    fs::rename("A.DAT", "B.DAT");
    EXPECT_EQ(Content("b.dat"), "A.DAT");
    EXPECT_EQ(Content("a.dat"), "2");
  };
  Elsewhere(body, kOther);
}

TEST_F(NamesTest, RenamingGivesTheLetterCaseOfThePath) {
  WriteFile("CT01VENDAS.RXL", "v");
  EXPECT_EQ(RenameError("CT01Vendas.RXL", "CT01Vendas.RXL"), 0);
  EXPECT_EQ(Here(), Names{"CT01Vendas.RXL"});
  EXPECT_EQ(RenameError("ct01vendas.rxl", "Other.rxl"), 0);

  Make({"TAKEN.DAT"});
  fs::create_hard_link("Other.rxl", "LINK.DAT");
  fs::create_directory("DIR");
  CFile creator;  // a name that is being created is taken
  ASSERT_EQ(OpenError(&creator, "COMING.DAT", kCreateExclusive), 0);
  const std::tuple<const char*, const char*, LONG> cases[] = {{"Other.rxl", "taken.dat", 80},
                                                              {"Other.rxl", "link.dat", 80},
                                                              {"Other.rxl", "dir", 80},
                                                              {"Other.rxl", "Coming.dat", 32},
                                                              {"MISSING.DAT", "X.DAT", 2},
                                                              {"Other.rxl", "NONE\\X.DAT", 3},
                                                              {"DIR", "X", 5},
                                                              {nullptr, "X", 3},
                                                              {"Other.rxl", nullptr, 3},
                                                              {"other.rxl", "dir\\Moved.rxl", 0}};
  for (const auto& [from, to, error] : cases)
    EXPECT_EQ(RenameError(from, to), error) << testing::PrintToString(to);
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
  EXPECT_EQ(Here(), (Names{"DANGLING", "DIR", "LINK.DAT", "PIPE"}));
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

TEST_F(NamesTest, SearchesFindWhatAPathLeadsToInTheOrderOfTheDesktopsFileSystem) {
  Make({"CT01Vendas.RXL", "ct01Compras.rxl", "CT01.RXL", "CT02Outro.RXL", "CT01Vendas.v2.RXL", "CT01x.RXLS", "CT01"});
  Make({"ct01\u00e9t\u00e9.rxl", "CT0", std::string(250, 'x')});
  Make({"b", "A", "a_", "aZ", "\u0160", "\u00e9", "E", "z", "\u00c9a", "AA"});
  Make({"\u0416.dat", "\xFF.dat", "a:b.dat", "dot.", "nul.dat", ".kestor-x"});
  fs::create_directory("CT01folder.RXL");
  fs::create_directory(".kestor-folder");
  fs::create_symlink("b", "link");
  fs::create_symlink("nothing", "dangling");
  const std::vector<std::pair<std::string, Names>> cases = {
      {"CT01*.RXL",
       {"CT01.RXL", "ct01Compras.rxl", "/CT01folder.RXL", "CT01Vendas.RXL", "CT01Vendas.v2.RXL", "ct01\xE9t\xE9.rxl"}},
      {"ct01\xC9*", {"ct01\xE9t\xE9.rxl"}},
      {"CT01?endas.rxl", {"CT01Vendas.RXL"}},
      {"*v*v*", {"CT01Vendas.v2.RXL"}},
      {"ct0.*", {"CT0"}},
      {"CT02OUTRO.RXL", {"CT02Outro.RXL"}},
      {std::string(250, 'x') + "*******", {std::string(250, 'x')}},
  };
  for (const auto& [pattern, names] : cases)
    EXPECT_EQ(Find("D:\\" + pattern), names) << pattern;
  Names all = Find("D:/*.*");
  std::erase_if(all, [](const std::string& name) { return name.find('0') < 4 || name.size() > 200; });
  EXPECT_EQ(all, (Names{"A", "AA", "aZ", "a_", "b", "E", "link", "z", "\xE9", std::string("\xC9") + "a", "\x8A"}));
  for (const char* pattern :
       {"D:\\y*", "D:\\none\\*", "E:\\*", "", "D:\\", "\\*", "D:\\..\\*", "D:\\a<b", "D:\\..", "D:\\CT0\\*"})
    EXPECT_EQ(Find(pattern), Names{}) << pattern;
  _finddata_t found;
  EXPECT_EQ(_findfirst(nullptr, &found), -1);
  EXPECT_EQ(_findnext(-1, &found), -1);
}

TEST_F(NamesTest, LeftoversOfKilledProcessesGo) {
  const Names left = {".kestor-0123456789abcdef", ".kestor-fedcba9876543210", ".kestor-notes"};
  Make(left);
  CFile writer;
  ASSERT_EQ(OpenError(&writer, "D:\\model.dat", kCreateExclusive), 0);
  for (const std::string& name : Here()) {
    if (name == left[1]) continue;  // which is fresh, and may be in use
    fs::last_write_time(name, fs::file_time_type::clock::now() - std::chrono::hours(1));
  }
  EXPECT_EQ(Find("D:\\*"), Names{});
  writer.Close();
  EXPECT_EQ(Find("D:\\*"), Names{"model.dat"});
  EXPECT_EQ(Here(), (Names{left[1], left[2], "model.dat"}));
}

}  // namespace
