// The names of one folder, indexed by their case-folded form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace files {

// Leaves out names that the code page cannot represent: no path leads to them. A folder may hold 100,000 names and
// more; a name of 20 characters takes about 40 bytes. After std::bad_alloc a set can only be assigned to or destroyed.
class NameSet {
 public:
  // Adds the name, unless the set has it already.
  void Insert(std::string_view name);

  void Erase(std::string_view name);

  // Finds the first name in byte order whose folded form is `folded`; false when there is none.
  bool Find(std::string_view folded, std::string* name) const;

 private:
  using Place = std::uint32_t;
  static constexpr Place kFree = static_cast<Place>(-1);

  std::size_t FirstSlot(std::string_view folded) const;
  std::size_t Next(std::size_t slot) const { return (slot + 1) & (slots_.size() - 1); }
  std::string_view NameIn(std::size_t slot) const { return names_.data() + slots_[slot]; }
  std::size_t SlotOf(std::string_view name, std::string_view folded) const;
  void Free(std::size_t slot);
  void Rebuild(std::size_t slots);

  std::string names_;         // each followed by a NUL; erased names stay
  std::vector<Place> slots_;  // a hash table whose size is a power of two: where each name begins in `names_`
  std::size_t count_ = 0;
  std::size_t erased_ = 0;  // how many bytes of `names_` erased names take
};

}  // namespace files
