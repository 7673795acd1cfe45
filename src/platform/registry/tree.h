// The registry in memory. Names are UTF-8 and found whatever their letter case.
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

// The form of a name under which it is found: every letter of code page 1252 in upper case.
std::string Folded(std::string_view name);

// Items in the order in which they were made, each found by its `name`. Owns them; an item stays where it is in memory
// until it is removed.
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

// The data as the desktop keeps it: texts are UTF-16, little-endian, normally with their terminating NUL. So whatever
// the desktop holds comes through unchanged, texts with characters outside code page 1252 included.
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

// Takes the root's name (the short forms HKLM and HKCR too) and the backslash after it from the start of `*path`.
// False when it starts with none.
bool TakeRoot(std::string_view* path, Root* root);

// Where the path of a key ends in its line of the file: at the first bracket after which nothing or a comment stands,
// since names and comments may hold brackets of their own. npos when there is none.
std::size_t FindClosingBracket(std::string_view line);

// What a name may be: short enough, and of one line, since the file is lines. That of a key must not seem to end where
// a comment seems to begin.
bool IsKeyName(std::string_view name);
bool IsValueName(std::string_view name);

// Appends the names of `path`, which stand one backslash apart, to `*names`. False when one of them is no key name (a
// trailing backslash does not count), or when there are too many.
bool AppendNames(std::string_view path, std::vector<std::string>* names);

class Tree {
 public:
  Tree();

  Key* Find(const KeyPath& path);
  const Key* Find(const KeyPath& path) const;
  // Makes the keys above it as well; adds how many were made to `*made`, if given.
  Key& FindOrMake(const KeyPath& path, std::size_t* made = nullptr);
  void AddMissing(const Tree& other);  // keys and values that this one lacks
  bool Remove(const KeyPath& path);    // with all below it; false when there is none, and for a root

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
