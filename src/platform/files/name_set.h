// The names of one folder, found by their letter-case-folded form.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "path_name.h"

namespace files {

// Names that the code page cannot hold are left out: no path leads to them.
class NameSet {
 public:
  // Adds the name once, however often it is inserted.
  void Insert(std::string_view name) {
    std::string key;
    if (KeyOf(name, &key)) keys_.insert(std::move(key));
  }

  void Erase(std::string_view name) {
    std::string key;
    if (KeyOf(name, &key)) keys_.erase(key);
  }

  // Gives the first name in byte order among those of the folded form `folded`; false when there is none.
  bool Find(std::string_view folded, std::string* name) const {
    const std::string start = std::string(folded) + '\0';
    const auto found = keys_.lower_bound(start);
    if (found == keys_.end() || !found->starts_with(start)) return false;
    *name = found->substr(start.size());
    return true;
  }

 private:
  static bool KeyOf(std::string_view name, std::string* key) {
    if (!FoldName(name, key)) return false;
    key->append(1, '\0').append(name);
    return true;
  }

  std::set<std::string> keys_;  // of each name the folded form, a NUL, which no name holds, and the name itself
};

}  // namespace files
