#include "registry.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "platform/kernel/host_error.h"
#include "platform/text/text.h"
#include "reg_format.h"
#include "store.h"
#include "tree.h"
#include "utf16_bytes.h"

// An open key is a path, not a place in memory: it stays usable whatever happens to the file.
struct RegistryKey {
  registry::KeyPath path;
};

namespace {

using registry::Key;
using registry::KeyPath;
using registry::Root;
using registry::Tree;
using registry::Value;

namespace fs = std::filesystem;

constexpr LONG kSuccess = ERROR_SUCCESS;

LONG SuccessOr(DWORD error, bool success) {
  return success ? kSuccess : static_cast<LONG>(error);
}

RegistryKey machineRoot;  // only their addresses count
RegistryKey classesRoot;

// The keys that this process has open.
class OpenKeys {
 public:
  HKEY Add(KeyPath path) {
    auto key = std::make_unique<RegistryKey>(RegistryKey{std::move(path)});
    const std::lock_guard lock(mutex_);
    const HKEY handle = key.get();
    keys_.emplace(handle, std::move(key));
    return handle;
  }

  bool Remove(HKEY handle) {
    const std::lock_guard lock(mutex_);
    return keys_.erase(handle) != 0;
  }

  bool Find(HKEY handle, KeyPath* path) {
    const std::lock_guard lock(mutex_);
    const auto found = keys_.find(handle);
    if (found == keys_.end()) return false;
    *path = found->second->path;
    return true;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<HKEY, std::unique_ptr<RegistryKey>> keys_;
};

OpenKeys& Keys() {
  static OpenKeys keys;
  return keys;
}

LONG PathOf(HKEY handle, KeyPath* path) {
  if (handle == &machineRoot || handle == &classesRoot) {
    *path = {handle == &machineRoot ? Root::machine : Root::classes, {}};
    return kSuccess;
  }
  return SuccessOr(ERROR_INVALID_HANDLE, Keys().Find(handle, path));
}

LONG PathBelow(HKEY parent, const char* names, KeyPath* path) {
  const LONG result = PathOf(parent, path);
  if (result != kSuccess || names == nullptr) return result;
  return SuccessOr(ERROR_INVALID_PARAMETER, registry::AppendNames(text::ToUtf8(names), &path->names));
}

std::string ValueName(const char* name) {
  return name == nullptr ? std::string() : text::ToUtf8(name);
}

// Returns the number for a failure of the registry file. Callers of the registry would take the numbers of ENOENT and
// EINVAL for a judgement of their key and their arguments.
LONG FileFailure(int hostError) {
  if (hostError == ENOENT) return ERROR_PATH_NOT_FOUND;
  if (hostError == EINVAL) return ERROR_GEN_FAILURE;
  return static_cast<LONG>(platform::OsError(hostError));
}

// No exception leaves the platform's calls.
template <class Call>
LONG Guarded(const Call& call) {
  try {
    return call();
  } catch (const registry::FormatError&) {
    return ERROR_BADDB;
  } catch (const registry::LockHeld&) {
    return ERROR_LOCK_VIOLATION;
  } catch (const fs::filesystem_error& error) {
    return FileFailure(error.code().value());
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

bool IsOneText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ;
}

// Returns the data in the form that callers see, with texts in code page 1252.
std::string AnsiData(const Value& value) {
  if (!IsOneText(value.type) && value.type != REG_MULTI_SZ) return value.data;
  std::string ansi = text::FromUtf16(registry::Utf16Units(value.data));
  if (IsOneText(value.type)) {
    ansi.resize(std::min(ansi.size(), ansi.find('\0')));
    return ansi + '\0';
  }
  // A list ends with an empty text.
  while (!ansi.ends_with(std::string_view("\0\0", 2)) && ansi != std::string_view("\0", 1))
    ansi += '\0';
  return ansi;
}

std::string StoredData(DWORD type, std::string_view ansi) {
  if (type == REG_MULTI_SZ) return registry::Utf16Bytes(text::ToUtf16(ansi));
  if (!IsOneText(type)) return std::string(ansi);
  return registry::Utf16Bytes(text::ToUtf16(ansi.substr(0, ansi.find('\0'))) + u'\0');
}

// Returns whether the value already has this data.
bool Holds(const Key& key, const std::string& name, DWORD type, const std::string& data) {
  const Value* value = key.values.Find(name);
  return value != nullptr && value->type == type && value->data == data;
}

// Finds a key of the home's registry. Creates a key that only the machine's registry has, because changes go to the
// home's.
Key* KeyToChange(Tree& tree, const KeyPath& path) {
  Key* const key = tree.Find(path);
  return key == nullptr && registry::OfSystem()->Find(path) != nullptr ? &tree.FindOrMake(path) : key;
}

}  // namespace

const HKEY HKEY_LOCAL_MACHINE = &machineRoot;
const HKEY HKEY_CLASSES_ROOT = &classesRoot;

LONG RegOpenKeyA(HKEY parent, const char* path, HKEY* key) {
  return Guarded([=]() -> LONG {
    KeyPath keyPath;
    const LONG result = PathBelow(parent, path, &keyPath);
    if (result != kSuccess) return result;
    if (key == nullptr) return ERROR_INVALID_PARAMETER;
    if (registry::Current()->Find(keyPath) == nullptr) return ERROR_FILE_NOT_FOUND;
    *key = Keys().Add(std::move(keyPath));
    return kSuccess;
  });
}

LONG RegCreateKeyA(HKEY parent, const char* path, HKEY* key) {
  // A user who may not write the registry can still open what is there.
  const LONG opened = RegOpenKeyA(parent, path, key);
  if (opened != LONG{ERROR_FILE_NOT_FOUND}) return opened;
  return Guarded([=]() -> LONG {
    KeyPath parentPath;
    KeyPath keyPath;
    LONG result = PathOf(parent, &parentPath);
    if (result == kSuccess) result = PathBelow(parent, path, &keyPath);
    if (result != kSuccess) return result;
    result = registry::Change([&](Tree& tree) -> LONG {
      if (KeyToChange(tree, parentPath) == nullptr) return ERROR_FILE_NOT_FOUND;
      tree.FindOrMake(keyPath);
      return kSuccess;
    });
    if (result == kSuccess) *key = Keys().Add(std::move(keyPath));
    return result;
  });
}

LONG RegCloseKey(HKEY key) {
  if (key == HKEY_LOCAL_MACHINE || key == HKEY_CLASSES_ROOT) return kSuccess;
  return SuccessOr(ERROR_INVALID_HANDLE, Keys().Remove(key));
}

LONG RegQueryValueExA(HKEY key, const char* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) {
  return Guarded([=]() -> LONG {
    KeyPath path;
    const LONG result = PathOf(key, &path);
    if (result != kSuccess) return result;
    if (reserved != nullptr || (data != nullptr && size == nullptr)) return ERROR_INVALID_PARAMETER;
    const std::shared_ptr<const Tree> tree = registry::Current();
    const Key* found = tree->Find(path);
    const Value* value = found == nullptr ? nullptr : found->values.Find(ValueName(name));
    if (value == nullptr) return ERROR_FILE_NOT_FOUND;
    if (type != nullptr) *type = value->type;
    if (size == nullptr) return kSuccess;
    const std::string ansi = AnsiData(*value);
    const DWORD room = std::exchange(*size, static_cast<DWORD>(ansi.size()));
    if (data == nullptr) return kSuccess;
    if (room < ansi.size()) return ERROR_MORE_DATA;
    std::copy(ansi.begin(), ansi.end(), data);
    return kSuccess;
  });
}

LONG RegSetValueExA(HKEY key, const char* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
  return Guarded([=]() -> LONG {
    KeyPath path;
    const LONG result = PathOf(key, &path);
    if (result != kSuccess) return result;
    const std::string valueName = ValueName(name);
    if (reserved != 0 || (data == nullptr && size != 0) || !registry::IsValueName(valueName)) {
      return ERROR_INVALID_PARAMETER;
    }
    const std::string stored =
        StoredData(type, size == 0 ? std::string_view() : std::string_view(reinterpret_cast<const char*>(data), size));
    // Setting what is already there is frequent and needs neither the lock nor a copy of the registry.
    const std::shared_ptr<const Tree> current = registry::OfHome();
    const Key* now = current->Find(path);
    if (now != nullptr && Holds(*now, valueName, type, stored)) return kSuccess;
    return registry::Change([&](Tree& tree) -> LONG {
      Key* found = KeyToChange(tree, path);
      if (found == nullptr) return ERROR_FILE_NOT_FOUND;
      Value& value = found->values.FindOrMake(valueName);
      value.type = type;
      value.data = stored;
      return kSuccess;
    });
  });
}

LONG RegDeleteValueA(HKEY key, const char* name) {
  return Guarded([=]() -> LONG {
    KeyPath path;
    const LONG result = PathOf(key, &path);
    if (result != kSuccess) return result;
    return registry::Change([&](Tree& tree) -> LONG {
      Key* found = tree.Find(path);
      const bool removed = found != nullptr && found->values.Remove(ValueName(name));
      return SuccessOr(ERROR_FILE_NOT_FOUND, removed);
    });
  });
}

LONG RegDeleteTreeA(HKEY parent, const char* path) {
  return Guarded([=]() -> LONG {
    KeyPath keyPath;
    const LONG result = PathBelow(parent, path, &keyPath);
    if (result != kSuccess) return result;
    if (keyPath.names.empty()) return ERROR_INVALID_PARAMETER;
    return registry::Change(
        [&](Tree& tree) -> LONG { return tree.Remove(keyPath) ? kSuccess : LONG{ERROR_FILE_NOT_FOUND}; });
  });
}

LONG RegEnumKeyA(HKEY key, DWORD index, std::string* name) {
  return Guarded([=]() -> LONG {
    KeyPath path;
    const LONG result = PathOf(key, &path);
    if (result != kSuccess) return result;
    if (name == nullptr) return ERROR_INVALID_PARAMETER;
    const std::shared_ptr<const Tree> tree = registry::Current();
    const Key* found = tree->Find(path);
    if (found == nullptr) return ERROR_FILE_NOT_FOUND;
    const auto& subkeys = found->subkeys.InOrder();
    if (index >= subkeys.size()) return ERROR_NO_MORE_ITEMS;
    *name = text::FromUtf8(subkeys[index]->name);
    return kSuccess;
  });
}

namespace registry {

DWORD ReadNumber(HKEY key, const char* value, DWORD least, DWORD most, DWORD otherwise) {
  DWORD type = REG_NONE;
  DWORD number = 0;
  DWORD size = sizeof number;
  if (RegQueryValueExA(key, value, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size) != 0) return otherwise;
  return type == REG_DWORD && size == sizeof number && number >= least && number <= most ? number : otherwise;
}

std::shared_ptr<const void> Moment() {
  std::shared_ptr<const Tree> now;
  Guarded([&]() -> LONG {
    now = Current();
    return kSuccess;
  });
  return now;
}

LONG SetTexts(HKEY parent, const char* path, std::initializer_list<NamedText> texts,
              std::chrono::milliseconds patience) {
  return Guarded([&]() -> LONG {
    KeyPath keyPath;
    if (const LONG result = PathBelow(parent, path, &keyPath); result != kSuccess) return result;
    std::vector<std::pair<std::string, std::string>> values;
    for (const NamedText& text : texts)
      values.emplace_back(ValueName(text.name), StoredData(REG_SZ, text.text));
    const std::shared_ptr<const Tree> current = OfHome();
    const Key* now = current->Find(keyPath);
    const auto isThere = [now](const auto& value) { return Holds(*now, value.first, REG_SZ, value.second); };
    if (now != nullptr && std::all_of(values.begin(), values.end(), isThere)) return kSuccess;
    return Change(
        [&](Tree& tree) -> LONG {
          Key& key = tree.FindOrMake(keyPath);
          for (const auto& [name, data] : values) {
            Value& value = key.values.FindOrMake(name);
            value.type = REG_SZ;
            value.data = data;
          }
          return kSuccess;
        },
        patience);
  });
}

std::size_t Import(std::string_view bytes, const std::string& file, const Redirection& redirection) {
  std::size_t redirected = 0;
  Change([&](Tree& tree) -> LONG {
    redirected = ParseInto(bytes, file, Purpose::import, &tree, &redirection);
    return kSuccess;
  });
  return redirected;
}

void CheckImport(std::string_view bytes, const std::string& file) {
  Tree scratch;
  ParseInto(bytes, file, Purpose::import, &scratch);
}

bool Export(std::string_view keyPath, std::string* text) {
  const std::shared_ptr<const Tree> tree = OfHome();
  if (keyPath.empty()) {
    *text = Format(*tree);
    return true;
  }
  KeyPath path;
  if (!TakeRoot(&keyPath, &path.root) || !AppendNames(text::ToUtf8(keyPath), &path.names)) return false;
  if (tree->Find(path) == nullptr) return false;
  *text = Format(*tree, path);
  return true;
}

void Check() {
  Current();
}

HKEY SplitRoot(std::string_view keyPath, std::string* path) {
  Root root = Root::machine;
  if (!TakeRoot(&keyPath, &root)) return nullptr;
  *path = keyPath;
  return root == Root::machine ? HKEY_LOCAL_MACHINE : HKEY_CLASSES_ROOT;
}

}  // namespace registry
