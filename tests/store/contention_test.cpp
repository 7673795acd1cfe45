// Stations that share one reports folder, all at once.
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

#include "platform/files/files.h"
#include "store_fixture.h"

using support::WriteModel;

namespace {

constexpr int kStations = 8;

std::u16string Number(int number) {
  return text::Utf8ToUtf16(std::to_string(number));
}

class ContentionTest : public StoreTest {
 protected:
  // Component "01" for station 1 and so on.
  static std::u16string Component(int station) { return u"0" + Number(station); }

  // Sets defaults and deletes demonstration models of its own component. 0, or the number of the step that went wrong.
  int Work(int station, int rounds) {
    auto store = ReadyStore(Component(station).c_str());
    std::string expected = "(null)";
    std::string found;
    for (int round = 1; round <= rounds; ++round) {
      const std::u16string name = Number(round);
      if (WriteModel(*store, name, "x") != S_OK) return 1;
      const std::string set = SetDefault(*store, name);
      if (set == "0x00000000")
        expected = std::to_string(round);
      else if (set != kHeldForRecords)
        return 2;
      found = Default(*store);
      if (found != expected && found != kHeldForRecords && found != kHeld) return 3;
      if (Listed(*store).empty()) return 4;
      if (round % 5 == 0) continue;
      if (Delete(*store, name, Model::demonstration) != "0x00000000") return 5;
      const std::string deleted = Deleted(*store);
      if (deleted != kHeld && !deleted.ends_with(std::to_string(round) + ",")) return 6;
    }
    // Everybody else is done or will be: now the last word must get through.
    while (SetDefault(*store, Number(rounds)) != "0x00000000") {
    }
    return 0;
  }

  static constexpr char kHeld[] = "0x80070020";
  static constexpr char kHeldForRecords[] = "0x80043EEE";
};

TEST_F(ContentionTest, NothingOfAnybodyIsLost) {
  const int rounds = support::LongTests() ? 2500 : 25;
  {
    std::vector<std::unique_ptr<support::Child>> stations;
    for (int station = 1; station <= kStations; ++station)
      stations.push_back(std::make_unique<support::Child>([=, this] { return Work(station, rounds); }));
    for (auto& station : stations)
      EXPECT_EQ(station->Wait(), 0);
  }
  for (int station = 1; station <= kStations; ++station) {
    auto store = ReadyStore(Component(station).c_str());
    EXPECT_EQ(Default(*store), std::to_string(rounds));
    std::string deleted;
    for (int round = 1; round <= rounds; ++round) {
      if (round % 5 != 0) deleted += std::to_string(round) + ",";
    }
    EXPECT_EQ(Deleted(*store), deleted);
  }
}

// The list is in use for much longer than one round of attempts takes.
TEST_F(ContentionTest, DeletionIsRememberedWhoeverReadsTheList) {
  auto store = ReadyStore();
  ASSERT_EQ(WriteModel(*store, u"A", "x"), S_OK);
  ASSERT_EQ(Deleted(*store), "(null)");
  CFile reader;
  ASSERT_TRUE(reader.Open("D:\\Dados.v2\\Rel\\ZNRELDEL.DAT", CFile::modeRead | CFile::shareExclusive));
  std::thread ending([&reader] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    reader.Close();
  });
  EXPECT_EQ(Delete(*store, u"A", Model::demonstration), "0x00000000");
  ending.join();
  EXPECT_EQ(Deleted(*store), "A,");
}

TEST_F(ContentionTest, KilledHolderIsInNobodysWay) {
  auto store = ReadyStore();
  ASSERT_EQ(WriteModel(*store, u"A", "x"), S_OK);
  ASSERT_EQ(SetDefault(*store, u"A"), "0x00000000");
  support::Child holder([] {
    CFile file;
    // The station that waits for it has the file at times.
    while (!file.Open("D:\\Dados.v2\\Rel\\ZNRELPAD.DAT", CFile::modeReadWrite | CFile::shareDenyWrite))
      Sleep(1);
    return pause();
  });
  ASSERT_TRUE(support::WaitUntil([&] { return SetDefault(*store, u"A") == kHeldForRecords; }));
  holder.Kill();
  holder.Wait();
  EXPECT_EQ(SetDefault(*store, u"A"), "0x00000000");
}

}  // namespace
