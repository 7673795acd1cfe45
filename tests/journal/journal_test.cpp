// The journal: the content of a line, lines that cannot be written, and processes that append and rotate at once while
// some are stopped and killed.
#include "journal/journal.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <utility>

#include "platform/registry/registry.h"
#include "support/shared_memory.h"
#include "support/support.h"
#include "support/system_calls.h"

namespace {

std::vector<std::string>& SystemLog() {
  static std::vector<std::string> lines;
  return lines;
}

// The arguments of "%.*s".
void Log(va_list arguments) {
  const int length = va_arg(arguments, int);
  SystemLog().emplace_back(va_arg(arguments, const char*), static_cast<std::size_t>(length));
}

}  // namespace

extern "C" {
void __wrap_syslog(int, const char* last, ...) {  // NOLINT: the linker's name
  va_list arguments;
  va_start(arguments, last);
  Log(arguments);
  va_end(arguments);
}
void __wrap___syslog_chk(int, int, const char* last, ...) {  // NOLINT: the linker's name
  va_list arguments;
  va_start(arguments, last);
  Log(arguments);
  va_end(arguments);
}
}

namespace {

using nlohmann::json;
using support::SystemCalls;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr DWORD kFewestBytes = 64 << 10;

void Set(const char* name, DWORD number, DWORD type = REG_DWORD) {
  registry::OwnedKey key;
  ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela\\KESTOR", key.Out()), 0);
  ASSERT_EQ(RegSetValueExA(key.Get(), name, 0, type, reinterpret_cast<const BYTE*>(&number), sizeof number), 0);
}

class JournalTest : public testing::Test {
 protected:
  static const platform::Home& Home() { return platform::Home::Current(); }

  std::filesystem::path File(const char* name = "journal.jsonl") const { return home_.Home() / name; }

  // Returns the trouble, if any.
  static std::string Append(journal::Writer& writer, std::string_view model, std::string_view reason = {}) {
    writer.Append({.model = model, .reason = reason});
    return writer.Trouble();
  }

  static std::string AppendOne(std::string_view model) {
    journal::Writer writer(Home());
    return Append(writer, model);
  }

  void Clear() const {
    for (const std::string& name : support::Names(home_.Home())) {
      if (name.starts_with("journal")) remove(File(name.c_str()));
    }
  }

  // Returns the models of all complete lines.
  static std::vector<std::string> Models() {
    std::vector<std::string> models;
    journal::Reader reader(Home());
    reader.ReadNew([&models](std::string_view line) {
      const json entry = json::parse(line, nullptr, false);
      if (!entry.is_discarded()) models.push_back(entry.at("model"));
    });
    EXPECT_THAT(reader.Troubles(), IsEmpty());
    return models;
  }

  support::TempHome home_;
};

TEST_F(JournalTest, LineTellsWhatIsKnown) {
  using namespace std::chrono;  // NOLINT: literals and dates
  journal::Writer writer(Home());
  writer.Append({.time = sys_days(2026y / 11 / 26) + 17h + 30min + 12s + 7ms,
                 .user = 1000,
                 .process = 4242,
                 .className = "ZNPL_Relatorio2",
                 .method = "Grava",
                 .module = "CT",
                 .component = "01",
                 .model = "Razão\n\"\\\x1B[2J\x7F\u0085\u2028",
                 .outcome = "stays",
                 .result = static_cast<std::int32_t>(0x80040005),
                 .bytes = 0,
                 .reason = "why"});
  writer.Append({});
  EXPECT_EQ(
      support::ReadFile(File()),
      R"({"time":"2026-11-26T17:30:12.007Z","user":1000,"process":4242,"class":"ZNPL_Relatorio2","method":"Grava",)"
      R"("module":"CT","component":"01","model":"Razão\u000a\"\\\u001b[2J\u007f\u0085\u2028","outcome":"stays",)"
      R"("result":"0x80040005","bytes":0,"reason":"why"})"
      "\n"
      R"({"time":"1970-01-01T00:00:00.000Z","user":0,"process":0,"result":"0x00000000"})"
      "\n");
  struct stat status {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
}

TEST_F(JournalTest, TextsAreCutAndMalformedOnesReplaced) {
  std::string most;
  for (std::size_t i = 0; i < journal::kLongestText; ++i)
    most += "é";
  const std::string cut = most.substr(2) + "…";
  const std::map<std::string, std::string> texts = {
      {"a\x80z", "a\uFFFDz"},
      {"\xC3", "\uFFFD"},
      {"\xC0\xAF\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xF4\x90\x80\x80\xF0\x9F\x98\x80", "\uFFFD\uFFFD\uFFFD\uFFFD\U0001F600"},
      {std::string("\0", 1), std::string("\0", 1)},
      {most, most},
      {most + "é", cut},
      {most + "\xC3", cut},
      {R"({"time":")", R"({"time":")"},
  };
  journal::Writer writer(Home());
  for (const auto& [text, shown] : texts) {
    EXPECT_EQ(Append(writer, text), "");
    EXPECT_EQ(Models().back(), shown);
  }
  const std::string huge(5 << 20, '\x01');
  writer.Append({.className = huge,
                 .method = huge,
                 .module = huge,
                 .component = huge,
                 .model = huge,
                 .outcome = huge,
                 .reason = huge});
  EXPECT_EQ(Models().back(), std::string(journal::kLongestText - 1, '\x01') + "…");
  EXPECT_EQ(Models().size(), texts.size() + 1);
}

TEST_F(JournalTest, ALineIsOneWriteAndNoFlush) {
  journal::Writer writer(Home());
  EXPECT_EQ(Append(writer, "first"), "");
  std::vector<std::string> calls;
  const SystemCalls seen([&calls](const host::SystemCall& call) {
    calls.emplace_back(call.name);
    return host::Fate{};
  });
  EXPECT_EQ(Append(writer, "second"), "");
  EXPECT_THAT(calls, ElementsAre("statx", "write"));
}

// Obstacles to writing are reported. The writer neither waits for them nor changes them.
TEST_F(JournalTest, WhatLiesInItsPlaceIsLeftAlone) {
  support::WriteFile(File("elsewhere"), "");
  const std::map<std::string, std::function<void()>> obstacles = {
      {"it is a folder", [this] { create_directory(File()); }},
      {"it is a symbolic link", [this] { create_symlink("elsewhere", File()); }},
      {"it is no regular file", [this] { ASSERT_EQ(mkfifo(File().c_str(), 0600), 0); }},
  };
  for (const auto& [trouble, prepare] : obstacles) {
    journal::Writer writer(Home());
    EXPECT_EQ(Append(writer, "before"), "");
    remove(File());
    prepare();
    const auto type = symlink_status(File()).type();
    EXPECT_EQ(Append(writer, "lost"), trouble);
    EXPECT_EQ(journal::ConditionOf(Home()).trouble, trouble);
    EXPECT_EQ(symlink_status(File()).type(), type);
    remove(File());
    EXPECT_EQ(Append(writer, "after"), "");
    EXPECT_THAT(Models(), ElementsAre("after"));
    remove(File());
  }
  EXPECT_EQ(support::ReadFile(File("elsewhere")), "");
}

TEST_F(JournalTest, MissingRightsAndFoldersAreTold) {
  EXPECT_EQ(journal::ConditionOf(Home()).trouble, "");
  EXPECT_FALSE(exists(File()));
  const auto expect = [](const std::string& trouble) {
    EXPECT_EQ(journal::ConditionOf(Home()).trouble, trouble);
    EXPECT_EQ(AppendOne("lost"), trouble);
  };
  if (geteuid() == 0) {
    permissions(home_.Home().parent_path(), std::filesystem::perms{0755});
    support::Child stranger([&] {
      support::BecomeUser(1234);
      expect("Permission denied");  // the folder
      return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(stranger.Wait(), 0);
    AppendOne("of the owner");
    support::Child other([&] {
      support::BecomeUser(1234);
      expect("Permission denied");  // the file
      return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(other.Wait(), 0);
  }
  remove_all(home_.Home());
  expect("No such file or directory");
}

// Root writes as the home's owner. If a group may write the home, its members share one journal.
TEST_F(JournalTest, BelongsToTheOwnersOfTheHome) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  permissions(home_.Home().parent_path(), std::filesystem::perms{0755});
  ASSERT_EQ(chown(home_.Home().c_str(), 1234, 4321), 0);
  permissions(home_.Home(), std::filesystem::perms{0775});
  EXPECT_EQ(AppendOne("root's"), "");
  struct stat status {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
  remove(File());
  for (const uid_t user : {2345U, 1234U, 3456U}) {
    support::Child member([&] {
      support::BecomeUser(user, {4321});
      return AppendOne("a member's").empty() ? 0 : 1;
    });
    EXPECT_EQ(member.Wait(), 0) << user;
  }
  EXPECT_EQ(Models().size(), 3U);
}

// A full disk takes a part of a line, or nothing. Other lines, of this process and of others, stay complete.
TEST_F(JournalTest, FragmentsRuinNoOtherLine) {
  journal::Writer writer(Home());
  EXPECT_EQ(Append(writer, "first"), "");
  const auto fill = [&writer](host::Fate fate) {
    const SystemCalls full(
        [fate](const host::SystemCall& call) { return call.name == std::string_view("write") ? fate : host::Fate{}; });
    EXPECT_EQ(Append(writer, "lost"), "No space left on device");
  };
  fill({.error = ENOSPC});
  EXPECT_EQ(Append(writer, "second"), "");
  fill({.error = 0, .most = 60});
  fill({.error = ENOSPC});
  EXPECT_EQ(Append(writer, "third"), "");
  fill({.error = 0, .most = 5});
  EXPECT_EQ(AppendOne("fourth"), "");
  EXPECT_EQ(Append(writer, "fifth"), "");
  std::istringstream file(support::ReadFile(File()));
  int whole = 0;
  for (std::string line; std::getline(file, line);)
    whole += json::accept(line) ? 1 : 0;
  EXPECT_EQ(whole, 5);
  fill({.error = 0, .most = 30});
  const std::string glued = R"({"time":"1970-01-01T00:00:00.000Z","model":"sixth"})";
  support::WriteFile(File(),
                     support::ReadFile(File()) + glued + "\n" + std::string(300'000, 'x') + glued + "\n{\"time\":\"");
  EXPECT_THAT(Models(), ElementsAre("first", "second", "third", "fourth", "fifth", "sixth", "sixth"));
  {
    const SystemCalls full([](const host::SystemCall& call) {
      return host::Fate{.error = call.name == std::string_view("fstatvfs") ? ENOSPC : 0};
    });
    EXPECT_EQ(journal::ConditionOf(Home()).trouble, "No space left on device");
  }
}

TEST_F(JournalTest, SettingsComeFromTheRegistry) {
  const auto expect = [](std::uint64_t bytes, unsigned older, bool systemLog) {
    const journal::Settings settings = journal::ReadSettings();
    EXPECT_EQ(settings.bytes, bytes);
    EXPECT_EQ(settings.older, older);
    EXPECT_EQ(settings.systemLog, systemLog);
  };
  const auto set = [](DWORD bytes, DWORD older, DWORD systemLog, DWORD type = REG_DWORD) {
    Set("DiarioBytes", bytes, type);
    Set("DiarioArquivos", older, type);
    Set("DiarioSyslog", systemLog, type);
  };
  expect(8 << 20, 4, false);
  set(kFewestBytes, 99, 1);
  expect(kFewestBytes, 99, true);
  set(kFewestBytes, 99, 1, REG_BINARY);
  expect(8 << 20, 4, false);
  set(kFewestBytes - 1, 100, 2);
  expect(8 << 20, 4, false);

  // A running writer follows the settings. The system log also gets lines that the journal cannot take.
  journal::Writer writer(Home());
  EXPECT_EQ(Append(writer, "silent"), "");
  EXPECT_THAT(SystemLog(), IsEmpty());
  set(kFewestBytes, 0, 1);
  EXPECT_TRUE(support::WaitUntil([&] { return Append(writer, "100%s").empty() && !SystemLog().empty(); }));
  EXPECT_THAT(SystemLog().back(), HasSubstr(R"("model":"100%s")"));
  for (unsigned bytes = 0; bytes < 2 * kFewestBytes; bytes += 600)
    Append(writer, "more", std::string(512, 'x'));
  EXPECT_FALSE(exists(File("journal.1.jsonl")));
  remove(File());
  create_directory(File());
  EXPECT_NE(Append(writer, "lost"), "");
  EXPECT_THAT(SystemLog().back(), HasSubstr("lost"));
}

// A process may be stopped before any of its calls while another one fills file after file, or one file if it is
// stopped during a rotation.
TEST_F(JournalTest, StoppedProcessLosesNoLine) {
  using std::string_view;
  Set("DiarioBytes", kFewestBytes);
  const std::string reason(512, 'x');
  for (const string_view place : {"F_OFD_SETLK", "statx", "write", "openat", "renameat2", "unlinkat"}) {
    const bool deletes = place == "unlinkat";
    const bool rotates = place == "renameat2" || deletes;
    Set("DiarioArquivos", 1);
    journal::Writer stopped(Home());
    journal::Writer other(Home());
    if (place == "statx" || place == "write") Append(stopped, "before", reason);
    while (rotates && (!exists(File("journal.1.jsonl")) || file_size(File()) + 600 < kFewestBytes))
      Append(other, "before", reason);
    int appended = 0;
    bool isReached = false;
    {
      const SystemCalls stop([&](const host::SystemCall& call) {
        const bool isPlace = call.name == place && (!deletes || string_view(call.path).ends_with("jsonl"));
        if (!isPlace || std::exchange(isReached, true)) return host::Fate{};
        for (; appended < 500; ++appended)
          EXPECT_EQ(Append(other, place, reason), "");
        return host::Fate{};
      });
      EXPECT_EQ(Append(stopped, "late", reason), "");
    }
    EXPECT_TRUE(isReached);
    const std::vector<std::string> models = Models();
    EXPECT_EQ(std::count(models.begin(), models.end(), "late"), 1) << place;
    EXPECT_EQ(std::count(models.begin(), models.end(), place) == appended, rotates) << place;
    Clear();
  }
}

// A process may be killed before each call of a rotation; some file systems cannot rename without replacing.
TEST_F(JournalTest, KilledRotationLosesNoFile) {
  Set("DiarioBytes", kFewestBytes);
  Set("DiarioArquivos", 99);
  const std::string reason(512, '\x01');  // each takes six bytes
  for (const bool refusesRenaming : {false, true}) {
    bool isKilled = true;
    for (int place = refusesRenaming ? 2 : 1; isKilled; place += support::LongTests() ? 1 : 2) {
      Clear();
      std::vector<std::string> expected;
      for (const char* name : {"journal.3.jsonl", "journal.2.jsonl", "journal.1.jsonl"}) {
        AppendOne(name);
        rename(File(), File(name));
        expected.emplace_back(name);
      }
      journal::Writer writer(Home());
      while (!exists(File()) || file_size(File()) + 3200 < kFewestBytes) {
        expected.push_back(std::to_string(expected.size()));
        Append(writer, expected.back(), reason);
      }
      support::Child rotator([&] {
        int calls = 0;
        const SystemCalls killer([&](const host::SystemCall& call) {
          if (++calls == place) kill(getpid(), SIGKILL);
          return host::Fate{.error = refusesRenaming && call.name == std::string_view("renameat2") ? EINVAL : 0};
        });
        journal::Writer other(Home());
        return Append(other, "rotates", reason).empty() ? 0 : 1;
      });
      const int status = rotator.Wait();
      isKilled = status == 128 + SIGKILL;
      EXPECT_TRUE(isKilled || status == 0);
      for (int i = 0; i < 2; ++i) {
        expected.push_back("after" + std::to_string(i));
        EXPECT_EQ(Append(writer, expected.back(), reason), "");
      }
      std::vector<std::string> models = Models();
      std::erase(models, "rotates");
      ASSERT_EQ(models, expected) << "killed before call " << place;
      ASSERT_LT(file_size(File()), kFewestBytes) << "not rotated, killed before call " << place;
    }
  }
  EXPECT_THAT(support::Names(home_.Home()), testing::Not(testing::Contains(testing::StartsWith(".journal"))));
}

// ---- Many processes ------------------------------------------------------------------------------------------------

constexpr unsigned kWriters = 8;
constexpr unsigned kMostWriters = 4000;  // including replacements of killed ones

struct Books {
  std::array<std::atomic<unsigned>, kMostWriters> written{};
  std::atomic<int> read{0};
  std::atomic<int> total{0};  // may be too low if a process was killed before it counted its line
  std::atomic<unsigned> lost{0};
  std::atomic<bool> closed{false};
};

class JournalOfMany : public JournalTest {
 protected:
  // Runs processes that append and rotate; stops one for a while, and kills and replaces one. Calls `look` all the
  // time.
  void Run(unsigned older, int mostAhead, const std::function<void()>& look) {
    Set("DiarioBytes", kFewestBytes);
    Set("DiarioArquivos", older);
    std::vector<std::unique_ptr<support::Child>> writers(kWriters);
    for (auto& writer : writers)
      writer = Start(mostAhead);
    std::minstd_rand random(older);
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(support::LongTests() ? 60 : 1);
    while (std::chrono::steady_clock::now() < end && started_ < kMostWriters) {
      const auto first = random() % kWriters;
      const pid_t stopped = writers.at(first)->Pid();
      auto& killed = writers.at((first + 1 + random() % (kWriters - 1)) % kWriters);
      kill(stopped, SIGSTOP);
      const auto pause = std::chrono::steady_clock::now() + std::chrono::milliseconds(random() % 60);
      while (std::chrono::steady_clock::now() < pause)
        look();
      killed->Kill();
      EXPECT_EQ(killed->Wait(), 128 + SIGKILL) << "ended by itself";
      killed = Start(mostAhead);
      kill(stopped, SIGCONT);
    }
    books_->closed = true;
    for (auto& writer : writers)
      EXPECT_EQ(writer->Wait(), 0);
    look();
    EXPECT_EQ(books_->lost, 0U);
  }

  std::unique_ptr<support::Child> Start(int mostAhead) {
    return std::make_unique<support::Child>([this, mostAhead, number = started_++] {
      journal::Writer writer(Home());
      for (unsigned i = 1; !books_->closed; ++i) {
        while (books_->total - books_->read > mostAhead && !books_->closed)
          usleep(1000);
        if (!Append(writer, std::to_string(number), std::to_string(i)).empty()) ++books_->lost;
        books_->written.at(number) = i;
        ++books_->total;
      }
      return 0;
    });
  }

  // Enters a line. Fails if it was there before, or if it is a fragment that no killed writer can have left.
  void Enter(std::string_view line) {
    const json entry = json::parse(line, nullptr, false);
    if (entry.is_discarded()) {
      ASSERT_LE(++fragments_, started_ - kWriters) << line;
      return;
    }
    const unsigned writer = static_cast<unsigned>(std::stoul(entry.at("model").get<std::string>()));
    const unsigned number = static_cast<unsigned>(std::stoul(entry.at("reason").get<std::string>()));
    std::vector<bool>& seen = seen_[writer];
    if (seen.size() <= number) seen.resize(number + 1);
    ASSERT_FALSE(seen[number]) << "twice: " << line;
    seen[number] = true;
  }

  SharedMemory<Books> books_;
  unsigned started_ = 0;
  unsigned fragments_ = 0;
  std::map<unsigned, std::vector<bool>> seen_;  // by writer and number
};

// Keeps more files than the reader can fall behind.
TEST_F(JournalOfMany, EveryLineIsThereOnce) {
  journal::Reader reader(Home());
  unsigned rotations = 0;
  Run(99, 2'000, [&] {
    int read = 0;
    reader.ReadNew([&](std::string_view line) {
      ++read;
      Enter(line);
    });
    books_->read += read;
  });
  for (unsigned i = 0; i < started_; ++i) {
    const std::vector<bool>& seen = seen_[i];
    for (unsigned number = 1; number <= books_->written.at(i); ++number)
      ASSERT_TRUE(number < seen.size() && seen[number]) << "lost: line " << number << " of writer " << i;
    // A writer may be killed between a line and its entry in the books.
    ASSERT_LE(seen.size(), books_->written.at(i) + 2);
  }
  EXPECT_THAT(reader.Troubles(), IsEmpty());
  for (const std::string& name : support::Names(home_.Home()))
    rotations += name.starts_with("journal.") && name.ends_with(".jsonl") ? 1U : 0U;
  EXPECT_GT(rotations, 0U);
  RecordProperty("lines", books_->total.load());
  RecordProperty("kills", static_cast<int>(started_ - kWriters));
}

TEST_F(JournalOfMany, WhatIsKeptIsWhole) {
  Run(2, std::numeric_limits<int>::max(), [] { usleep(1000); });
  journal::Reader reader(Home());
  reader.ReadNew([this](std::string_view line) { Enter(line); });
  EXPECT_FALSE(seen_.empty());
  // The next rotations delete what a killed or stopped process had kept from being deleted.
  journal::Writer writer(Home());
  const std::string reason(512, 'x');
  for (unsigned bytes = 0; bytes < 2 * kFewestBytes; bytes += 600)
    ASSERT_EQ(Append(writer, "more", reason), "");
  std::vector<std::string> names = support::Names(home_.Home());
  std::erase_if(names, [](const std::string& name) { return !name.starts_with("journal"); });
  EXPECT_THAT(names, ElementsAre("journal.1.jsonl", "journal.2.jsonl", "journal.jsonl", "journal.lock"));
}

}  // namespace
