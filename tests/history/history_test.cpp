// The history: names of versions, what is kept of a changed file, the limits, and unsuitable folders.
#include "history/history.h"

#include <sys/stat.h>

#include <algorithm>
#include <gmock/gmock.h>

#include "platform/files/files.h"
#include "platform/registry/registry.h"
#include "support/installation.h"

namespace {

namespace fs = std::filesystem;
using history::After;
using history::Version;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST(VersionTest, NamesSayWhatAVersionIs) {
  Version version;
  version.time = history::Time(std::chrono::microseconds(1795731344168702));
  version.process = 4711;
  version.user = 1000;
  version.method = "Grava";
  version.sizeAfter = 0x271f;
  version.timeAfter = 0x18ebb824a23b01ef;
  version.extension = ".RXL";
  const std::string name = "20261126T221544168702Z-4711-1000-Grava-271fx18ebb824a23b01ef.RXL";
  EXPECT_EQ(history::NameOf(version), name);
  for (const std::string& same : {name, std::string("20261126T000000000000Z-1-0-ExcluiRelatorio-gone.a-b.REL"),
                                  std::string("20240229T235959000001Z-1-4294967295-GravaFiltroRelatorio-inplace"),
                                  std::string("20240229T235959000001Z-1-0-Grava-new3x1.RXL")}) {
    const auto parsed = history::ParseName(same);
    ASSERT_TRUE(parsed) << same;
    EXPECT_EQ(history::NameOf(*parsed), same);
  }
  for (const char* other :
       {"", "x", ".RXL", "20261126T221544168702Z", "20261126T221544168702Z-1-0--gone", "20261126T221544168702Z-1-0-G-",
        "20260231T221544168702Z-1-0-G-gone", "20261126T226044168702Z-1-0-G-gone", "20261126T221544168702Z-01-0-G-gone",
        "20261126T221544168702Z-1-0-G-1x", "20261126T221544168702Z-1-0-G-x1", "20261126T221544168702Z-1-0-G-1x1-gone",
        "20261126T221544168702Z-99999999999999-0-G-gone", "0000000000000000000000-1-0-G-gone"})
    EXPECT_FALSE(history::ParseName(other)) << other;
}

class KeeperTest : public testing::Test {
 protected:
  KeeperTest() { fs::create_directory(History()); }

  fs::path History() const { return home_.Data() / "history"; }

  void Enter(const fs::path& folder) {
    support::SetRegistryText("SOFTWARE\\Norvela", "Historico", folder.string());
    keeper_ = history::Keeper();
    ASSERT_TRUE(keeper_.IsWanted());
  }

  static void Limit(const char* name, DWORD value) {
    registry::OwnedKey key;
    ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela\\KESTOR", key.Out()), 0);
    ASSERT_EQ(RegSetValueExA(key.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value), 0);
  }

  // Writes a file as one operation, replacing what is there.
  void Write(const std::string& name, const std::string& bytes,
             UINT flags = CFile::modeCreate | CFile::modeReadWrite | CFile::shareExclusive) {
    keeper_.Begin({.method = "Grava", .module = "CT", .component = "01"});
    const files::Keeping keeping(&keeper_);
    CFile file;
    ASSERT_TRUE(file.Open(("D:\\" + name).c_str(), flags));
    file.Write(bytes.data(), static_cast<UINT>(bytes.size()));
    file.Close();
  }

  // Returns all versions except those that mark new files.
  std::vector<Version> Versions() const {
    std::vector<Version> versions = history::FindVersions(History(), "ct", "01", nullptr);
    std::erase_if(versions, [](const Version& one) { return one.after == After::made; });
    return versions;
  }

  // Returns the contents of the versions, the oldest first.
  std::vector<std::string> Kept() const {
    std::vector<std::string> contents;
    for (const Version& version : Versions())
      contents.push_back(support::ReadFile(version.file));
    return contents;
  }

  const support::TempHome home_;
  history::Keeper keeper_;
};

TEST_F(KeeperTest, KeepsWhatIsReplacedRemovedAndOverwritten) {
  Enter(History());
  Write("CT01A.RXL", "one");
  Write("CT01A.RXL", "two");
  Write("CT01A.RXL", "THREE", CFile::modeReadWrite | CFile::shareDenyWrite);
  {
    keeper_.Begin({.method = "ExcluiRelatorio", .module = "CT", .component = "01"});
    const files::Keeping keeping(&keeper_);
    CFile::Remove("D:\\CT01A.RXL");
  }
  Write("ZNRELPAD.DAT", "1");
  Write("ZNRELPAD.DAT", "2");
  EXPECT_THAT(Kept(), ElementsAre("one", "two", "THREE"));
  EXPECT_EQ(keeper_.TakeTrouble(), "");
  const auto versions = Versions();
  EXPECT_EQ(versions[0].after, After::replaced);
  EXPECT_EQ(versions[0].sizeAfter, 3U);
  EXPECT_EQ(versions[1].after, After::overwritten);
  EXPECT_EQ(versions[2].after, After::gone);
  EXPECT_EQ(versions[2].model, "A");
}

TEST_F(KeeperTest, KeepsAsManyAndAsLongAsTheRegistrySays) {
  Limit("HistoricoVersoes", 3);
  Enter(History());
  for (const char* bytes : {"1", "2", "3", "4", "5", "6"})
    Write("CT01A.RXL", bytes);
  EXPECT_THAT(Kept(), ElementsAre("3", "4", "5"));

  const fs::path model = History() / "CT" / "01" / "A";
  support::WriteFile(model / "20200101T000000000000Z-1-0-Grava-gone.RXL", "old");
  support::WriteFile(model / "20990101T000000000000Z-1-0-Grava-gone.RXL", "of a clock that was wrong");
  support::WriteFile(model / "notes.txt", "by hand");
  support::WriteFile(model / ".kestor-1-2", "killed");
  fs::last_write_time(model / ".kestor-1-2", fs::file_time_type::clock::now() - std::chrono::hours(48));
  Limit("HistoricoVersoes", 0);
  std::string trouble;
  EXPECT_EQ(history::Prune(history::ReadSettings(), "CT", "01", &trouble), 1U);
  EXPECT_THAT(Kept(), ElementsAre("3", "4", "5", "of a clock that was wrong"));
  EXPECT_TRUE(fs::exists(model / "notes.txt"));
  EXPECT_FALSE(fs::exists(model / ".kestor-1-2"));
  Limit("HistoricoDias", 4'000'000'000);
  EXPECT_EQ(history::Prune(history::ReadSettings(), "", "", &trouble), 0U);
  EXPECT_THAT(Kept(), SizeIs(4));
  Limit("HistoricoDias", 0);
  support::WriteFile(model / "20200101T000000000000Z-1-0-Grava-gone.RXL", "old");
  EXPECT_EQ(history::Prune(history::ReadSettings(), "CT", "01", &trouble), 0U);
  EXPECT_EQ(trouble, "");
}

TEST_F(KeeperTest, LooksAtTheFolderOnlyWhenAnEighthMoreHasComeThanTheLimitSays) {
  Limit("HistoricoVersoes", 16);
  Enter(History());
  std::vector<std::size_t> kept;
  for (int i = 0; i <= 40; ++i) {
    Write("CT01A.RXL", std::to_string(i));
    kept.push_back(Kept().size());
  }
  EXPECT_THAT(std::vector<std::size_t>(kept.begin() + 16, kept.end()),
              testing::Each(testing::AllOf(testing::Ge(16U), testing::Le(18U))));
  EXPECT_THAT(kept, testing::Contains(16U));
  EXPECT_EQ(Kept().back(), "39");
}

TEST_F(KeeperTest, TheOldestGoFirstAndWhatIsStillTheFileIsNone) {
  Enter(History());
  Write("CT01A.RXL", "live");
  const fs::path model = History() / "CT" / "01" / "A";
  for (int second = 10; second < 40; ++second) {
    const std::string number = std::to_string(second);
    support::WriteFile(model / ("20200101T0000" + number + "000000Z-1-0-Grava-gone.RXL"), number);
  }
  Limit("HistoricoVersoes", 1);
  fs::create_hard_link(home_.Data() / "CT01A.RXL", model / "20990101T000000000000Z-1-0-Grava-3x1.RXL");
  Write("CT01A.RXL", "new");
  const std::vector<std::string> kept = Kept();
  EXPECT_EQ(std::count(kept.begin(), kept.end(), "live"), 1);
  EXPECT_EQ(kept.front(), "26");  // sixteen are removed at once
  EXPECT_EQ(kept[kept.size() - 2], "39");
}

// However often an operation writes a file, and however low the limit is, what the operation found is kept.
TEST_F(KeeperTest, AnOperationKeepsWhatItHasFound) {
  Limit("HistoricoVersoes", 1);
  Enter(History());
  Write("CT01A.RXL", "one");
  Write("CT01A.RXL", "two");
  keeper_.Begin({.method = "AlteraCodigoCampos", .module = "CT", .component = "01"});
  {
    const files::Keeping keeping(&keeper_);
    for (const char* name : {"D:\\CT01A.RXL", "D:\\CT01A.REE", "D:\\CT01A.RXL", "D:\\CT01A.RXL", "D:\\CT01A.REE"}) {
      CFile file;
      ASSERT_TRUE(file.Open(name, CFile::modeCreate | CFile::modeWrite | CFile::shareExclusive));
      file.Write("between", 7);
      file.Close();
    }
    CFile::Remove("D:\\CT01A.RXL");
  }
  EXPECT_THAT(Kept(), ElementsAre("two"));
  auto versions = history::FindVersions(History(), "CT", "01", nullptr);
  EXPECT_EQ(history::NoteUndone(History(), "CT", "01", versions.back()), 0);
  history::RemoveUndone(History(), "ct", "01", &versions);
  EXPECT_THAT(versions, IsEmpty());
}

TEST_F(KeeperTest, AFolderThatIsNoneStopsNothing) {
  Write("CT01A.RXL", "one");
  const fs::path file = home_.Data() / "file";
  support::WriteFile(file, "");
  for (const fs::path& folder : {home_.Data() / "missing", file, file / "below"}) {
    Enter(folder);
    Write("CT01A.RXL", "two");
    EXPECT_THAT(keeper_.TakeTrouble(), HasSubstr(folder.string()));
  }
  // A link within the history may lead anywhere, so it is not followed.
  fs::create_directories(home_.Data() / "elsewhere" / "01" / "A");
  fs::create_directory_symlink(home_.Data() / "elsewhere", History() / "CT");
  Enter(History());
  Write("CT01A.RXL", "three");
  EXPECT_THAT(keeper_.TakeTrouble(), HasSubstr("CT01A.RXL"));
  EXPECT_THAT(support::Names(home_.Data() / "elsewhere" / "01" / "A"), IsEmpty());
  std::string trouble;
  EXPECT_THAT(history::FindVersions(History(), "CT", "01", &trouble), IsEmpty());
  EXPECT_NE(trouble, "");
  EXPECT_EQ(support::ReadFile(home_.Data() / "CT01A.RXL"), "three");
}

TEST_F(KeeperTest, FollowsTheRegistryFromOneOperationToTheNext) {
  Enter(History());
  Write("CT01A.RXL", "one");
  Write("CT01A.RXL", "two");
  const fs::path other = home_.Data() / "other";
  fs::create_directory(other);
  support::SetRegistryText("SOFTWARE\\Norvela", "Historico", other.string());
  ASSERT_TRUE(keeper_.IsWanted());
  Write("CT01A.RXL", "three");
  EXPECT_THAT(Kept(), ElementsAre("one"));
  EXPECT_THAT(history::FindVersions(other, "CT", "01", nullptr), SizeIs(1));
  support::SetRegistryText("SOFTWARE\\Norvela", "Historico", "");
  EXPECT_FALSE(keeper_.IsWanted());
}

TEST_F(KeeperTest, ChangesThatFailLeaveNoVersion) {
  Enter(History());
  Write("CT01A.RXL", "one");
  keeper_.Begin({.method = "Grava", .module = "CT", .component = "01"});
  const files::Keeping keeping(&keeper_);
  CFile file;
  ASSERT_TRUE(file.Open("D:\\CT01A.RXL", CFile::modeCreate | CFile::modeWrite | CFile::shareExclusive));
  file.Write("two", 3);
  file.Abort();
  EXPECT_THAT(Kept(), IsEmpty());
}

}  // namespace
