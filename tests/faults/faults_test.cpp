// Every operation of the interfaces that touches files, with each of its system calls and allocations failing in turn:
// no model is lost, and what clients are told is true.
#include "faults.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "operations.h"

namespace {

using faults::Attack;
using support::Child;
using support::LongTests;

constexpr int kMostTold = 10;  // losses reported for one operation

// A process takes five times as long to start under a sanitizer.
#if defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

bool BeginsWithOneOf(const std::string& text, const std::vector<std::string>& beginnings) {
  return std::any_of(beginnings.begin(), beginnings.end(), [&](const auto& b) { return text.starts_with(b); });
}

// What clients find under a key before an operation, after it if undisturbed, and after repeating it.
struct Versions {
  std::string before, after, afterSecond;
};

class FaultsTest : public Station {
 protected:
  ~FaultsTest() override {
    std::printf("faults: %s: %zu operations, %d fault points, %d losses\n",
                testing::UnitTest::GetInstance()->current_test_info()->name(), Operations().size(), points_, losses_);
  }

  // Disturbs every operation at one place after the other, in each manner, until it completes without reaching the
  // place. In the short form each manner disturbs one place out of `every`, in turn, and a third of these under a
  // sanitizer.
  void StrikeAll(std::size_t Attack::*place, const std::vector<Attack>& manners, std::size_t every) {
    if (kSanitized) every *= 3;
    for (const Operation& operation : Operations()) {
      Do(operation);
      const int lossesBefore = losses_;
      bool ended = false;
      for (std::size_t at = 1; !ended && losses_ - lossesBefore < kMostTold; ++at) {
        for (std::size_t i = 0; i < manners.size(); ++i) {
          if (!LongTests() && (at + i) % every != 0) continue;
          Attack attack = manners[i];
          attack.*place = at;
          ended |= !Strike(operation, attack);
        }
      }
    }
  }

 private:
  void Do(const Operation& operation) {
    contents_.clear();
    Renew(operation);
    for (const auto& [key, content] : Seen())
      contents_[key].before = content;
    Renew(operation);
    where_ = std::string(operation.name) + ": ";
    ExpectFlushed(faults::Run({}, [&] { answer_ = operation.call(*this); }));
    ExpectKept();
    for (const auto& [key, content] : Seen())
      contents_[key].after = content;
    secondAnswer_ = operation.call(*this);
    for (const auto& [key, content] : Seen())
      contents_[key].afterSecond = content;
    EXPECT_FALSE(answer_.starts_with("0x8")) << operation.name << ": " << answer_;
  }

  // Does what the server's stub does with a call: turns an allocation failure into a result.
  faults::Strike Run(const Operation& operation, const Attack& attack, std::string* answer) {
    return faults::Run(attack, [&] {
      try {
        *answer = operation.call(*this);
      } catch (const std::bad_alloc&) {
        *answer = kestor::ResultCode(E_OUTOFMEMORY);
      } catch (...) {
        *answer = "an exception";
      }
    });
  }

  faults::Strike Kill(const Operation& operation, const Attack& attack) {
    Child server([&] {
      std::string answer;
      Run(operation, attack, &answer);
      return 0;
    });
    const int status = server.Wait();
    EXPECT_TRUE(status == 0 || status == 128 + SIGKILL) << operation.name << " ends with " << status;
    Reconnect();
    return {.reached = status != 0, .struck = true, .call = "killed"};
  }

  // Returns false if the operation completed without reaching the place.
  bool Strike(const Operation& operation, const Attack& attack) {
    Renew(operation);
    const auto descriptors = [] { return support::Names("/proc/self/fd").size(); };
    const std::size_t descriptorsBefore = descriptors();
    std::string answer;
    const faults::Strike strike = attack.kills ? Kill(operation, attack) : Run(operation, attack, &answer);
    where_ = std::string(operation.name) + ", place " + std::to_string(attack.call + attack.allocation) + " " +
             strike.call + ", error " + std::to_string(attack.error) + ", answer " + answer + ": ";
    if (descriptors() > descriptorsBefore) Lost("a descriptor is left open");
    for (const std::string& name : strike.tooEarly)
      Lost(name + " is changed too early");
    if (!strike.struck) return strike.reached;
    ++points_;

    const State seen = Seen();
    Judge(operation, strike, attack, answer, seen);
    if (!attack.kills) {
      // Another station, whose process has none of this one's state.
      if (points_ % 5 == 0) {
        Child other([&] { return Seen() == seen ? 0 : 1; });
        if (other.Wait() != 0) Lost("another process sees something else");
      }
      if (strike.call != "unlinkat" && !attack.lasts && !HiddenFiles().empty()) Lost("leaves a hidden file");
    }
    AnswerOnceMore(operation, attack.refusesRenaming);
    // Older than any file that might still be in use.
    for (const std::string& name : HiddenFiles())
      std::filesystem::last_write_time(Reports() / name,
                                       std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    if (!HiddenFiles().empty()) Seen();
    if (!HiddenFiles().empty()) Lost("a hidden file is not cleaned up");
    return strike.reached;
  }

  void Judge(const Operation& operation, const faults::Strike& strike, const Attack& attack, const std::string& answer,
             State seen) {
    if (attack.kills) ExpectKept();
    const bool done = answer == answer_;
    const bool failed = BeginsWithOneOf(answer, operation.failures) ||
                        (attack.allocation != 0 && answer.starts_with(kestor::ResultCode(E_OUTOFMEMORY)));
    if (!attack.kills && !done && !failed) Lost("is no answer of this operation");
    if (done && operation.untold.empty() && !attack.kills) ExpectFlushed(strike);
    // Content whose flush failed is there nevertheless, and so is the part of a record that was written in place.
    const bool flushed = !attack.lasts && !strike.call.ends_with("sync");
    const bool inPlace = attack.errorBehind != 0;
    for (const auto& [key, content] : seen)
      contents_[key];
    for (const auto& [key, versions] : contents_) {
      const std::string& now = seen[key];
      const bool isOld = now == versions.before;
      const bool isNew = now == versions.after;
      const std::string document = key.substr(0, key.find('.')) + ".RXL";
      const bool isGone = now.empty() && (key.ends_with(".REL") || key.ends_with(".REE"));
      if (isGone && seen[document] != contents_[document].after) Lost(key + " is gone without a document");
      if (BeginsWithOneOf(key, operation.otherwise)) continue;
      if (!isOld && !isNew) Lost(key + " is neither old nor new: ", now);
      if (attack.kills || BeginsWithOneOf(key, operation.untold) || key == "ZNCTLARQ.DAT") continue;
      if (done && !isNew && strike.call != operation.unnoticed) Lost(key + " is old: ", now);
      if (!done && !isOld && flushed && !(inPlace && key == "ZNRELPAD.DAT")) Lost(key + " is new: ", now);
    }
  }

  void ExpectKept() {
    if (!KeepsHistory()) return;
    for (const std::string& name : LostVersions())
      Lost("the history lacks what " + name + " held");
  }

  // What was reported as done must survive a power failure.
  void ExpectFlushed(const faults::Strike& strike) {
    std::vector<std::string> names = support::Names(Reports());
    names.emplace_back(".");
    for (const std::string& name : names) {
      struct stat status {};
      if (stat((Reports() / name).c_str(), &status) == 0 && strike.unflushed.contains(status.st_ino))
        Lost(name + " is not flushed");
    }
  }

  void AnswerOnceMore(const Operation& operation, bool refusesRenaming) {
    std::string answer;
    Run(operation, {.refusesRenaming = refusesRenaming}, &answer);
    if (answer != answer_ && answer != secondAnswer_) Lost("answers " + answer + " once more");
    State seen = Seen();
    // An operation that skips what it cannot do does it the next time.
    const bool passesOver = BeginsWithOneOf("", operation.untold);
    for (const auto& [key, content] : seen)
      contents_[key];
    for (const auto& [key, versions] : contents_) {
      const std::string& now = seen[key];
      const bool isOld = now == versions.before && !passesOver && BeginsWithOneOf(key, operation.untold);
      if (isOld || now == versions.after || now == versions.afterSecond || key.starts_with("ZNCTLARQ")) continue;
      if (!BeginsWithOneOf(key, operation.otherwise)) Lost(key + " once more: ", now);
    }
  }

  void Lost(const std::string& what, const std::string& content = {}) {
    ++losses_;
    ADD_FAILURE() << where_ << what << content;
  }

  std::map<std::string, Versions> contents_;
  std::string answer_, secondAnswer_;
  std::string where_;
  int points_ = 0;
  int losses_ = 0;
};

TEST_F(FaultsTest, SystemCallsFail) {
  StrikeAll(&Attack::call, {{.error = EIO}, {.error = ENOSPC}}, 3);
}

TEST_F(FaultsTest, SystemCallsAreRefused) {
  StrikeAll(&Attack::call, {{.error = EACCES}, {.error = EMFILE}}, 3);
}

// All calls from one place on fail: what exists is complete, though it may not be on the disk.
TEST_F(FaultsTest, DiskIsGone) {
  StrikeAll(&Attack::call, {{.error = EIO, .lasts = true}, {.error = ENOSPC, .lasts = true}}, 3);
}

// Clients notice neither partial reads and writes nor calls that a signal interrupts.
TEST_F(FaultsTest, SystemCallsAreShort) {
  StrikeAll(&Attack::call, {{.most = 1}, {.most = 100}, {.error = EINTR}}, 3);
}

TEST_F(FaultsTest, DiskFailsInTheMiddle) {
  StrikeAll(&Attack::call, {{.most = 1, .errorBehind = ENOSPC}, {.most = 100, .errorBehind = EIO}}, 2);
}

// Kills before each call, which is after the previous one, and after the last call.
TEST_F(FaultsTest, ProcessIsKilled) {
  StrikeAll(&Attack::call, {{.kills = true}}, 3);
}

// On such a file system a new file has both its name and the hidden one for a moment.
TEST_F(FaultsTest, FileSystemCannotRenameWithoutReplacing) {
  StrikeAll(&Attack::call, {{.kills = true, .refusesRenaming = true}, {.error = EIO, .refusesRenaming = true}}, 1);
}

// An operation succeeds even if the history cannot be kept. A version exists before its model changes.
TEST_F(FaultsTest, HistoryIsKept) {
  KeepHistory();
  StrikeAll(&Attack::call, {{.kills = true}, {.error = EIO}}, 3);
}

TEST_F(FaultsTest, MemoryRunsOut) {
  StrikeAll(&Attack::allocation, {Attack{}}, 7);
}

}  // namespace
