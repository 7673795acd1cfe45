// Homes as setup makes and changes them, and as status tells them.
#include "fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

constexpr char kNorvela[] = "HKLM\\SOFTWARE\\Norvela";
constexpr char kContabil[] = "HKLM\\SOFTWARE\\Norvela\\Contabil";

TEST_F(KestorctlTest, SetupMakesAHomeInWhichModelsCanBeWritten) {
  const Outcome setup = Run({"--json", "setup", "--reports", "new/reports", "--module", "ct=contabil"});
  ASSERT_EQ(setup.status, 0) << setup.errors;
  const nlohmann::json told = setup.Document();
  const std::string reports = Folder() / "new" / "reports";
  EXPECT_EQ(told["madeHome"], true);
  EXPECT_EQ(told["reports"], nlohmann::json({{"path", "D:\\"}, {"folder", reports}, {"madeFolder", true}}));
  EXPECT_EQ(told["modules"][0]["path"], "E:\\");
  EXPECT_EQ(told["server"], KESTOR_EXECUTABLE);

  EXPECT_EQ(fs::status(Home()).permissions(), fs::perms::owner_all);
  EXPECT_TRUE(fs::is_directory(Home() / "work"));
  EXPECT_EQ(fs::read_symlink(Home() / "drives" / "d"), reports);
  EXPECT_EQ(Registered(kNorvela, "Relatorios"), "D:\\");
  EXPECT_EQ(Registered(kContabil, "Path"), "E:\\");

  EXPECT_EQ(Run({"write", "CT", "01", "Vendas", "-"}, "x").status, 0);
  EXPECT_THAT(support::Names(reports), ElementsAre("CT01Vendas.RXL"));
}

TEST_F(KestorctlTest, SetupAgainChangesOnlyWhatDiffers) {
  SetUpHome();
  const std::string registry = support::ReadFile(RegistryFile());
  const nlohmann::json again =
      Run({"--json", "setup", "--reports", "reports/", "--module", "CT=./contabil"}).Document();
  EXPECT_EQ(again["drives"].size(), 0U);
  EXPECT_EQ(again["madeHome"], false);
  EXPECT_EQ(support::ReadFile(RegistryFile()), registry);

  // Another module alone: the reports folder and the first module stay; a folder below a drive takes no new one.
  EXPECT_EQ(Run({"setup", "--reports", "reports", "--module", "FS=reports/Livros/\u00C1rea"}).errors, "");
  EXPECT_EQ(Registered("HKLM\\SOFTWARE\\Norvela\\Fiscal", "Path"), "D:\\Livros\\\u00C1rea");
  EXPECT_EQ(Registered(kContabil, "Path"), "E:\\");
  EXPECT_THAT(support::Names(Home() / "drives"), ElementsAre("d", "e"));

  // A desktop path is taken as it is, and its folder made where the drive leads.
  EXPECT_EQ(Run({"setup", "--reports", "d:\\Dados\\Rel"}).status, 0);
  EXPECT_EQ(Registered(kNorvela, "Relatorios"), "d:\\Dados\\Rel");
  EXPECT_TRUE(fs::is_directory(Reports() / "Dados" / "Rel"));
}

TEST_F(KestorctlTest, AFolderThatTheDesktopCannotNameGetsADriveOfItsOwn) {
  SetUpHome();
  fs::create_directories(Reports() / "Vendas");
  fs::create_symlink("nowhere", Home() / "drives" / "f");  // taken, though it leads nowhere
  const std::pair<std::string, std::string> cases[] = {{"g", "a:b"},          {"h", "end."}, {"i", "vendas "},
                                                       {"j", "\u65E5\u672C"}, {"k", "con"},  {"l", "VENDAS"}};
  for (const auto& [drive, name] : cases) {
    EXPECT_EQ(Run({"setup", "--reports", "reports/" + name}).errors, "");
    EXPECT_EQ(fs::canonical(Home() / "drives" / drive), Reports() / name);
  }
  EXPECT_EQ(Registered(kNorvela, "Relatorios"), "L:\\");
}

TEST_F(KestorctlTest, SetupThatCannotSucceedWritesNothing) {
  support::WriteFile(Folder() / "file", "");
  const std::string file = Folder() / "file";
  const std::pair<std::string, std::string> cases[] = {
      {"$ctl setup --reports file", file + " is no folder"},
      {"$ctl setup --reports file/below", "is no folder"},
      {"$ctl setup --reports 'X:\\Rel'", "the home has no drive X:"},
      {"$ctl setup --reports '\\\\server\\share'", "is neither a folder of this system nor a path such as"},
      {"KESTOR_SERVER=/none $ctl setup --reports reports", "there is no server at /none"},
      {"KESTOR_SERVER=" + file + " $ctl setup --reports reports", "cannot be run"},
  };
  for (const auto& [command, told] : cases) {
    const Outcome setup = RunShell(command);
    ExpectTold(setup, 1, told);
    EXPECT_EQ(setup.output, "");
    EXPECT_THAT(support::Names(Folder()), ElementsAre("file", "run"));
  }

  SetUpHome();
  ExpectTold(Run({"setup", "--reports", "D:\\a|b"}), 1, "refuses the path");
  RunShell("cd home/drives; for drive in a b c f g h i j k l m n o p q r s t u v w x y z; do ln -s none $drive; done");
  ExpectTold(Run({"setup", "--reports", "elsewhere"}), 1, "no drive letter is free");
  EXPECT_EQ(Registered(kNorvela, "Relatorios"), "D:\\");
}

TEST_F(KestorctlTest, SetupsOfOneHomeFollowEachOther) {
  const std::string setup = "$ctl setup --reports reports --module CT=contabil & ";
  EXPECT_EQ(RunShell(setup + setup + setup + "wait").errors, "");
  EXPECT_THAT(support::Names(Home() / "drives"), ElementsAre("d", "e"));
}

TEST_F(KestorctlTest, StatusTellsFoldersClassesAndTheServer) {
  SetUpHome();
  fs::remove(Contabil());
  fs::create_symlink("k", Home() / "drives" / "k");
  Run({"registry", "set", std::string(kNorvela) + "\\Fiscal", "Path", "K:\\"});
  const nlohmann::json before = Run({"status", "--json"}).Document();
  EXPECT_EQ(before["reports"]["folder"], Reports().string());
  EXPECT_EQ(before["modules"][0]["code"], "CT");
  EXPECT_EQ(before["modules"][0]["exists"], false);
  EXPECT_EQ(before["modules"][1]["exists"], false);
  EXPECT_EQ(before["classes"].size(), 3U);
  EXPECT_EQ(before["classes"][1]["name"], "ZNPL_Relatorio2");
  EXPECT_EQ(before["classes"][1]["executable"], KESTOR_EXECUTABLE);
  EXPECT_EQ(before["server"], nlohmann::json({{"running", false}}));
  EXPECT_THAT(Run({"status"}).output, HasSubstr("server   not running\n"));

  EXPECT_EQ(Run({"read", "CT", "01", "Vendas"}).status, 3);
  const nlohmann::json server = Run({"status", "--json"}).Document()["server"];
  EXPECT_EQ(server["running"], true);
  EXPECT_EQ(server["objects"], 0);
  EXPECT_EQ(fs::read_symlink("/proc/" + server["pid"].dump() + "/exe"), KESTOR_EXECUTABLE);
}

}  // namespace
