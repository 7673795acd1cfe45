// Migrations that are killed, meet each other, or find the disk full.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <map>
#include <random>

#include "conversion_fixture.h"

namespace {

using support::Child;
using support::LongTests;
using support::ReadFile;

class InterruptionTest : public ConversionTest {
 protected:
  static constexpr int kModels = 8;

  // Models of two sizes, with export settings.
  void PutModels() {
    for (int i = 0; i < kModels; ++i) {
      LegacyModel model;
      model.columns.assign(i % 2 == 0 ? 1 : 60, {205, 10, 'D'});
      WriteModel(std::to_string(i), model, i % 4);
      tagREG_RELEXPORTACAO settings{};
      std::strcpy(settings.cCabDescricao, "lost with the settings");
      WriteSettings(std::to_string(i), settings, {});
    }
  }

  std::map<std::string, std::string> Files() const {
    std::map<std::string, std::string> files;
    for (const std::string& name : support::Names(Reports())) {
      if (!name.starts_with("ZN") && !name.starts_with(".")) files[name] = ReadFile(Reports() / name);
    }
    return files;
  }

  // The files after a migration that nothing disturbs.
  std::map<std::string, std::string> Migrated() {
    PutModels();
    EXPECT_EQ(Initialise2(), "0x00000000");
    std::map<std::string, std::string> files = Files();
    EXPECT_EQ(files.size(), std::size_t{kModels});
    for (const auto& [name, content] : files)
      std::filesystem::remove(Reports() / name);
    return files;
  }
};

// Killed at any instant and run again: each model is a whole document, none is left and none is there twice.
TEST_F(InterruptionTest, KilledAndRunAgain) {
  const std::map<std::string, std::string> whole = Migrated();
  const int rounds = LongTests() ? 1000 : 40;
  std::mt19937 random(7);
  for (int round = 0; round < rounds; ++round) {
    PutModels();
    {
      Child server([&] { return Initialise2() == "0x00000000" ? 0 : 1; });
      usleep(static_cast<useconds_t>(random() % 60'000));
      server.Kill();
    }
    ASSERT_EQ(Initialise2(), "0x00000000");
    ASSERT_TRUE(Files() == whole) << "round " << round << ": " << testing::PrintToString(support::Names(Reports()));
    for (const auto& [name, content] : whole)
      std::filesystem::remove(Reports() / name);
  }
}

TEST_F(InterruptionTest, StationsAtOnceEndAsOne) {
  const std::map<std::string, std::string> whole = Migrated();
  const int rounds = LongTests() ? 200 : 10;
  for (int round = 0; round < rounds; ++round) {
    PutModels();
    const auto migrate = [&] { return Initialise2() == "0x00000000" ? 0 : 1; };
    Child first(migrate);
    Child second(migrate);
    EXPECT_EQ(first.Wait() + second.Wait(), 0);
    // A model that each of the two held while the other wanted it is there for the next who asks.
    ASSERT_EQ(Initialise2(), "0x00000000");
    ASSERT_TRUE(Files() == whole) << "round " << round << ": " << testing::PrintToString(support::Names(Reports()));
    for (const auto& [name, content] : whole)
      std::filesystem::remove(Reports() / name);
  }
}

TEST_F(InterruptionTest, WithoutRoomModelsStayAsTheyAre) {
  const std::map<std::string, std::string> whole = Migrated();
  PutModels();
  const std::map<std::string, std::string> before = Files();
  Child server([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit smallFiles = {3000, 3000};
    if (setrlimit(RLIMIT_FSIZE, &smallFiles) != 0) return 2;
    return Initialise2() == "0x00000000" ? 0 : 1;
  });
  EXPECT_EQ(server.Wait(), 0);
  for (int i = 0; i < kModels; ++i) {
    const std::string name = "CT01" + std::to_string(i);
    const bool small = i % 2 == 0;
    EXPECT_EQ(Files().count(name + ".RXL"), small ? 1U : 0U);
    for (const char* extension : {".REL", ".REE"}) {
      EXPECT_EQ(Files().count(name + extension), small ? 0U : 1U);
      EXPECT_TRUE(small || Files().at(name + extension) == before.at(name + extension)) << name << extension;
    }
  }
  EXPECT_EQ(Initialise2(), "0x00000000");
  EXPECT_TRUE(Files() == whole);
}

}  // namespace
