// Installations in which something is missing, damaged or forbidden: the program says what.
#include <unistd.h>

#include "fixture.h"

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr const char* kServerClass = "HKCR\\CLSID\\{B122667E-A9F0-49A4-823C-024BC9CB1A1E}";

class Trouble : public KestorctlTest {
 protected:
  Trouble() { SetUpHome(); }

  void ExpectTold(const std::string& module, const std::string& code, const std::string& told) const {
    const Outcome read = Run({"read", module, "01", "Vendas"});
    EXPECT_EQ(read.status, 1);
    EXPECT_THAT(read.errors, StartsWith("kestorctl: " + code));
    EXPECT_THAT(read.errors, HasSubstr(told));
  }
};

TEST_F(Trouble, AFailedFolderLookupTellsWhichEntryIsMissing) {
  ExpectTold("QQ", "0x80043F59", "no module has the code QQ; the codes are CT, FS");
  ExpectTold("FS", "0x80043F59", "the application Fiscal of module FS has no folder");
  Run({"registry", "delete", "HKLM\\SOFTWARE\\Norvela", "Relatorios"});
  ExpectTold("CT", "0x80043F59", "no reports folder is entered");
  support::WriteFile(RegistryFile(), support::ReadFile(RegistryFile()) + "nonsense\n");
  ExpectTold("CT", "0x80043F59", RegistryFile().string() + ":");
}

TEST_F(Trouble, AServerThatCannotBeStartedIsNamed) {
  Run({"registry", "set", std::string(kServerClass) + "\\LocalServer32", "", "/nowhere/kestor"});
  ExpectTold("CT", "0x80080005", "the registered executable /nowhere/kestor does not exist");
  Run({"registry", "set", std::string(kServerClass) + "\\LocalServer32", "", "/bin/false"});
  ExpectTold("CT", "0x80080005", "/bin/false");
  EXPECT_EQ(Run({"registry", "delete", kServerClass}).status, 0);
  ExpectTold("CT", "0x80040154", "run kestorctl setup");
  SetUpHome();
  EXPECT_EQ(Run({"read", "CT", "01", "Vendas"}).status, 3);
}

TEST_F(Trouble, ADamagedRegistryIsToldWithItsLineAndLeftAlone) {
  support::WriteFile(RegistryFile(), "Windows Registry Editor Version 5.00\n\nnonsense\n");
  const Arguments commands[] = {{"status"},
                                {"setup", "--reports", "reports"},
                                {"registry", "get", "HKLM\\SOFTWARE"},
                                {"registry", "export"},
                                {"read", "CT", "01", "Vendas"},
                                {"registry", "set", "HKLM\\SOFTWARE", "a", "b"}};
  for (const Arguments& command : commands) {
    const Outcome outcome = Run(command);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr(RegistryFile().string() + ":3: ")) << command[0];
  }
  EXPECT_THAT(support::ReadFile(RegistryFile()), HasSubstr("nonsense"));
}

TEST_F(Trouble, WhatTheUserMayNotDoIsOneLine) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become a user without rights";
  if (RunAsNobody({"--help"}).status != 0) GTEST_SKIP() << "the program lies where others may not run it";
  const auto forbidden = [this](const Arguments& command, const std::string& told) {
    const Outcome outcome = RunAsNobody(command);
    EXPECT_EQ(outcome.status, 1) << command[0];
    EXPECT_THAT(outcome.errors, StartsWith("kestorctl: "));
    EXPECT_THAT(outcome.errors, HasSubstr(told));
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
  };
  forbidden({"--home", "mine", "setup", "--reports", "reports"}, "no permission to write in " + Folder().string());
  forbidden({"status"}, "cannot be entered");
  forbidden({"read", "CT", "01", "Vendas"}, "cannot be entered");

  // A home that others may look into but not change.
  fs::permissions(Home(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
  forbidden({"setup", "--reports", "reports"}, "no permission to write in " + Home().string());
  forbidden({"registry", "set", "HKLM\\SOFTWARE", "a", "b"}, "access denied");
  EXPECT_EQ(RunAsNobody({"registry", "get", "HKLM\\SOFTWARE\\Norvela", "Relatorios"}).output, "D:\\\n");
  EXPECT_FALSE(fs::exists(Folder() / "mine"));
}

}  // namespace
