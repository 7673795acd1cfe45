// Stations that share one reports folder, all at once.
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/files/files.h"
#include "store_fixture.h"
#include "support/system_calls.h"

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
    std::string remembered;
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
      // A name for which the list was in use all the time is not remembered; one that is stays so.
      const std::string withThis = remembered + std::to_string(round) + ",";
      do {
        found = Deleted(*store);
      } while (found == kHeld);
      if (found == withThis)
        remembered = withThis;
      else if (found != (remembered.empty() ? "(null)" : remembered))
        return 6;
    }
    if (remembered.empty()) return 7;
    // Everybody else is done or will be: now the last word must get through.
    while (SetDefault(*store, Number(rounds)) != "0x00000000") {
    }
    support::WriteFile(home_.Data() / std::to_string(station), remembered);
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
    EXPECT_EQ(Deleted(*store), support::ReadFile(home_.Data() / std::to_string(station)));
  }
}

// A deletion makes the attempts of one opening while another station has the list, and no more: all others wait for it.
TEST_F(ContentionTest, DeletionDoesNotWaitForTheListForLong) {
  auto store = ReadyStore();
  ASSERT_EQ(WriteModel(*store, u"A", "x"), S_OK);
  ASSERT_EQ(Deleted(*store), "(null)");
  CFile reader;
  ASSERT_TRUE(reader.Open("D:\\Dados.v2\\Rel\\ZNRELDEL.DAT", CFile::modeRead | CFile::shareExclusive));
  int openings = 0;  // of files and folders
  const support::SystemCalls system([&openings](const host::SystemCall& call) {
    if (std::string_view(call.name) == "openat") ++openings;
    return host::Fate{};
  });
  EXPECT_EQ(Delete(*store, u"A", Model::demonstration), "0x00000000");
  EXPECT_TRUE(openings >= 30 && openings < 4 * 30) << openings;
  reader.Close();
  EXPECT_EQ(Deleted(*store), "(null)");
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
