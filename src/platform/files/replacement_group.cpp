#include "replacement_group.h"

#include <chrono>
#include <exception>
#include <new>
#include <utility>

#include "folder_index.h"
#include "keeping.h"
#include "platform/kernel/host_error.h"

namespace files {
namespace {

// Four times as many files are flushed no faster. Each holds one descriptor, or two if it replaces a file, and there
// are two batches at a time. Of the 1,024 descriptors that a process usually may have, the server keeps 256 for files.
constexpr std::size_t kMostFiles = 60;
constexpr off_t kMostBytes = off_t{8} << 20;

thread_local ReplacementGroup* current = nullptr;

}  // namespace

ReplacementGroup::ReplacementGroup() : outer_(current) {
  FinishGroup();
  current = this;
}

ReplacementGroup::~ReplacementGroup() {
  FinishAll();
  current = outer_;
}

ReplacementGroup* ReplacementGroup::Current() {
  return current;
}

// Starts the writing to the disk at once: most contents are on it by the time they are waited for.
void ReplacementGroup::Add(std::unique_ptr<Replacement>& replacement, const std::string& path) {
  off_t length = 0;
  host::Length(replacement->File(), &length);
  std::vector<std::string> names = replacement->FoldedNames();
  awaited_.insert(names.begin(), names.end());  // a name too many does no harm
  members_.push_back({.replacement = nullptr, .path = path, .awaited = std::move(names)});
  members_.back().replacement = std::move(replacement);
  members_.back().replacement->StartFlushing();
  bytes_ += length;
}

bool ReplacementGroup::IsFull() const {
  return members_.size() - closed_ >= kMostFiles || bytes_ >= kMostBytes;
}

void ReplacementGroup::Close() noexcept {
  FinishClosed();
  closed_ = members_.size();
  bytes_ = 0;
  try {
    std::vector<Member*> waiting;
    for (std::size_t i = finished_; i < closed_; ++i)
      waiting.push_back(&members_[i]);
    if (waiting.empty()) return;
    flushing_ = std::async(std::launch::async, [waiting = std::move(waiting)] {
      for (Member* const member : waiting)
        member->flushed = member->replacement->FlushContent();
    });
  } catch (const std::exception&) {
    // Without a thread, or memory for one, Finish flushes them.
  }
}

bool ReplacementGroup::IsFlushed() const {
  return !flushing_.valid() || flushing_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

void ReplacementGroup::ForgetClosed() noexcept {
  FinishClosed();
  members_.erase(members_.begin(), members_.begin() + static_cast<std::ptrdiff_t>(closed_));
  forgotten_ += closed_;
  finished_ -= closed_;
  closed_ = 0;
}

bool ReplacementGroup::Awaits(const std::string& name) const {
  std::string folded;
  return !awaited_.empty() && FoldName(name, &folded) && awaited_.contains(folded);
}

// Does each step for all members before the next step. A member that fails at a step is skipped at the later ones.
bool ReplacementGroup::Finish(std::size_t end) noexcept {
  if (end <= finished_) return false;
  const auto first = members_.begin() + static_cast<std::ptrdiff_t>(finished_);
  const auto last = members_.begin() + static_cast<std::ptrdiff_t>(end);
  finished_ = end;
  const auto forEach = [&](const auto& step) {
    for (auto member = first; member != last; ++member) {
      if (member->error == ERROR_SUCCESS) member->error = step(*member);
    }
  };
  if (flushing_.valid()) {
    flushing_.wait();
    flushing_ = {};
  }
  forEach([](const Member& member) { return member.flushed ? *member.flushed : member.replacement->FlushContent(); });
  forEach(TakeName);
  struct stat flushed = {};
  DWORD flushError = ERROR_SUCCESS;
  forEach([&](const Member& member) {
    const host::Descriptor& folder = member.replacement->Folder();
    struct stat own = {};
    const bool isKnown = host::Stat(folder, &own) == 0;
    if (!isKnown || !host::SameFile(flushed, own)) flushError = platform::OsError(host::Sync(folder));
    flushed = own;
    return flushError;
  });
  for (auto member = first; member != last; ++member) {
    for (const std::string& name : member->awaited)
      awaited_.erase(awaited_.find(name));
    member->replacement.reset();
    if (member->error != ERROR_SUCCESS)
      member->outcome.failure = CFileException::FromOsError(member->error, std::move(member->path));
  }
  FolderIndexes::OfProcess().CatchUp();
  return true;
}

DWORD ReplacementGroup::TakeName(Member& member) noexcept {
  DWORD error = ERROR_NOT_ENOUGH_MEMORY;
  try {
    error = member.replacement->KeepAndTakeName();
    if (Keeper* const keeper = Keeping::Current(); keeper != nullptr) member.outcome.notKept = keeper->TakeTrouble();
  } catch (const std::bad_alloc&) {
    // The other files still take their names.
  }
  return error;
}

void FinishGroupWith(const PathName& path) {
  if (current != nullptr && current->Awaits(path.Name())) current->FinishAll();
}

bool FinishGroup() noexcept {
  return current != nullptr && current->FinishAll();
}

GroupedReplacements::GroupedReplacements() : m_group(std::make_unique<ReplacementGroup>()) {}

GroupedReplacements::~GroupedReplacements() = default;

std::size_t GroupedReplacements::Count() const {
  return m_group->Count();
}

bool GroupedReplacements::IsFull() const {
  return m_group->IsFull();
}

void GroupedReplacements::Close() noexcept {
  m_group->Close();
}

bool GroupedReplacements::IsFlushed() const {
  return m_group->IsFlushed();
}

bool GroupedReplacements::FinishClosed() noexcept {
  return m_group->FinishClosed();
}

void GroupedReplacements::Finish() noexcept {
  m_group->FinishAll();
}

const GroupedReplacements::Outcome& GroupedReplacements::Of(std::size_t number) const {
  return m_group->Of(number);
}

void GroupedReplacements::ForgetClosed() noexcept {
  m_group->ForgetClosed();
}

}  // namespace files
