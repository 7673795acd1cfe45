// Installations in which something is missing, damaged or forbidden: the program says what.
#include <unistd.h>

#include "fixture.h"

using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

constexpr char kServer[] = "HKCR\\CLSID\\{B122667E-A9F0-49A4-823C-024BC9CB1A1E}\\LocalServer32";

class Trouble : public KestorctlTest {
 protected:
  Trouble() { SetUpHome(); }

  void ExpectToldByRead(const std::string& module, const std::string& code, const std::string& told) const {
    const Outcome read = Run({"read", module, "01", "Vendas"});
    ExpectTold(read, 1, "kestorctl: " + code);
    EXPECT_THAT(read.errors, HasSubstr(told));
  }
};

TEST_F(Trouble, AFailedFolderLookupTellsWhichEntryIsMissing) {
  ExpectToldByRead("QQ", "0x80043F59", "no module has the code QQ; the codes are CT, FS");
  ExpectToldByRead("FS", "0x80043F59", "the application Fiscal of module FS has no folder");
  Run({"registry", "delete", "HKLM\\SOFTWARE\\Norvela", "Relatorios"});
  ExpectToldByRead("CT", "0x80043F59", "no reports folder is entered");
}

TEST_F(Trouble, AServerThatCannotBeStartedIsNamed) {
  Run({"registry", "set", kServer, "", "/nowhere/kestor"});
  ExpectToldByRead("CT", "0x80080005", "the registered executable /nowhere/kestor does not exist");
  Run({"registry", "set", kServer, "", "/bin/false"});
  ExpectToldByRead("CT", "0x80080005", "/bin/false");
  EXPECT_EQ(Run({"registry", "delete", "HKCR\\CLSID"}).status, 0);
  ExpectToldByRead("CT", "0x80040154", "run kestorctl setup");
  SetUpHome();
  EXPECT_EQ(Run({"read", "CT", "01", "Vendas"}).status, 3);
}

TEST_F(Trouble, ADamagedRegistryIsToldWithItsLineAndLeftAlone) {
  support::WriteFile(RegistryFile(), "Windows Registry Editor Version 5.00\n\nnonsense\n");
  for (const std::string command : {"status", "setup --reports reports", "registry get HKLM", "registry export",
                                    "read CT 01 Vendas", "registry set HKLM a b"}) {
    ExpectTold(RunShell("$ctl " + command), 1, RegistryFile().string() + ":3: ");
  }
  EXPECT_THAT(support::ReadFile(RegistryFile()), HasSubstr("nonsense"));
}

TEST_F(Trouble, WhatTheUserMayNotDoIsOneLine) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become a user without rights";
  if (RunAsNobody({"--help"}).status != 0) GTEST_SKIP() << "the program lies where others may not run it";
  ExpectTold(RunAsNobody({"--home", "mine", "setup", "--reports", "reports"}), 1,
             "no permission to write in " + Folder().string());
  ExpectTold(RunAsNobody({"status"}), 1, "cannot be entered");
  ExpectTold(RunAsNobody({"read", "CT", "01", "Vendas"}), 1, "cannot be entered");

  // A home that others may look into but not change.
  fs::permissions(Home(), fs::perms(0705));
  ExpectTold(RunAsNobody({"setup", "--reports", "reports"}), 1, "no permission to write in " + Home().string());
  ExpectTold(RunAsNobody({"registry", "set", "HKLM", "a", "b"}), 1, "access denied");
  EXPECT_EQ(RunAsNobody({"registry", "get", "HKLM\\SOFTWARE\\Norvela", "Relatorios"}).output, "D:\\\n");
  EXPECT_FALSE(fs::exists(Folder() / "mine"));
}

}  // namespace
