// The names of one folder, found by their letter-case-folded form.
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "path_name.h"

namespace files {

// Names that the code page cannot hold are left out: no path leads to them.
class NameSet {
 public:
  // Adds the name once, however often it is inserted.
  void Insert(std::string_view name) {
    std::string folded;
    if (!FoldName(name, &folded)) return;
    const auto [first, last] = names_.equal_range(Folded{folded});
    if (std::find(first, last, name) == last) names_.emplace(name);
  }

  void Erase(std::string_view name) {
    std::string folded;
    if (!FoldName(name, &folded)) return;
    const auto [first, last] = names_.equal_range(Folded{folded});
    if (const auto found = std::find(first, last, name); found != last) names_.erase(found);
  }

  // Gives the first name in byte order among those of the folded form `folded`; false when there is none.
  bool Find(std::string_view folded, std::string* name) const {
    const auto [first, last] = names_.equal_range(Folded{folded});
    if (first == last) return false;
    *name = *std::min_element(first, last);
    return true;
  }

 private:
  struct Folded {
    std::string_view text;
  };
  static std::string Fold(std::string_view name) {
    std::string folded;
    FoldName(name, &folded);
    return folded;
  }

  struct Hash {
    using is_transparent = void;
    std::size_t operator()(Folded folded) const { return std::hash<std::string_view>()(folded.text); }
    std::size_t operator()(const std::string& name) const { return (*this)(Folded{Fold(name)}); }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const std::string& a, const std::string& b) const { return (*this)(Folded{Fold(a)}, b); }
    bool operator()(Folded folded, const std::string& name) const { return folded.text == Fold(name); }
    bool operator()(const std::string& name, Folded folded) const { return (*this)(folded, name); }
  };

  std::unordered_multiset<std::string, Hash, Equal> names_;
};

}  // namespace files
