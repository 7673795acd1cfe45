#include "tree.h"

#include <utility>

#include "platform/text/text.h"

namespace registry {
namespace {

// The desktop's own limits.
constexpr std::size_t kMaxKeyName = 255;
constexpr std::size_t kMaxValueName = 16383;
constexpr std::size_t kMaxDepth = 512;

bool IsName(std::string_view name, std::size_t maxCharacters) {
  if (name.find_first_of(std::string_view("\0\r\n", 3)) != std::string_view::npos) return false;
  return name.size() <= maxCharacters || text::Utf8ToUtf16(name).size() <= maxCharacters;
}

void AddContent(const Key& key, Tree::Size* size) {
  size->keys += key.subkeys.InOrder().size();
  size->values += key.values.InOrder().size();
  for (const auto& subkey : key.subkeys.InOrder())
    AddContent(*subkey, size);
}

}  // namespace

std::string Folded(std::string_view name) {
  std::string ansi;
  if (text::FromUtf8Exactly(name, &ansi)) return text::ToUtf8(text::Upper(ansi));
  std::u16string wide = text::Utf8ToUtf16(name);
  for (char16_t& unit : wide) {
    ansi = text::FromUtf16({&unit, 1});
    if (ansi != "?") unit = text::ToUtf16(text::Upper(ansi))[0];
  }
  return text::Utf16ToUtf8(wide);
}

bool TakeRoot(std::string_view* path, Root* root) {
  const std::string_view name = path->substr(0, path->find('\\'));
  if (text::EqualNoCase(name, "HKEY_LOCAL_MACHINE") || text::EqualNoCase(name, "HKLM")) {
    *root = Root::machine;
  } else if (text::EqualNoCase(name, "HKEY_CLASSES_ROOT") || text::EqualNoCase(name, "HKCR")) {
    *root = Root::classes;
  } else {
    return false;
  }
  path->remove_prefix(std::min(path->size(), name.size() + 1));
  return true;
}

std::size_t FindClosingBracket(std::string_view line) {
  std::size_t bracket = line.find(']');
  while (bracket != std::string_view::npos) {
    const std::size_t next = line.find_first_not_of(" \t", bracket + 1);
    if (next == std::string_view::npos || line[next] == ';') return bracket;
    bracket = line.find(']', next);
  }
  return bracket;
}

bool IsKeyName(std::string_view name) {
  if (name.empty() || name.find('\\') != std::string_view::npos || !IsName(name, kMaxKeyName)) return false;
  // In the file more of the path, or the closing bracket, follows the name.
  return FindClosingBracket(std::string(name) + '\\') == std::string_view::npos;
}

bool IsValueName(std::string_view name) {
  return IsName(name, kMaxValueName);
}

bool AppendNames(std::string_view path, std::vector<std::string>* names) {
  if (path.size() > 1 && path.back() == '\\') path.remove_suffix(1);
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find('\\'));
    if (!IsKeyName(name) || names->size() == kMaxDepth) return false;
    names->emplace_back(name);
    path.remove_prefix(name.size());
    if (path.empty()) return true;
    path.remove_prefix(1);
    if (path.empty()) return false;
  }
  return true;
}

Tree::Tree() {
  machine_.name = "HKEY_LOCAL_MACHINE";
  classes_.name = "HKEY_CLASSES_ROOT";
}

namespace {

void AddMissing(Key& key, const Key& other) {
  for (const auto& value : other.values.InOrder())
    if (key.values.Find(value->name) == nullptr) key.values.FindOrMake(value->name) = *value;
  for (const auto& subkey : other.subkeys.InOrder())
    AddMissing(key.subkeys.FindOrMake(subkey->name), *subkey);
}

}  // namespace

Key* Tree::Find(const KeyPath& path) {
  Key* key = &RootKey(path.root);
  for (const std::string& name : path.names) {
    key = key->subkeys.Find(name);
    if (key == nullptr) return nullptr;
  }
  return key;
}

const Key* Tree::Find(const KeyPath& path) const {
  return const_cast<Tree*>(this)->Find(path);
}

Key& Tree::FindOrMake(const KeyPath& path, std::size_t* made) {
  Key* key = &RootKey(path.root);
  for (const std::string& name : path.names) {
    NamedItems<Key>& siblings = key->subkeys;
    const std::size_t before = siblings.InOrder().size();
    key = &siblings.FindOrMake(name);
    if (made != nullptr) *made += siblings.InOrder().size() - before;
  }
  return *key;
}

void Tree::AddMissing(const Tree& other) {
  registry::AddMissing(machine_, other.machine_);
  registry::AddMissing(classes_, other.classes_);
}

bool Tree::Remove(const KeyPath& path) {
  if (path.names.empty()) return false;
  KeyPath parent = path;
  parent.names.pop_back();
  Key* key = Find(parent);
  return key != nullptr && key->subkeys.Remove(path.names.back());
}

Tree::Size Tree::Count() const {
  Size size;
  AddContent(machine_, &size);
  AddContent(classes_, &size);
  return size;
}

}  // namespace registry
