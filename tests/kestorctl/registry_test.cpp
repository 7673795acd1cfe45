// The registry commands.
#include "fixture.h"

using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

TEST_F(KestorctlTest, RegistryTextsAreSetReadAndDeleted) {
  fs::create_directory(Home());
  const std::string key = "HKLM\\Software\\\u00C1";
  EXPECT_EQ(Run({"registry", "set", key, "T\u00EDtulo", "\u20AC 1\n2"}).status, 0);
  EXPECT_EQ(Run({"registry", "get", "hkey_local_machine\\SOFTWARE\\\u00E1\\", "t\u00CDtulo"}).output, "\u20AC 1\n2\n");
  EXPECT_EQ(Run({"registry", "set", key, "", "default"}).status, 0);
  EXPECT_EQ(Run({"registry", "get", key, "--json"}).Document(),
            nlohmann::json({{"result", "0x00000000"}, {"type", "REG_SZ"}, {"value", "default"}}));

  EXPECT_EQ(Run({"registry", "delete", key, ""}).status, 0);
  ExpectTold(Run({"registry", "get", key}), 1, "the registry has no default value of HKLM\\Software\\\u00C1\n");
  EXPECT_EQ(Run({"registry", "get", key, "T\u00EDtulo"}).status, 0);
  EXPECT_EQ(Run({"registry", "delete", "HKLM\\Software"}).status, 0);
  const Outcome gone = Run({"registry", "delete", "HKLM\\Software", "--json"});
  EXPECT_EQ(gone.status, 1);
  EXPECT_EQ(gone.Document()["result"], "0x80070002");
}

TEST_F(KestorctlTest, RegistriesAreImportedAndExported) {
  fs::create_directories(Folder() / "other");
  support::WriteFile(Folder() / "old.reg",
                     "REGEDIT4\n[HKEY_LOCAL_MACHINE\\Z]\n\"n\"=dword:80000010\n\"b\"=hex:01,fe\n\"l\"=\"\xE9\"\n"
                     "\"e\"=hex(2):25,61,25,00\n\"m\"=hex(7):61,00,e9,00,00\n");
  EXPECT_EQ(Run({"--home", "other", "registry", "import", "old.reg"}).status, 0);
  const std::string exported = Run({"--home", "other", "registry", "export"}).output;
  EXPECT_THAT(exported, HasSubstr("\"l\"=\"\u00E9\"\n"));
  EXPECT_EQ(Run({"--home", "other", "registry", "export", "--json"}).Document()["text"], exported);
  EXPECT_EQ(Run({"--home", "other", "registry", "export", "desktop.reg"}).output, "");
  EXPECT_EQ(support::ReadFile(Folder() / "desktop.reg").substr(0, 4), std::string("\xFF\xFEW\0", 4));

  fs::create_directory(Home());
  EXPECT_EQ(Run({"registry", "import", "desktop.reg"}).status, 0);
  EXPECT_EQ(Run({"registry", "export", "-"}).output, exported);
  EXPECT_EQ(Run({"registry", "delete", "HKLM\\Z"}).status, 0);
  EXPECT_EQ(Run({"registry", "import", "-"}, exported).status, 0);
  support::WriteFile(Folder() / "bad.reg", "REGEDIT4\n\n[-HKEY_LOCAL_MACHINE\\Z]\nnonsense\n");
  ExpectTold(Run({"registry", "import", "bad.reg"}), 1, "kestorctl: bad.reg:4: ");
  ExpectTold(Run({"registry", "import", "none.reg"}), 1, "none.reg: No such file or directory");
  EXPECT_EQ(Run({"registry", "export"}).output, exported);

  // Every type is told in its own way.
  EXPECT_EQ(Registered("HKLM\\Z", "n"), "2147483664");
  EXPECT_EQ(Registered("HKLM\\Z", "b"), "01 fe");
  EXPECT_EQ(Registered("HKLM\\Z", "e"), "%a%");
  EXPECT_EQ(Run({"registry", "get", "HKLM\\Z", "m", "--json"}).Document()["value"], nlohmann::json({"a", "\u00E9"}));
}

}  // namespace
