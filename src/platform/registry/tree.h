// The registry in memory. Names are UTF-8, and lookups ignore letter case.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/kernel/kernel.h"

namespace registry {

// Returns the form of a name that lookups compare: every letter of code page 1252 in upper case.
std::string Folded(std::string_view name);

// Owns items, keeps them in order of creation and finds them by `name`. An item keeps its address until it is removed.
template <class Item>
class NamedItems {
 public:
  NamedItems() = default;
  ~NamedItems() = default;
  NamedItems(const NamedItems& other) {
    for (const auto& item : other.items_)
      Append(Folded(item->name), std::make_unique<Item>(*item));
  }
  NamedItems& operator=(const NamedItems&) = delete;

  Item* Find(std::string_view name) const {
    const auto found = byName_.find(Folded(name));
    return found == byName_.end() ? nullptr : found->second;
  }

  Item& FindOrMake(std::string_view name) {
    std::string folded = Folded(name);
    const auto found = byName_.find(folded);
    if (found != byName_.end()) return *found->second;
    auto item = std::make_unique<Item>();
    item->name = name;
    return Append(std::move(folded), std::move(item));
  }

  bool Remove(std::string_view name) {
    const auto found = byName_.find(Folded(name));
    if (found == byName_.end()) return false;
    const Item* removed = found->second;
    byName_.erase(found);
    items_.erase(std::find_if(items_.begin(), items_.end(), [=](const auto& item) { return item.get() == removed; }));
    return true;
  }

  const std::vector<std::unique_ptr<Item>>& InOrder() const { return items_; }
  bool Empty() const { return items_.empty(); }

  bool operator==(const NamedItems& other) const {
    return std::equal(items_.begin(), items_.end(), other.items_.begin(), other.items_.end(),
                      [](const auto& a, const auto& b) { return *a == *b; });
  }

 private:
  Item& Append(std::string folded, std::unique_ptr<Item> item) {
    items_.push_back(std::move(item));
    byName_.emplace(std::move(folded), items_.back().get());
    return *items_.back();
  }

  std::vector<std::unique_ptr<Item>> items_;
  std::unordered_map<std::string, Item*> byName_;
};

// Data in the desktop's form: texts are UTF-16, little-endian, normally with their terminating NUL. So whatever the
// desktop stores is preserved, even characters outside code page 1252.
struct Value {
  std::string name;  // empty: the key's default value
  DWORD type = 0;
  std::string data;

  bool operator==(const Value&) const = default;
};

struct Key {
  std::string name;
  NamedItems<Value> values;
  NamedItems<Key> subkeys;

  bool operator==(const Key&) const = default;
};

enum class Root { machine, classes };

struct KeyPath {
  Root root = Root::machine;
  std::vector<std::string> names;  // from below the root down to the key
};

// Takes the root's name (also HKLM and HKCR) and the backslash after it from the start of `*path`. Returns false when
// the path starts with no root.
bool TakeRoot(std::string_view* path, Root* root);

// Returns where the path of a key ends in its line of the file: at the first closing bracket that only a comment or
// nothing follows, because names and comments may contain brackets. Returns npos when there is none.
std::size_t FindClosingBracket(std::string_view line);

// Return whether a name is valid: short enough, and without a NUL or line end, because the file consists of lines. A
// key name also must not contain a bracket that reads as the end of its path.
bool IsKeyName(std::string_view name);
bool IsValueName(std::string_view name);

// Appends the names of `path`, which backslashes separate, to `*names`. Ignores a trailing backslash. Returns false
// when one of them is no key name, or when there are too many.
bool AppendNames(std::string_view path, std::vector<std::string>* names);

class Tree {
 public:
  Tree();

  Key* Find(const KeyPath& path);
  const Key* Find(const KeyPath& path) const;
  // Also creates the keys above it. Adds the number of created keys to `*made`, if given.
  Key& FindOrMake(const KeyPath& path, std::size_t* made = nullptr);
  void AddMissing(const Tree& other);  // keys and values that this one lacks
  bool Remove(const KeyPath& path);    // with everything below it; false for a missing key and for a root

  struct Size {
    std::size_t keys = 0;  // without the roots
    std::size_t values = 0;
  };
  Size Count() const;

  bool operator==(const Tree&) const = default;

 private:
  Key& RootKey(Root root) { return root == Root::machine ? machine_ : classes_; }

  Key machine_;
  Key classes_;
};

}  // namespace registry
