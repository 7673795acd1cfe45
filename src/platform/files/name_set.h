// The names of one folder, found by their letter-case-folded form.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace files {

// Lean, because folders of 100,000 names exist: the names lie one after the other in one block, and an open hash table
// of their folded forms leads to them. Names that the code page cannot hold are left out: nobody can ask for them.
class NameSet {
 public:
  NameSet();

  void Insert(std::string_view name);  // once, however often it is inserted
  void Erase(std::string_view name);

  // The first name in byte order among those of the folded form `folded`; false when there is none.
  bool Find(std::string_view folded, std::string* name) const;

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t offset = 0;  // into names_; kFree or kErased
  };

  std::string_view NameAt(std::uint32_t offset) const;
  Slot* SlotOf(std::string_view name, std::uint32_t hash);
  void Place(std::uint32_t hash, std::uint32_t offset);
  void Rebuild();

  std::vector<Slot> slots_;  // a power of two
  std::size_t used_ = 0;     // slots that are not free, erased ones included
  std::size_t count_ = 0;
  std::string names_;   // of each name its length in one byte, then the name
  std::string folded_;  // of the name in hand
};

}  // namespace files
