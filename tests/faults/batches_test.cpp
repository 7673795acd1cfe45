// Migrations and renumberings of several batches: killed at any moment, and reported only once they are on the disk.
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include "../document/document_fixture.h"
#include "../migration/conversion_fixture.h"
#include "document/rel_converte.h"
#include "faults.h"
#include "support/system_calls.h"

namespace {

namespace fs = std::filesystem;

using support::Child;
using support::ReadFile;
using support::Text;
using support::WriteFile;

constexpr int kModels = 150;  // two full batches and a part of a third

class BatchesTest : public ConversionTest {
 protected:
  static std::string Name(int i) { return "Modelo" + std::to_string(100 + i); }

  void PutModels() {
    const std::string model = LegacyContent({.columns = {{205, 10, 'D'}, {310, 20, 'E'}}}, 2).bytes;
    const std::string settings = SettingsBytes({{"item", "", 'A', 0}});
    for (int i = 0; i < kModels; ++i) {
      WriteFile(File(Name(i), ".REL"), model);
      WriteFile(File(Name(i), ".REE"), settings);
    }
  }

  void PutDocuments(int count = kModels) {
    for (int i = 0; i < count; ++i)
      WriteFile(File(Name(i), ".RXL"), Document(i, 205));
  }

  static std::string Document(int i, std::uint16_t code) {
    kestor::CDocRelatorio document;
    document.nome = Name(i);
    document.camposEscolhidos.campos.assign(3, {code, "Valor", "", 10, 'E', 'A', false, 0});
    return std::string("\1\0", 2) + Content(document);
  }

  void Migrate() { EXPECT_EQ(Initialise2(), "0x00000000"); }

  void Renumber(REL_CODIGO_CAMPOS_ALTERADOS pair) {
    ComPtr<IZNPL_RelConverte> converter;
    kestor::CRelConverte::Cria<kestor::CRelConverte>(IID_IZNPL_RelConverte, converter.OutVoid(), counter_,
                                                     MakeMigratingStore);
    EXPECT_EQ(converter->AlteraCodigoCampos(Text(u"CT"), Text(u"01"), 1, &pair), S_OK);
  }

  // Returns all files except the record files, including hidden ones.
  std::string ModelFiles() const {
    std::string files;
    for (const std::string& name : support::Names(Reports())) {
      if (!name.starts_with("ZN")) files += name + " ";
    }
    return files;
  }

  // Kills a process that does the work at a random moment and inspects the result, as often as the length of the test
  // asks.
  void KillAtRandom(const std::function<void()>& prepare, const std::function<void()>& work,
                    const std::function<void(int)>& look) {
    prepare();
    work();
    const std::string whole = ModelFiles();
    prepare();
    std::atomic<std::size_t> calls = 0;
    {
      const support::SystemCalls system([&](const host::SystemCall&) {
        ++calls;
        return host::Fate();
      });
      work();
    }
    std::mt19937 random(22);
    int killed = 0;
    for (int round = 0; round < (support::LongTests() ? 1000 : 15); ++round) {
      prepare();
      const std::size_t call = 1 + random() % calls;
      Child server([&] {
        faults::Run({.call = call, .kills = true}, work);
        return 0;
      });
      killed += server.Wait() == 128 + SIGKILL ? 1 : 0;
      for (int i = 0; i < kModels; ++i)
        look(i);
      work();
      EXPECT_EQ(ModelFiles(), whole) << "killed before call " << call;
      if (HasFailure()) return;
    }
    EXPECT_GT(killed, 10);
  }
};

// A document exists before its model is deleted, and no document is partial or duplicate. (The model of an existing
// document is deleted by the next migration.) The next process takes over what a killed process leaves.
TEST_F(BatchesTest, KilledMigrations) {
  PutModels();
  Migrate();
  const std::string settings = ReadFile(File(Name(0), ".RXL"));
  const auto expected = [&](int i) { return std::string(settings).replace(settings.find(Name(0)), 9, Name(i)); };
  const auto prepare = [&] {
    for (const std::string& name : support::Names(Reports()))
      fs::remove(Reports() / name);
    PutModels();
  };
  KillAtRandom(
      prepare, [&] { Migrate(); },
      [&](int i) {
        const bool hasModel = fs::exists(File(Name(i), ".REL"));
        const bool hasDocument = fs::exists(File(Name(i), ".RXL"));
        EXPECT_TRUE(hasModel || hasDocument) << Name(i);
        EXPECT_TRUE(hasDocument || fs::exists(File(Name(i), ".REE"))) << Name(i);
        EXPECT_TRUE(!hasDocument || ReadFile(File(Name(i), ".RXL")) == expected(i)) << Name(i);
      });
}

TEST_F(BatchesTest, KilledRenumberings) {
  PutDocuments();
  KillAtRandom([&] { PutDocuments(); },
               [&] {
                 Renumber({205, 310});
               },
               [&](int i) {
                 const std::string document = ReadFile(File(Name(i), ".RXL"));
                 EXPECT_TRUE(document == Document(i, 205) || document.find("310") != std::string::npos) << document;
                 kestor::CDocRelatorio read;
                 EXPECT_TRUE(Load(read, document.substr(2))) << document;
               });
}

// The order that survives a power failure: contents, names, the folder, then reports and deletions.
TEST_F(BatchesTest, ToldWhenItIsOnTheDisk) {
  int told = 0;
  std::size_t done = 0;
  counter_.told = [&](const kestor::Mudanca& change) {
    if (change.destino == kestor::Destino::nenhum) return;
    ++told;
    EXPECT_EQ(change.feitos, ++done) << change.modelo;
    EXPECT_EQ(change.modelo, Name(static_cast<int>(done) - 1)) << "in their order";
    struct stat status {};
    EXPECT_EQ(stat(File(std::string(change.modelo), ".RXL").c_str(), &status), 0) << change.modelo;
    EXPECT_FALSE(faults::Book().unflushed.contains(status.st_ino)) << change.modelo;
    ASSERT_EQ(stat(Reports().c_str(), &status), 0);
    EXPECT_FALSE(faults::Book().gained.contains({status.st_ino, File(std::string(change.modelo), ".RXL").filename()}))
        << change.modelo;
  };
  PutModels();
  EXPECT_TRUE(faults::Run({}, [&] { Migrate(); }).tooEarly.empty());
  EXPECT_EQ(told, kModels);
  done = 0;
  EXPECT_TRUE(faults::Run({}, [&] { Renumber({205, 310}); }).tooEarly.empty());
  EXPECT_EQ(told, 2 * kModels);
}

// One at a time, each model would fit into the room of the one before.
TEST_F(BatchesTest, ADiskThatIsNearlyFull) {
  PutModels();
  const support::SystemCalls system([&](const host::SystemCall& call) {
    const bool isFull = std::string_view(call.name) == "pwrite" && support::Names(Reports()).size() > 2 * kModels + 10;
    return host::Fate{.error = isFull ? ENOSPC : 0};
  });
  Migrate();
  for (int i = 0; i < kModels; ++i)
    EXPECT_TRUE(fs::exists(File(Name(i), ".RXL")) && !fs::exists(File(Name(i), ".REL"))) << Name(i);
}

// Documents that went into a folder that is moved away meanwhile are no reason to delete anything in its replacement.
TEST_F(BatchesTest, AFolderThatIsReplaced) {
  PutModels();
  {
    bool isReplaced = false;
    const support::SystemCalls system([&](const host::SystemCall& call) {
      if (!isReplaced && std::string_view(call.newPath).ends_with(".RXL")) {
        isReplaced = true;
        fs::rename(Reports(), Reports().string() + "Old");
        fs::create_directory(Reports());
        PutModels();
        std::this_thread::sleep_for(std::chrono::milliseconds(150));  // longer than a folder is kept open
      }
      return host::Fate();
    });
    Migrate();
  }
  for (int i = 0; i < kModels; ++i)
    EXPECT_TRUE(fs::exists(File(Name(i), ".REL")) || fs::exists(File(Name(i), ".RXL"))) << Name(i);
  Migrate();
  for (int i = 0; i < kModels; ++i)
    EXPECT_TRUE(fs::exists(File(Name(i), ".RXL")) && !fs::exists(File(Name(i), ".REL"))) << Name(i);
}

// Clients show progress at least twice a second on a disk of 16 flushes a second; this test allows more time.
TEST_F(BatchesTest, ADiskThatIsSlow) {
  PutDocuments(40);
  using Clock = std::chrono::steady_clock;
  Clock::time_point last = Clock::now();
  Clock::duration longest{};
  counter_.told = [&](const kestor::Mudanca&) {
    longest = std::max(longest, Clock::now() - last);
    last = Clock::now();
  };
  const support::SystemCalls system([](const host::SystemCall& call) {
    if (std::string_view(call.name) == "fsync") std::this_thread::sleep_for(std::chrono::milliseconds(60));
    return host::Fate();
  });
  Renumber({205, 310});
  EXPECT_LT(longest, std::chrono::milliseconds(1000));
}

}  // namespace
