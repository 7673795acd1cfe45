#include "replacement_group.h"

#include <new>
#include <utility>

#include "folder_index.h"
#include "keeping.h"
#include "platform/kernel/host_error.h"

namespace files {
namespace {

// Four times as many are flushed no faster. Each holds three descriptors, of which a process may mostly have 1,024.
constexpr std::size_t kMostFiles = 64;
constexpr off_t kMostBytes = off_t{8} << 20;

thread_local ReplacementGroup* current = nullptr;

}  // namespace

ReplacementGroup::ReplacementGroup() : outer_(current) {
  members_.reserve(kMostFiles);
  FinishGroup();
  current = this;
}

ReplacementGroup::~ReplacementGroup() {
  Finish();
  current = outer_;
}

ReplacementGroup* ReplacementGroup::Current() {
  return current;
}

// The disk begins at once: most contents are on it by the time that they are waited for.
void ReplacementGroup::Add(std::unique_ptr<Replacement>& replacement, const std::string& path) {
  off_t length = 0;
  host::Length(replacement->File(), &length);
  for (std::string& name : replacement->FoldedNames())
    awaited_.insert(std::move(name));
  members_.push_back({nullptr, path, {}});
  members_.back().replacement = std::move(replacement);
  members_.back().replacement->StartFlushing();
  ++waiting_;
  bytes_ += length;
}

bool ReplacementGroup::IsFull() const {
  return members_.size() >= kMostFiles || bytes_ >= kMostBytes;
}

void ReplacementGroup::Clear() noexcept {
  Finish();
  members_.clear();
  bytes_ = 0;
}

bool ReplacementGroup::Awaits(const std::string& name) const {
  std::string folded;
  return waiting_ > 0 && FoldName(name, &folded) && awaited_.contains(folded);
}

// The steps are done for all, one after the other: what has failed at one is passed over at the next.
bool ReplacementGroup::Finish() noexcept {
  if (waiting_ == 0) return false;
  const auto first = members_.end() - static_cast<std::ptrdiff_t>(std::exchange(waiting_, 0));
  awaited_.clear();
  const auto forEach = [&](const auto& step) {
    for (auto member = first; member != members_.end(); ++member) {
      if (member->error == ERROR_SUCCESS) member->error = step(*member);
    }
  };
  forEach([](const Member& member) { return member.replacement->FlushContent(); });
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
  for (auto member = first; member != members_.end(); ++member) {
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
    // The others take theirs all the same.
  }
  return error;
}

void FinishGroupWith(const PathName& path) {
  if (current != nullptr && current->Awaits(path.Name())) current->Finish();
}

bool FinishGroup() noexcept {
  return current != nullptr && current->Finish();
}

GroupedReplacements::GroupedReplacements() : m_group(std::make_unique<ReplacementGroup>()) {}

GroupedReplacements::~GroupedReplacements() = default;

std::size_t GroupedReplacements::Count() const {
  return m_group->Count();
}

bool GroupedReplacements::IsFull() const {
  return m_group->IsFull();
}

void GroupedReplacements::Finish() noexcept {
  m_group->Finish();
}

const GroupedReplacements::Outcome& GroupedReplacements::Of(std::size_t number) const {
  return m_group->Of(number);
}

void GroupedReplacements::Clear() noexcept {
  m_group->Clear();
}

}  // namespace files
