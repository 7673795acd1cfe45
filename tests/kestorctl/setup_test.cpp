// Homes as setup makes and changes them, and as status tells them.
#include <sys/stat.h>
#include <unistd.h>

#include "fixture.h"

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char* kNorvela = "HKLM\\SOFTWARE\\Norvela";

TEST_F(KestorctlTest, SetupMakesAHomeInWhichModelsCanBeWritten) {
  const Outcome setup = Run({"--json", "setup", "--reports", "new/reports", "--module", "ct=contabil"});
  ASSERT_EQ(setup.status, 0) << setup.errors;
  const nlohmann::json told = setup.Document();
  const std::string reports = Folder() / "new" / "reports";
  EXPECT_EQ(told["result"], "0x00000000");
  EXPECT_EQ(told["madeHome"], true);
  EXPECT_EQ(told["reports"], nlohmann::json({{"path", "D:\\"}, {"folder", reports}, {"madeFolder", true}}));
  EXPECT_EQ(told["modules"][0]["path"], "E:\\");
  EXPECT_EQ(told["drives"].size(), 2U);
  EXPECT_EQ(told["server"], KESTOR_EXECUTABLE);

  struct stat home {};
  ASSERT_EQ(stat(Home().c_str(), &home), 0);
  EXPECT_EQ(home.st_mode & 07777U, 0700U);
  EXPECT_TRUE(fs::is_directory(Home() / "work"));
  EXPECT_EQ(fs::read_symlink(Home() / "drives" / "d"), reports);
  EXPECT_EQ(Registered(kNorvela, "Relatorios"), "D:\\");
  EXPECT_EQ(Registered(std::string(kNorvela) + "\\Contabil", "Path"), "E:\\");

  EXPECT_EQ(Run({"write", "CT", "01", "Vendas", "-"}, "x").status, 0);
  EXPECT_THAT(support::Names(reports), ElementsAre("CT01Vendas.RXL"));
}

TEST_F(KestorctlTest, SetupAgainChangesOnlyWhatDiffers) {
  SetUpHome();
  const std::string registry = support::ReadFile(RegistryFile());
  const Outcome again = Run({"--json", "setup", "--reports", "reports/", "--module", "CT=./contabil"});
  EXPECT_EQ(again.Document()["drives"].size(), 0U);
  EXPECT_EQ(again.Document()["madeHome"], false);
  EXPECT_EQ(support::ReadFile(RegistryFile()), registry);

  // Another module alone: the reports folder and the first module stay; a folder below a drive takes no new one.
  const Outcome more = Run({"setup", "--reports", Reports(), "--module", "FS=reports/Livros/\u00C1rea"});
  ASSERT_EQ(more.status, 0) << more.errors;
  EXPECT_EQ(Registered(std::string(kNorvela) + "\\Fiscal", "Path"), "D:\\Livros\\\u00C1rea");
  EXPECT_EQ(Registered(std::string(kNorvela) + "\\Contabil", "Path"), "E:\\");
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
  const char* const names[] = {"a:b", "end.", "vendas ", "\u65E5\u672C", "con", "VENDAS"};
  char letter = 'G';
  for (const char* name : names) {
    const std::string folder = Reports() / name;
    const Outcome setup = Run({"setup", "--reports", folder, "--json"});
    ASSERT_EQ(setup.status, 0) << setup.errors;
    // A name that another folder has but for its letter case is no obstacle once it is there.
    EXPECT_EQ(setup.Document()["reports"]["path"], std::string(1, letter++) + ":\\") << name;
    EXPECT_EQ(fs::canonical(Home() / "drives" / std::string(1, static_cast<char>(letter - 1 + ('a' - 'A')))), folder);
  }
}

TEST_F(KestorctlTest, SetupThatCannotSucceedWritesNothing) {
  support::WriteFile(Folder() / "file", "");
  struct Refused {
    std::string reports;
    std::string server;
    std::string told;
  };
  const Refused cases[] = {
      {"file", KESTOR_EXECUTABLE, (Folder() / "file").string() + " is no folder"},
      {"file/below", KESTOR_EXECUTABLE, "is no folder"},
      {"X:\\Rel", KESTOR_EXECUTABLE, "the home has no drive X:"},
      {"reports", Folder() / "kestor", "there is no server at " + (Folder() / "kestor").string()},
      {"reports", Folder() / "file", "cannot be run"},
  };
  for (const Refused& refused : cases) {
    setenv("KESTOR_SERVER", refused.server.c_str(), 1);
    const Outcome setup = Run({"setup", "--reports", refused.reports});
    EXPECT_EQ(setup.status, 1);
    EXPECT_EQ(setup.output, "");
    EXPECT_THAT(setup.errors, HasSubstr(refused.told));
    EXPECT_FALSE(fs::exists(Home()));
    EXPECT_FALSE(fs::exists(Reports()));
  }
  unsetenv("KESTOR_SERVER");

  SetUpHome();
  EXPECT_THAT(Run({"setup", "--reports", "D:\\a|b"}).errors, HasSubstr("refuses the path"));
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    std::error_code there;
    fs::create_symlink("nowhere", Home() / "drives" / std::string(1, letter), there);
  }
  EXPECT_THAT(Run({"setup", "--reports", "elsewhere"}).errors, HasSubstr("no drive letter is free"));
  EXPECT_EQ(Registered(kNorvela, "Relatorios"), "D:\\");
}

TEST_F(KestorctlTest, StatusTellsFoldersClassesAndTheServer) {
  SetUpHome();
  fs::remove(Contabil());
  const nlohmann::json before = Run({"status", "--json"}).Document();
  EXPECT_EQ(before["reports"]["folder"], Reports().string());
  EXPECT_EQ(before["modules"][0]["code"], "CT");
  EXPECT_EQ(before["modules"][0]["exists"], false);
  EXPECT_EQ(before["classes"].size(), 3U);
  EXPECT_EQ(before["classes"][1]["name"], "ZNPL_Relatorio2");
  EXPECT_EQ(before["classes"][1]["executable"], KESTOR_EXECUTABLE);
  EXPECT_EQ(before["server"], nlohmann::json({{"running", false}}));
  EXPECT_THAT(Run({"status"}).output, HasSubstr("server   not running\n"));

  EXPECT_EQ(Run({"read", "CT", "01", "Vendas"}).status, 3);
  const nlohmann::json server = Run({"status", "--json"}).Document()["server"];
  EXPECT_EQ(server["running"], true);
  EXPECT_EQ(server["objects"], 0);
  const std::string executable = "/proc/" + std::to_string(server["pid"].get<pid_t>()) + "/exe";
  EXPECT_EQ(fs::read_symlink(executable), KESTOR_EXECUTABLE);
}

}  // namespace
