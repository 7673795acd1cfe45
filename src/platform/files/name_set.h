// The names of one folder, found by their letter-case-folded form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace files {

// Names that the code page cannot hold are left out: no path leads to them. A folder may hold 100,000 and more: a
// name of 20 characters takes some 40 bytes. After std::bad_alloc a set can be assigned to, but tells nothing any more.
class NameSet {
 public:
  // Adds the name once, however often it is inserted.
  void Insert(std::string_view name);

  void Erase(std::string_view name);

  // Gives the first name in byte order among those of the folded form `folded`; false when there is none.
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

  std::string names_;         // each with a NUL behind it, also erased ones
  std::vector<Place> slots_;  // a hash table, a power of two: where in `names_` the name begins
  std::size_t count_ = 0;
  std::size_t erased_ = 0;  // bytes of `names_`
};

}  // namespace files
