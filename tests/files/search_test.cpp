// Wild-card search.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "opening_modes.h"
#include "support/support.h"

namespace fs = std::filesystem;

namespace {

using Names = std::vector<std::string>;

class SearchTest : public testing::Test {
 protected:
  static Names Find(const std::string& pattern) {
    Names names;
    _finddata_t found;
    const std::intptr_t search = _findfirst(pattern.c_str(), &found);
    if (search == -1) return names;
    do {
      names.emplace_back(found.attrib == FILE_ATTRIBUTE_DIRECTORY ? "/" : "").append(found.name);
    } while (_findnext(search, &found) == 0);
    _findclose(search);
    return names;
  }

  void Make(const Names& names) const {
    for (const std::string& name : names)
      support::WriteFile(home_.Data() / name, "");
  }

  support::TempHome home_;
};

}  // namespace

TEST_F(SearchTest, PatternsMatchWithoutRegardToLetterCase) {
  Make({"CT01Vendas.RXL", "ct01Compras.rxl", "CT01.RXL", "CT02Outro.RXL", "CT01Vendas.v2.RXL", "CT01x.RXLS", "CT01",
        "ct01\u00e9t\u00e9.rxl", "CT0"});
  fs::create_directory(home_.Data() / "CT01folder.RXL");
  EXPECT_EQ(Find("D:\\CT01*.RXL"), (Names{"CT01.RXL", "ct01Compras.rxl", "/CT01folder.RXL", "CT01Vendas.RXL",
                                          "CT01Vendas.v2.RXL", "ct01\xE9t\xE9.rxl"}));
  EXPECT_EQ(Find("d:/ct01\xC9*"), Names{"ct01\xE9t\xE9.rxl"});
  EXPECT_EQ(Find("D:\\CT01?endas.rxl"), Names{"CT01Vendas.RXL"});
  EXPECT_EQ(Find("D:\\*v*v*"), Names{"CT01Vendas.v2.RXL"});
  EXPECT_EQ(Find("D:\\ct0.*"), Names{"CT0"});
  EXPECT_EQ(Find("D:\\*.*").size(), 10u);
  EXPECT_EQ(Find("D:\\CT02OUTRO.RXL"), Names{"CT02Outro.RXL"});
}

TEST_F(SearchTest, NamesComeInTheOrderOfTheDesktopsFileSystem) {
  Make({"b", "A", "a_", "aZ", "\u0160", "\u00e9", "E", "z", "\u00c9a", "AA"});
  EXPECT_EQ(Find("D:\\*"), (Names{"A", "AA", "aZ", "a_", "b", "E", "z", "\xE9", std::string("\xC9") + "a", "\x8A"}));
}

TEST_F(SearchTest, WhatNoPathLeadsToIsNotListed) {
  fs::create_directory(home_.Data() / ".kestor-folder");
  Make({"good.dat", "\u0416.dat", "\xFF.dat", "a:b.dat", "dot.", "nul.dat", ".kestor-x"});
  fs::create_symlink("good.dat", home_.Data() / "link.dat");
  fs::create_symlink("nothing", home_.Data() / "dangling.dat");
  EXPECT_EQ(Find("D:\\*"), (Names{"good.dat", "link.dat"}));
}

TEST_F(SearchTest, SearchesThatFindNothing) {
  Make({"a.dat"});
  for (const char* pattern :
       {"D:\\b*", "D:\\none\\*", "E:\\*", "", "D:\\", "\\*", "D:\\..\\*", "D:\\a<b", "D:\\..", "D:\\a.dat\\*"}) {
    EXPECT_EQ(Find(pattern), Names{}) << pattern;
  }
  const std::string name(250, 'x');
  Make({name});
  EXPECT_EQ(Find("D:\\" + name + "*******"), Names{name}) << "however long the pattern is";
  _finddata_t found;
  EXPECT_EQ(_findfirst(nullptr, &found), -1);
  EXPECT_EQ(_findnext(-1, &found), -1);
}

TEST_F(SearchTest, TheSearchSeesTheFolderAsItWas) {
  Make({"a", "b", "c"});
  _finddata_t found;
  const std::intptr_t search = _findfirst("D:\\*", &found);
  fs::remove(home_.Data() / "b");
  Make({"bb"});
  EXPECT_EQ(_findnext(search, &found), 0);
  EXPECT_STREQ(found.name, "b");
  EXPECT_EQ(_findnext(search, &found), 0);
  EXPECT_EQ(_findnext(search, &found), -1);
  EXPECT_EQ(_findclose(search), 0);
}

TEST_F(SearchTest, LeftoversOfKilledProcessesGo) {
  const auto age = [](const fs::path& file) {
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
  };
  const fs::path left = home_.Data() / ".kestor-0123456789abcdef";
  const fs::path fresh = home_.Data() / ".kestor-fedcba9876543210";
  const fs::path foreign = home_.Data() / ".kestor-notes";
  for (const fs::path& file : {left, fresh, foreign})
    support::WriteFile(file, "rest");
  age(left);
  age(foreign);
  CFile writer;
  ASSERT_EQ(OpenError(&writer, "D:\\model.dat", kCreateExclusive), 0);
  for (const auto& entry : fs::directory_iterator(home_.Data())) {
    if (entry.path() != fresh) age(entry.path());
  }
  EXPECT_EQ(Find("D:\\*"), Names{});
  EXPECT_FALSE(fs::exists(left));
  EXPECT_TRUE(fs::exists(fresh));
  EXPECT_TRUE(fs::exists(foreign));
  writer.Close();
  EXPECT_EQ(Find("D:\\*"), Names{"model.dat"});
}
