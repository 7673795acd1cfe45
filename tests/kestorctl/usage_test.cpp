// What the program says to arguments that it cannot follow, and to those who ask how.
#include "fixture.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct WrongUsage {
  Arguments arguments;
  std::string told;  // part of the line
};

TEST_F(KestorctlTest, WrongUsageIsOneLineWithAHintAndADocumentForPrograms) {
  const WrongUsage cases[] = {
      {{}, "a command is needed; see 'kestorctl --help'"},
      {{"lista"}, "there is no command lista; see 'kestorctl --help'"},
      {{"registry"}, "a command is needed; see 'kestorctl registry --help'"},
      {{"registry", "got", "x"}, "there is no command got; see 'kestorctl registry --help'"},
      {{"read", "CT"}, "COMPONENT is required; see 'kestorctl read --help'"},
      {{"read", "CT", "01", "Vendas", "mais"}, "mais"},
      {{"read", "CT", "01", "a\nb", "c"}, "c; see"},
      {{"read", "CT", "01", "\xC3"}, "NAME: the text is no valid UTF-8"},
      {{"write", "\xFF", "01", "Vendas", "-"}, "MODULE: the text is no valid UTF-8"},
      {{"write", "CT", "01", "Vendas", "-", "--version", "65536"}, "from 0 to 65535"},
      {{"write", "CT", "01", "Vendas", "-", "--version=-1"}, "from 0 to 65535"},
      {{"write", "CT", "01", "Vendas", "-", "--version", "0x1"}, "from 0 to 65535"},
      {{"--home", "", "status"}, "--home"},
      {{"--casa", "status"}, "--casa"},
      {{"registry", "get", "HKEY_USERS\\x"}, "HKEY_LOCAL_MACHINE"},
      {{"registry", "delete", "HKLM\\"}, "a root cannot be deleted"},
      {{"registry", "set", "HKLM\\a", "\u65E5", "x"}, "code page 1252 lacks a character"},
      {{"setup"}, "--reports is required"},
      {{"setup", "--reports", "r", "--module", "CT"}, "CODE=DIR is needed"},
      {{"setup", "--reports", "r", "--module", "CT=a", "--module", "ct=b"}, "given twice"},
      {{"setup", "--reports", "r", "--module", "QQ=a"}, "no module has the code QQ; the codes are CT, FS"},
  };
  for (const WrongUsage& wrong : cases) {
    const Outcome plain = Run(wrong.arguments);
    SCOPED_TRACE(plain.errors);
    EXPECT_EQ(plain.status, 2);
    EXPECT_EQ(plain.output, "");
    EXPECT_THAT(plain.errors, StartsWith("kestorctl: "));
    EXPECT_THAT(plain.errors, HasSubstr(wrong.told));
    EXPECT_THAT(plain.errors, EndsWith("--help'\n"));
    EXPECT_EQ(std::count(plain.errors.begin(), plain.errors.end(), '\n'), 1);

    Arguments json = wrong.arguments;
    json.emplace(json.begin(), "--json");
    const Outcome document = Run(json);
    EXPECT_EQ(document.status, 2);
    EXPECT_EQ(document.Document()["result"], "0x80070057");
    EXPECT_THAT(document.Document()["error"].get<std::string>(), HasSubstr(wrong.told));
  }
  EXPECT_FALSE(std::filesystem::exists(Home()));
}

TEST_F(KestorctlTest, EveryCommandExplainsItself) {
  const Arguments commands[] = {{},
                                {"setup"},
                                {"status"},
                                {"registry"},
                                {"registry", "get"},
                                {"registry", "set"},
                                {"registry", "delete"},
                                {"registry", "import"},
                                {"registry", "export"},
                                {"read"},
                                {"write"}};
  for (Arguments command : commands) {
    command.emplace_back("--help");
    const Outcome help = Run(command);
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.errors, "");
    EXPECT_THAT(help.output, HasSubstr("Usage: kestorctl"));
    EXPECT_THAT(help.output, HasSubstr("Exit status: 0"));
  }
}

TEST_F(KestorctlTest, WithoutAHomeEveryCommandSaysHowToMakeOne) {
  support::WriteFile(Folder() / "import.reg", "REGEDIT4\n");
  const Arguments commands[] = {{"status"},
                                {"read", "CT", "01", "Vendas"},
                                {"write", "CT", "01", "Vendas", "-"},
                                {"registry", "get", "HKLM\\SOFTWARE"},
                                {"registry", "set", "HKLM\\SOFTWARE", "a", "b"},
                                {"registry", "delete", "HKLM\\SOFTWARE"},
                                {"registry", "import", "import.reg"},
                                {"registry", "export"}};
  for (const Arguments& command : commands) {
    const Outcome plain = Run(command);
    EXPECT_EQ(plain.status, 1);
    EXPECT_EQ(plain.output, "");
    EXPECT_EQ(plain.errors, "kestorctl: there is no home at " + Home().string() + ": 'kestorctl setup' makes one\n");
    EXPECT_FALSE(std::filesystem::exists(Home()));
  }
  EXPECT_EQ(Run({"status", "--json"}).Document()["home"]["exists"], false);
}

}  // namespace
