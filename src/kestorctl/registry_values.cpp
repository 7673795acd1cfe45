#include "registry_values.h"

#include <algorithm>

#include "contract/results.h"
#include "failure.h"
#include "platform/home/home.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

constexpr LONG kMissing = ERROR_FILE_NOT_FOUND;

// False for what is missing.
bool Succeeded(LONG error) {
  if (error == LONG{ERROR_SUCCESS}) return true;
  if (error == kMissing) return false;
  if (error == LONG{ERROR_BADDB}) registry::Check();
  const HRESULT result = HRESULT_FROM_WIN32(static_cast<DWORD>(error));
  throw LocalFailure(platform::Home::Current().Registry().string() + ": " + kestor::Describe(result).meaning, result);
}

class OpenKey {
 public:
  explicit OpenKey(const KeyName& name) : open_(Succeeded(RegOpenKeyA(name.root, name.path.c_str(), &key_))) {}
  explicit OpenKey(HKEY key) : key_(key), open_(true) {}
  ~OpenKey() {
    if (open_) RegCloseKey(key_);
  }
  OpenKey(const OpenKey&) = delete;
  OpenKey& operator=(const OpenKey&) = delete;

  explicit operator bool() const { return open_; }
  HKEY Get() const { return key_; }

 private:
  HKEY key_ = nullptr;
  const bool open_;
};

}  // namespace

std::string Value::Text() const {
  return text::ToUtf8(data.substr(0, data.find('\0')));
}

std::vector<std::string> Value::Texts() const {
  std::vector<std::string> texts;
  for (std::size_t start = 0; start < data.size() && data[start] != '\0';) {
    const std::size_t end = std::min(data.find('\0', start), data.size());
    texts.push_back(text::ToUtf8(data.substr(start, end - start)));
    start = end + 1;
  }
  return texts;
}

std::string AnsiArgument(const std::string& what, const std::string& utf8) {
  std::string ansi;
  if (!text::FromUtf8Exactly(utf8, &ansi)) throw UsageError(what + ": code page 1252 lacks a character of " + utf8);
  return ansi;
}

KeyName ParseKey(const std::string& key) {
  KeyName name;
  name.root = registry::SplitRoot(AnsiArgument("KEY", key), &name.path);
  if (name.root == nullptr) {
    throw UsageError("KEY: " + key + " begins with none of HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT, HKLM, HKCR");
  }
  return name;
}

bool KeyExists(const KeyName& key) {
  return static_cast<bool>(OpenKey(key));
}

std::optional<Value> ReadValue(const KeyName& key, const std::string& name) {
  const OpenKey open(key);
  if (!open) return std::nullopt;
  Value value;
  LONG error = ERROR_SUCCESS;
  DWORD size = 256;
  do {
    value.data.resize(size);
    error = RegQueryValueExA(open.Get(), name.c_str(), nullptr, &value.type, reinterpret_cast<BYTE*>(value.data.data()),
                             &size);
  } while (error == LONG{ERROR_MORE_DATA});
  if (!Succeeded(error)) return std::nullopt;
  value.data.resize(size);
  return value;
}

void SetText(const KeyName& key, const std::string& name, const std::string& text) {
  HKEY made = nullptr;
  LONG error = RegCreateKeyA(key.root, key.path.c_str(), &made);
  if (error == LONG{ERROR_SUCCESS}) {
    const OpenKey open(made);
    error = RegSetValueExA(made, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                           static_cast<DWORD>(text.size() + 1));
  }
  if (!Succeeded(error)) throw LocalFailure("the key was deleted by another program meanwhile");
}

bool DeleteValue(const KeyName& key, const std::string& name) {
  const OpenKey open(key);
  return open && Succeeded(RegDeleteValueA(open.Get(), name.c_str()));
}

bool DeleteKey(const KeyName& key) {
  return Succeeded(RegDeleteTreeA(key.root, key.path.c_str()));
}

}  // namespace kestorctl
