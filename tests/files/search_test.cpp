// Wild-card search.
#include <chrono>
#include <gtest/gtest.h>

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
    for (bool isThere = search != -1; isThere; isThere = _findnext(search, &found) == 0)
      names.push_back((found.attrib == FILE_ATTRIBUTE_DIRECTORY ? "/" : "") + std::string(found.name));
    if (search != -1) _findclose(search);
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
        "ct01\u00e9t\u00e9.rxl", "CT0", std::string(250, 'x')});
  fs::create_directory(home_.Data() / "CT01folder.RXL");
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
  EXPECT_EQ(Find("D:/*.*").size(), 11u);

  for (const char* pattern :
       {"D:\\b*", "D:\\none\\*", "E:\\*", "", "D:\\", "\\*", "D:\\..\\*", "D:\\a<b", "D:\\..", "D:\\CT0\\*"}) {
    EXPECT_EQ(Find(pattern), Names{}) << pattern;
  }
  _finddata_t found;
  EXPECT_EQ(_findfirst(nullptr, &found), -1);
  EXPECT_EQ(_findnext(-1, &found), -1);
}

TEST_F(SearchTest, NamesComeInTheOrderOfTheDesktopsFileSystemIfAPathLeadsToThem) {
  Make({"b", "A", "a_", "aZ", "\u0160", "\u00e9", "E", "z", "\u00c9a", "AA"});
  Make({"\u0416.dat", "\xFF.dat", "a:b.dat", "dot.", "nul.dat", ".kestor-x"});
  fs::create_directory(home_.Data() / ".kestor-folder");
  fs::create_symlink("b", home_.Data() / "link");
  fs::create_symlink("nothing", home_.Data() / "dangling");
  EXPECT_EQ(Find("D:\\*"),
            (Names{"A", "AA", "aZ", "a_", "b", "E", "link", "z", "\xE9", std::string("\xC9") + "a", "\x8A"}));
}

TEST_F(SearchTest, LeftoversOfKilledProcessesGo) {
  const Names left = {".kestor-0123456789abcdef", ".kestor-fedcba9876543210", ".kestor-notes"};
  Make(left);
  CFile writer;
  ASSERT_EQ(OpenError(&writer, "D:\\model.dat", kCreateExclusive), 0);
  for (const auto& entry : fs::directory_iterator(home_.Data())) {
    if (entry.path().filename() == left[1]) continue;  // which is fresh, and may be in use
    fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::hours(1));
  }
  EXPECT_EQ(Find("D:\\*"), Names{});
  writer.Close();
  EXPECT_EQ(Find("D:\\*"), Names{"model.dat"});
  EXPECT_EQ(support::Names(home_.Data()), (Names{left[1], left[2], "model.dat"}));
}
