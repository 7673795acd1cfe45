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

  // Returns the thread's group, or null.
  static ReplacementGroup* Current();

  // Takes ownership of a complete file. `path` is its path as given, for failures. When Add throws std::bad_alloc, the
  // caller still owns the file.
  void Add(std::unique_ptr<Replacement>& replacement, const std::string& path);

  // Return false when no file waits.
  bool FinishClosed() noexcept { return Finish(closed_); }
  bool FinishAll() noexcept { return Finish(members_.size()); }

  // See GroupedReplacements.
  void Close() noexcept;
  bool IsFlushed() const;
  void ForgetClosed() noexcept;

  std::size_t Count() const { return forgotten_ + members_.size(); }
  bool IsFull() const;
  const GroupedReplacements::Outcome& Of(std::size_t number) const { return members_[number - forgotten_].outcome; }

  // True when the name leads to one of the waiting files.
  bool Awaits(const std::string& name) const;

 private:
  struct Member {
    std::unique_ptr<Replacement> replacement;  // null once the file has its name, or has failed
    std::string path;
    std::vector<std::string> awaited;  // the names that lead to it
    GroupedReplacements::Outcome outcome = {};
    std::optional<DWORD> flushed = {};  // the result of flushing its content, once known
    DWORD error = ERROR_SUCCESS;
  };

  bool Finish(std::size_t end) noexcept;
  static DWORD TakeName(Member& member) noexcept;

  const KeptFolder folder_;
  ReplacementGroup* const outer_;
  std::deque<Member> members_;
  std::size_t forgotten_ = 0;                     // how many members were removed
  std::size_t closed_ = 0;                        // how many of the members belong to the closed batch
  std::size_t finished_ = 0;                      // how many of the members, from the first, no longer wait
  std::future<void> flushing_;                    // its thread changes closed members while it is valid
  std::unordered_multiset<std::string> awaited_;  // the names that lead to waiting files, in upper case
  off_t bytes_ = 0;                               // total length of the members that are not closed
};

// Called before the thread uses the file of a path: if a waiting file is meant, gives all of them their names.
void FinishGroupWith(const PathName& path);

// Gives all waiting files of the thread their names. Returns false when there are none.
bool FinishGroup() noexcept;

}  // namespace files
