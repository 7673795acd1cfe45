// The registry commands.
#include "fixture.h"

namespace fs = std::filesystem;

using testing::HasSubstr;

namespace {

class Registry : public KestorctlTest {
 protected:
  Registry() { fs::create_directory(Home()); }
};

TEST_F(Registry, TextsAreSetReadAndDeleted) {
  EXPECT_EQ(Run({"registry", "set", "HKLM\\Software\\\u00C1", "T\u00EDtulo", "\u20AC 1\n2"}).status, 0);
  EXPECT_EQ(Run({"registry", "get", "hkey_local_machine\\SOFTWARE\\\u00E1\\", "t\u00CDtulo"}).output, "\u20AC 1\n2\n");
  EXPECT_EQ(Run({"registry", "set", "HKLM\\Software\\\u00C1", "", "default"}).status, 0);
  EXPECT_EQ(Run({"registry", "get", "HKLM\\Software\\\u00C1", "--json"}).Document(),
            nlohmann::json({{"result", "0x00000000"}, {"type", "REG_SZ"}, {"value", "default"}}));

  EXPECT_EQ(Run({"registry", "delete", "HKLM\\Software\\\u00C1", ""}).status, 0);
  EXPECT_EQ(Run({"registry", "get", "HKLM\\Software\\\u00C1"}).errors,
            "kestorctl: the registry has no default value of HKLM\\Software\\\u00C1\n");
  EXPECT_EQ(Run({"registry", "get", "HKLM\\Software\\\u00C1", "T\u00EDtulo"}).status, 0);
  EXPECT_EQ(Run({"registry", "delete", "HKLM\\Software"}).status, 0);
  const Outcome gone = Run({"registry", "delete", "HKLM\\Software", "--json"});
  EXPECT_EQ(gone.status, 1);
  EXPECT_EQ(gone.Document()["result"], "0x80070002");
  EXPECT_EQ(Run({"registry", "get", "HKLM\\Software\\\u00C1", "T\u00EDtulo"}).status, 1);
}

TEST_F(Registry, EveryTypeIsToldInItsOwnWay) {
  support::WriteFile(
      Folder() / "old.reg",
      "REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Z]\r\n\"n\"=dword:80000010\r\n"
      "\"b\"=hex:01,fe\r\n\"m\"=hex(7):61,00,e9,00,00\r\n\"e\"=hex(2):25,61,25,00\r\n\"l\"=\"\xE9\"\r\n");
  EXPECT_EQ(Run({"registry", "import", "old.reg"}).status, 0);
  EXPECT_EQ(Registered("HKLM\\SOFTWARE\\Z", "n"), "2147483664");
  EXPECT_EQ(Registered("HKLM\\SOFTWARE\\Z", "b"), "01 fe");
  EXPECT_EQ(Registered("HKLM\\SOFTWARE\\Z", "e"), "%a%");
  EXPECT_EQ(Registered("HKLM\\SOFTWARE\\Z", "l"), "\u00E9");
  const nlohmann::json list = Run({"registry", "get", "HKLM\\SOFTWARE\\Z", "m", "--json"}).Document();
  EXPECT_EQ(list["type"], "REG_MULTI_SZ");
  EXPECT_EQ(list["value"], nlohmann::json({"a", "\u00E9"}));
}

TEST_F(Registry, AnExportImportsElsewhereAndABadOneChangesNothing) {
  Run({"registry", "set", "HKLM\\SOFTWARE\\Norvela", "Relatorios", "D:\\\u00C1"});
  const std::string exported = Run({"registry", "export"}).output;
  EXPECT_THAT(exported, HasSubstr("\"Relatorios\"=\"D:\\\\\u00C1\"\n"));
  EXPECT_EQ(Run({"registry", "export", "--json"}).Document()["text"], exported);
  EXPECT_EQ(Run({"registry", "export", "desktop.reg"}).output, "");
  EXPECT_EQ(support::ReadFile(Folder() / "desktop.reg").substr(0, 4), std::string("\xFF\xFEW\0", 4));

  fs::create_directory(Folder() / "other");
  EXPECT_EQ(Run({"--home", "other", "registry", "import", "desktop.reg"}).status, 0);
  EXPECT_EQ(Run({"--home", "other", "registry", "export"}).output, exported);

  support::WriteFile(Folder() / "bad.reg", "REGEDIT4\n\n[-HKEY_LOCAL_MACHINE\\SOFTWARE]\nnonsense\n");
  const Outcome bad = Run({"registry", "import", "bad.reg"});
  EXPECT_EQ(bad.status, 1);
  EXPECT_THAT(bad.errors, HasSubstr("kestorctl: bad.reg:4: "));
  EXPECT_THAT(Run({"registry", "import", "none.reg"}).errors, HasSubstr("none.reg: No such file or directory"));
  EXPECT_EQ(Run({"registry", "export"}).output, exported);
}

}  // namespace
