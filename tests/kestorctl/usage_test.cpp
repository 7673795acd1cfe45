// What the program says to arguments that it cannot follow, and to those who ask how.
#include <sstream>

#include "fixture.h"

using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

TEST_F(KestorctlTest, WrongUsageIsOneLineWithAHintAndADocumentForPrograms) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "a command is needed; see 'kestorctl --help'"},
      {"lista", "there is no command lista; see 'kestorctl --help'"},
      {"registry", "a command is needed; see 'kestorctl registry --help'"},
      {"registry got x", "there is no command got; see 'kestorctl registry --help'"},
      {"read CT", "COMPONENT is required; see 'kestorctl read --help'"},
      {"read CT 01 Vendas 'a\nb'", "b; see"},
      {"read CT 01 '\xC3'", "NAME: the text is no valid UTF-8"},
      {"write CT 01 Vendas - --version 65536", "from 0 to 65535"},
      {"write CT 01 Vendas - --version=-1", "from 0 to 65535"},
      {"write CT 01 Vendas - --version 0x1", "from 0 to 65535"},
      {"read CT 01 Vendas -o ''", "the file has no name"},
      {"registry export ''", "the file has no name"},
      {"--home '' status", "--home"},
      {"--casa status", "--casa"},
      {"registry get 'HKEY_USERS\\x'", "HKEY_LOCAL_MACHINE"},
      {"registry delete 'HKLM\\'", "a root cannot be deleted"},
      {"registry set 'HKLM\\a' \u65E5 x", "code page 1252 lacks a character"},
      {"setup", "--reports is required"},
      {"setup --reports r --module CT", "CODE=DIR is needed"},
      {"setup --reports r --module CT=a --module ct=b", "given twice"},
      {"setup --reports r --module QQ=a", "no module has the code QQ; the codes are CT, FS"},
      {"legacy update CT 01 Vendas --top 0 A=1", "--left is required"},
      {"legacy update CT 01 Vendas --left 65536 --top 0 A=1", "--left: a whole number from 0 to 65535 is needed"},
      {"legacy update CT 01 Vendas --left 0 --top -1 A=1", "--top: a whole number from 0 to 65535 is needed"},
      {"legacy update CT 01 Vendas --left 0 --top 0", "COLUMN is required"},
      {"legacy update CT 01 Vendas --left 0 --top 0 A", "A: ALIAS=WIDTH is needed"},
      {"legacy update CT 01 Vendas --left 0 --top 0 =1", "=1: ALIAS=WIDTH is needed"},
      {"legacy update CT 01 Vendas --left 0 --top 0 A=1 B=x", "B=x: a whole number from 0 to 2147483647 is needed"},
      {"legacy update CT 01 Vendas --left 0 --top 0 A2345678901234567890123456=1",
       "an alias has at most 25 characters"},
      {"legacy update CT 01 Vendas --left 0 --top 0 \u65E5=1", "code page 1252 lacks a character of \u65E5"},
      {"legacy export", "a command is needed; see 'kestorctl legacy export --help'"},
      {"legacy filter got", "there is no command got"},
  };
  for (const auto& [arguments, told] : cases) {
    const Outcome wrong = RunShell("$ctl --json " + arguments);
    ExpectTold(wrong, 2, told);
    EXPECT_THAT(wrong.errors, testing::EndsWith("--help'\n"));
    EXPECT_EQ(wrong.Document()["result"], "0x80070057");
    EXPECT_THAT(wrong.Document()["error"].get<std::string>(), HasSubstr(told));
  }
  EXPECT_EQ(Run({"lista"}).output, "");
  EXPECT_FALSE(fs::exists(Home()));
}

TEST_F(KestorctlTest, EveryCommandExplainsItself) {
  std::istringstream commands(
      "|setup|status|registry|registry get|registry set|registry delete|registry import|registry export|"
      "read|write|list|delete|default|deleted|fields|show|renumber|migrate|"
      "legacy|legacy list|legacy read|legacy write|legacy delete|legacy update|legacy fields|"
      "legacy export|legacy export get|legacy export put|legacy filter|legacy filter get|legacy filter put");
  for (std::string command; std::getline(commands, command, '|');) {
    const Outcome help = RunShell("$ctl " + command + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.errors, "");
    EXPECT_THAT(help.output, HasSubstr("Usage: kestorctl"));
    EXPECT_THAT(help.output, HasSubstr("Exit status: 0"));
  }
}

TEST_F(KestorctlTest, WithoutAHomeEveryCommandSaysHowToMakeOne) {
  support::WriteFile(Folder() / "import.reg", "REGEDIT4\n");
  for (const std::string command : {"status", "read CT 01 Vendas", "write CT 01 Vendas -", "registry get HKLM",
                                    "registry set HKLM a b", "registry import import.reg", "registry export"}) {
    const Outcome told = RunShell("$ctl " + command);
    ExpectTold(told, 1, "there is no home at " + Home().string() + ": 'kestorctl setup' makes one");
    EXPECT_EQ(told.output, "");
    EXPECT_FALSE(fs::exists(Home()));
  }
  EXPECT_EQ(Run({"status", "--json"}).Document()["home"]["exists"], false);
}

}  // namespace
