// Stations that share one folder of reports and one of a module, do everything at once, and are killed at any moment.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <set>

#include "files/shared_memory.h"
#include "marcacao/componente_marcacao.h"
#include "station.h"

namespace {

using contention::Books;
using contention::kStations;
using contention::Station;
using support::Child;
using Clock = std::chrono::steady_clock;

std::chrono::milliseconds Duration() {
  if (!support::LongTests()) return std::chrono::seconds(8);
  const char* minutes = getenv("KESTOR_CONTENTION_MINUTES");
  return std::chrono::minutes(minutes != nullptr ? std::stol(minutes) : 5);
}

// The whole records of a file behind the first, which must be one of zeros. What a killed station has left of a record
// does not count.
std::vector<std::string> Records(const std::filesystem::path& file, std::size_t size) {
  const std::string bytes = support::ReadFile(file);
  std::vector<std::string> records;
  for (std::size_t i = 0; i + size <= bytes.size(); i += size)
    records.push_back(bytes.substr(i, size));
  if (records.empty() || records.front() != std::string(size, '\0')) {
    ADD_FAILURE() << file << " does not begin with a record of zeros";
    return {};
  }
  records.erase(records.begin());
  return records;
}

std::string TextOf(const std::string& field) {
  return field.substr(0, field.find('\0'));
}

class ContentionTest : public testing::Test {
 protected:
  ContentionTest() {
    std::filesystem::create_directory(Reports());
    std::filesystem::create_directory(home_.Data() / "Contabil");
    for (const char* catalogue : {"XCT01.REL", "XCT02.REL"}) {
      support::WriteFile(home_.Data() / "Contabil" / catalogue,
                         CatalogueLine(205, "Valor", 'V') + CatalogueLine(310, "Data & hora", 'D'));
    }
    EnterFolders();
    for (unsigned i = 0; i < kStations; ++i) {
      homes_.push_back(std::make_unique<support::TempHome>(home_.Data()));
      EnterFolders();
    }
    home_.Enter();
  }

  static void EnterFolders() {
    support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\Rel");
    support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil");
  }

  std::filesystem::path Reports() const { return home_.Data() / "Rel"; }

  std::unique_ptr<Child> Start(unsigned number, std::uint32_t seed) {
    return std::make_unique<Child>([=, this] {
      homes_.at(number)->Enter();
      Station station(*books_, number, Reports());
      station.TakeOver();
      station.Work(seed);
      return 0;
    });
  }

  // Each key has one default report, and nothing is there twice.
  void CheckRecordFiles() const {
    std::set<std::string> keys;
    for (const std::string& record : Records(Reports() / "ZNRELPAD.DAT", 264))
      EXPECT_TRUE(keys.insert(TextOf(record.substr(0, 8))).second) << "two default reports of " << record.substr(0, 8);

    unsigned deleted = 0;
    for (const contention::Account& account : books_->accounts)
      deleted += account.deleted;
    EXPECT_EQ(Records(Reports() / "ZNRELDEL.DAT", 264).size(), deleted);
    EXPECT_GT(deleted, 0U) << "no deletion was remembered";

    std::set<std::string> entered;
    for (const std::string& record : Records(Reports() / "ZNCTLARQ.DAT", 32))
      EXPECT_TRUE(entered.insert(record).second) << record;
  }

  const support::TempHome home_;
  std::vector<std::unique_ptr<support::TempHome>> homes_;
  const kestor::ComponenteMarcacao component_;
  const SharedMemory<Books> books_;
};

TEST_F(ContentionTest, NothingAcknowledgedIsLost) {
  std::minstd_rand random(11);
  unsigned kills = 0;
  std::vector<std::unique_ptr<Child>> stations;
  for (unsigned i = 0; i < kStations; ++i)
    stations.push_back(Start(i, static_cast<std::uint32_t>(random())));
  for (const auto end = Clock::now() + Duration(); Clock::now() < end; ++kills) {
    usleep(static_cast<useconds_t>(random() % 300'000));
    const auto number = static_cast<unsigned>(random() % kStations);
    stations.at(number)->Kill();
    EXPECT_EQ(stations.at(number)->Wait(), 128 + SIGKILL) << "station " << number << " ended by itself";
    stations.at(number) = Start(number, static_cast<std::uint32_t>(random()));
  }
  books_->closed = true;
  for (const auto& station : stations)
    EXPECT_EQ(station->Wait(), 0);

  for (unsigned i = 0; i < kStations; ++i) {
    Station station(*books_, i, Reports());
    station.TakeOver();
    station.CheckAll();
  }
  CheckRecordFiles();
  std::printf("contention: %u calls of %u stations, %u changes, %u kills, %u losses\n", books_->calls.load(), kStations,
              books_->changes.load(), kills, books_->faults.load());
  EXPECT_EQ(books_->faults, 0U);
}

}  // namespace
