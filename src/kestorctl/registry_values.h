// Keys and values of the registry for commands. Names and texts are code page 1252 unless a comment says otherwise. A
// name that no key or value can have throws UsageError, a damaged registry registry::FormatError with file and line,
// and every other failure but a missing key or value LocalFailure with the error number as its result.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/registry/registry.h"

namespace kestorctl {

// A key: root and path below it (code page 1252).
struct KeyName {
  HKEY root = nullptr;
  std::string path;
};

// A value as the platform's calls return it: texts in code page 1252 with their NUL.
struct Value {
  DWORD type = REG_NONE;
  std::string data;

  std::string Text() const;                // up to the first NUL; UTF-8
  std::vector<std::string> Texts() const;  // of a REG_MULTI_SZ; UTF-8
};

// Parses "HKEY_LOCAL_MACHINE\SOFTWARE\X" (UTF-8; also HKLM, HKCR). Throws UsageError when it starts with no root.
KeyName ParseKey(const std::string& key);

// Converts a text to code page 1252. Throws UsageError, which calls the argument `what`, when that is not possible.
std::string AnsiArgument(const std::string& what, const std::string& utf8);

bool KeyExists(const KeyName& key);
std::optional<Value> ReadValue(const KeyName& key, const std::string& name);  // `name` empty: the default value

// Makes the key when it is missing.
void SetText(const KeyName& key, const std::string& name, const std::string& text);

// An export file of the desktop; "-" is standard input.
class RegistryExport {
 public:
  explicit RegistryExport(const std::string& file);

  // Throws as Import does when a line is malformed, and changes nothing.
  void Check() const { registry::CheckImport(bytes_, file_); }

  // Merges it into the registry. Keys of a 32-bit program on a 64-bit desktop are entered as the product's own. Returns
  // a sentence about these keys; empty when there are none.
  std::string Import() const;

 private:
  std::string file_;
  std::string bytes_;
};

// Return false when there was none.
bool DeleteValue(const KeyName& key, const std::string& name);
bool DeleteKey(const KeyName& key);

}  // namespace kestorctl
