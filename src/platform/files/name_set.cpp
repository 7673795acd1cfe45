#include "name_set.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <new>
#include <utility>

#include "path_name.h"

namespace files {
namespace {

constexpr std::size_t kFewestSlots = 64;

// The table is at most two thirds full.
bool IsCrowded(std::size_t count, std::size_t slots) {
  return 3 * count > 2 * slots;
}

}  // namespace

std::size_t NameSet::FirstSlot(std::string_view folded) const {
  return std::hash<std::string_view>()(folded) & (slots_.size() - 1);
}

// Returns the slot of the name, or the free slot for it.
std::size_t NameSet::SlotOf(std::string_view name, std::string_view folded) const {
  std::size_t slot = FirstSlot(folded);
  while (slots_[slot] != kFree && NameIn(slot) != name)
    slot = Next(slot);
  return slot;
}

void NameSet::Insert(std::string_view name) {
  std::string folded;
  if (!FoldName(name, &folded)) return;
  if (IsCrowded(count_ + 1, slots_.size())) Rebuild(std::max(2 * slots_.size(), kFewestSlots));
  const std::size_t slot = SlotOf(name, folded);
  if (slots_[slot] != kFree) return;
  const std::size_t place = names_.size();
  if (place >= kFree) throw std::bad_alloc();
  names_.append(name).append(1, '\0');
  slots_[slot] = static_cast<Place>(place);
  ++count_;
}

void NameSet::Erase(std::string_view name) {
  std::string folded;
  if (slots_.empty() || !FoldName(name, &folded)) return;
  const std::size_t slot = SlotOf(name, folded);
  if (slots_[slot] == kFree) return;
  Free(slot);
  erased_ += name.size() + 1;
  --count_;
  if (erased_ > names_.size() / 2) Rebuild(std::max(std::bit_ceil(2 * count_), kFewestSlots));
}

// Moves up the later names that a collision has kept from their slots, because a search ends at the first free slot.
void NameSet::Free(std::size_t slot) {
  std::string folded;
  for (std::size_t behind = Next(slot); slots_[behind] != kFree; behind = Next(behind)) {
    FoldName(NameIn(behind), &folded);
    const std::size_t mask = slots_.size() - 1;
    const std::size_t wayBehind = (behind - FirstSlot(folded)) & mask;
    if (wayBehind < ((behind - slot) & mask)) continue;
    slots_[slot] = slots_[behind];
    slot = behind;
  }
  slots_[slot] = kFree;
}

bool NameSet::Find(std::string_view folded, std::string* name) const {
  if (slots_.empty()) return false;
  std::string own;
  std::string_view first;
  for (std::size_t slot = FirstSlot(folded); slots_[slot] != kFree; slot = Next(slot)) {
    const std::string_view here = NameIn(slot);
    if (FoldName(here, &own) && own == folded && (first.empty() || here < first)) first = here;
  }
  *name = first;
  return !first.empty();
}

// Drops the erased names.
void NameSet::Rebuild(std::size_t slots) {
  NameSet rebuilt;
  rebuilt.names_.reserve(names_.size() - erased_);
  rebuilt.slots_.assign(slots, kFree);
  for (std::size_t slot = 0; slot < slots_.size(); ++slot) {
    if (slots_[slot] != kFree) rebuilt.Insert(NameIn(slot));
  }
  *this = std::move(rebuilt);
}

}  // namespace files
