// Keys and values of the registry for callers that speak UTF-8. Every failure but a missing key or value is thrown as a
// LocalFailure with the error number as its result, a name that no key or value can have as a UsageError; a damaged
// registry names file and line.
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

// A value as the platform's calls give it: texts in code page 1252 with their NUL.
struct Value {
  DWORD type = REG_NONE;
  std::string data;

  std::string Text() const;                // up to the first NUL; UTF-8
  std::vector<std::string> Texts() const;  // of a REG_MULTI_SZ; UTF-8
};

// "HKEY_LOCAL_MACHINE\SOFTWARE\X" (UTF-8; also HKLM, HKCR). Throws UsageError when it starts with no root.
KeyName ParseKey(const std::string& key);

// The text in code page 1252. Throws UsageError, with `what` for the text's part, when it cannot be.
std::string AnsiArgument(const std::string& what, const std::string& utf8);

bool KeyExists(const KeyName& key);
std::optional<Value> ReadValue(const KeyName& key, const std::string& name);  // `name` empty: the default value

// Makes the key when it is missing.
void SetText(const KeyName& key, const std::string& name, const std::string& text);

// An export file of the desktop; "-" is standard input.
class RegistryExport {
 public:
  explicit RegistryExport(const std::string& file);

  // Throws, like the import, when a line does not read as it should.
  void Check() const { registry::CheckImport(bytes_, file_); }

  // Merges it into the registry. What a 32-bit program has there on a 64-bit desktop counts as the product's own; says
  // so, or nothing.
  std::string Import() const;

 private:
  std::string file_;
  std::string bytes_;
};

// False when there was none.
bool DeleteValue(const KeyName& key, const std::string& name);
bool DeleteKey(const KeyName& key);

}  // namespace kestorctl
