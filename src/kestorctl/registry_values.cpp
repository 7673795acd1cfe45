#include "registry_values.h"

#include <algorithm>

#include "contract/results.h"
#include "failure.h"
#include "platform/home/home.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

constexpr LONG kMissing = ERROR_FILE_NOT_FOUND;

// Returns false when the key or value is missing. `argument`: the one that the registry may refuse.
bool Succeeded(LONG error, const char* argument) {
  if (error == LONG{ERROR_SUCCESS}) return true;
  if (error == kMissing) return false;
  if (error == LONG{ERROR_INVALID_PARAMETER})
    throw UsageError(std::string(argument) + ": the registry takes no such name");
  if (error == LONG{ERROR_BADDB}) registry::Check();
  const HRESULT result = HRESULT_FROM_WIN32(static_cast<DWORD>(error));
  throw LocalFailure(platform::Home::Current().Registry().string() + ": " + kestor::Describe(result).meaning, result);
}

// Returns an empty key when there is none of that name.
registry::OwnedKey OpenKey(const KeyName& name) {
  registry::OwnedKey key;
  Succeeded(RegOpenKeyA(name.root, name.path.c_str(), key.Out()), "KEY");
  return key;
}

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
  return OpenKey(key).Get() != nullptr;
}

std::optional<Value> ReadValue(const KeyName& key, const std::string& name) {
  const registry::OwnedKey open = OpenKey(key);
  if (open.Get() == nullptr) return std::nullopt;
  Value value;
  LONG error = ERROR_SUCCESS;
  DWORD size = 256;
  do {
    value.data.resize(size);
    error = RegQueryValueExA(open.Get(), name.c_str(), nullptr, &value.type, reinterpret_cast<BYTE*>(value.data.data()),
                             &size);
  } while (error == LONG{ERROR_MORE_DATA});
  if (!Succeeded(error, "NAME")) return std::nullopt;
  value.data.resize(size);
  return value;
}

void SetText(const KeyName& key, const std::string& name, const std::string& text) {
  registry::OwnedKey made;
  const bool set =
      Succeeded(RegCreateKeyA(key.root, key.path.c_str(), made.Out()), "KEY") &&
      Succeeded(RegSetValueExA(made.Get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                               static_cast<DWORD>(text.size() + 1)),
                "NAME");
  if (!set) throw LocalFailure("the key was deleted by another program meanwhile");
}

bool DeleteValue(const KeyName& key, const std::string& name) {
  const registry::OwnedKey open = OpenKey(key);
  return open.Get() != nullptr && Succeeded(RegDeleteValueA(open.Get(), name.c_str()), "NAME");
}

bool DeleteKey(const KeyName& key) {
  return Succeeded(RegDeleteTreeA(key.root, key.path.c_str()), "KEY");
}

RegistryExport::RegistryExport(const std::string& file)
    : file_(file == "-" ? "/dev/stdin" : file), bytes_(registry::ReadWhole(file_)) {}

std::string RegistryExport::Import() const {
  constexpr registry::Redirection kOf32Bits = {R"(SOFTWARE\WOW6432Node\Norvela)", R"(SOFTWARE\Norvela)"};
  const std::size_t sections = registry::Import(bytes_, file_, kOf32Bits);
  if (sections == 0) return {};
  return "what stands below " + std::string(kOf32Bits.from) + " was entered below " + std::string(kOf32Bits.to) +
         " (keys: " + std::to_string(sections) + ")";
}

}  // namespace kestorctl
