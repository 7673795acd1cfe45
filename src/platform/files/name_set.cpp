#include "name_set.h"

#include <algorithm>

#include "path_name.h"

namespace files {
namespace {

constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kErased = 1;
constexpr std::size_t kFirstOffset = 2;
constexpr std::size_t kSmallest = 16;

std::uint32_t HashOf(std::string_view folded) {
  std::uint32_t hash = 2166136261U;
  for (const char c : folded)
    hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return hash ^ (hash >> 15);
}

}  // namespace

NameSet::NameSet() : slots_(kSmallest), names_(kFirstOffset, '\0') {}

std::string_view NameSet::NameAt(std::uint32_t offset) const {
  return std::string_view(names_).substr(offset + 1, static_cast<unsigned char>(names_[offset]));
}

NameSet::Slot* NameSet::SlotOf(std::string_view name, std::uint32_t hash) {
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t at = hash & mask; slots_[at].offset != kFree; at = (at + 1) & mask) {
    Slot& slot = slots_[at];
    if (slot.offset != kErased && slot.hash == hash && NameAt(slot.offset) == name) return &slot;
  }
  return nullptr;
}

void NameSet::Place(std::uint32_t hash, std::uint32_t offset) {
  const std::size_t mask = slots_.size() - 1;
  std::size_t at = hash & mask;
  while (slots_[at].offset != kFree)
    at = (at + 1) & mask;
  slots_[at] = {hash, offset};
  ++used_;
}

// Makes room, and leaves erased slots and the names of what was erased behind.
void NameSet::Rebuild() {
  std::vector<Slot> slots(std::max(kSmallest, slots_.size()));
  while (slots.size() < (count_ + 1) * 2)
    slots.resize(slots.size() * 2);
  slots_.swap(slots);
  std::string names(kFirstOffset, '\0');
  names.reserve(names_.size());
  used_ = 0;
  for (const Slot& slot : slots) {
    if (slot.offset == kFree || slot.offset == kErased) continue;
    const std::string_view name = NameAt(slot.offset);
    Place(slot.hash, static_cast<std::uint32_t>(names.size()));
    names += static_cast<char>(name.size());
    names += name;
  }
  names_.swap(names);
}

void NameSet::Insert(std::string_view name) {
  if (!FoldName(name, &folded_)) return;
  const std::uint32_t hash = HashOf(folded_);
  if (SlotOf(name, hash) != nullptr) return;
  if ((used_ + 1) * 4 > slots_.size() * 3) Rebuild();
  Place(hash, static_cast<std::uint32_t>(names_.size()));
  names_ += static_cast<char>(name.size());
  names_ += name;
  ++count_;
}

void NameSet::Erase(std::string_view name) {
  if (!FoldName(name, &folded_)) return;
  Slot* const slot = SlotOf(name, HashOf(folded_));
  if (slot == nullptr) return;
  slot->offset = kErased;
  --count_;
}

bool NameSet::Find(std::string_view folded, std::string* name) const {
  const std::uint32_t hash = HashOf(folded);
  const std::size_t mask = slots_.size() - 1;
  bool found = false;
  std::string foldedCandidate;
  for (std::size_t at = hash & mask; slots_[at].offset != kFree; at = (at + 1) & mask) {
    const Slot& slot = slots_[at];
    if (slot.offset == kErased || slot.hash != hash) continue;
    const std::string_view candidate = NameAt(slot.offset);
    if (found && candidate >= *name) continue;
    if (!FoldName(candidate, &foldedCandidate) || foldedCandidate != folded) continue;
    *name = candidate;
    found = true;
  }
  return found;
}

}  // namespace files
