// Files that were written as a whole and wait for their names.
#pragma once

#include <deque>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "files.h"
#include "lookup.h"
#include "replacement.h"

namespace files {

class ReplacementGroup {
 public:
  ReplacementGroup();
  ~ReplacementGroup();
  ReplacementGroup(const ReplacementGroup&) = delete;
  ReplacementGroup& operator=(const ReplacementGroup&) = delete;

  // That of the thread; null when there is none.
  static ReplacementGroup* Current();

  // Takes over a file that is complete. `path`: as it was given, for failures. Throws std::bad_alloc, and the file is
  // then still the caller's.
  void Add(std::unique_ptr<Replacement>& replacement, const std::string& path);

  // False when no file waits.
  bool FinishClosed() noexcept { return Finish(closed_); }
  bool FinishAll() noexcept { return Finish(members_.size()); }

  // As those of GroupedReplacements.
  void Close() noexcept;
  bool IsFlushed() const;
  void ForgetClosed() noexcept;

  std::size_t Count() const { return forgotten_ + members_.size(); }
  bool IsFull() const;
  const GroupedReplacements::Outcome& Of(std::size_t number) const { return members_[number - forgotten_].outcome; }

  // Whether one of the waiting files is to get the name.
  bool Awaits(const std::string& name) const;

 private:
  struct Member {
    std::unique_ptr<Replacement> replacement;  // null once the file has its name, or has failed
    std::string path;
    std::vector<std::string> awaited;  // the names that lead to it
    GroupedReplacements::Outcome outcome = {};
    std::optional<DWORD> flushed = {};  // what became of the flushing of its content
    DWORD error = ERROR_SUCCESS;
  };

  bool Finish(std::size_t end) noexcept;
  static DWORD TakeName(Member& member) noexcept;

  const KeptFolder folder_;
  ReplacementGroup* const outer_;
  std::deque<Member> members_;
  std::size_t forgotten_ = 0;                     // how many there were before these
  std::size_t closed_ = 0;                        // how many of these are of the closed batch
  std::size_t finished_ = 0;                      // how many of these, from the first, no longer wait
  std::future<void> flushing_;                    // changes closed members while it is valid
  std::unordered_multiset<std::string> awaited_;  // the names that lead to waiting files, in upper case
  off_t bytes_ = 0;                               // of those that are not closed
};

// For what the thread does next with the file of a path: gives waiting files their names if one of them is meant.
void FinishGroupWith(const PathName& path);

// Gives all waiting files of the thread their names. False when there are none.
bool FinishGroup() noexcept;

}  // namespace files
