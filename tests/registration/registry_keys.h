// What stands below HKEY_CLASSES_ROOT, as the registration tests compare it.
#pragma once

#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include "platform/registry/registry.h"

// The values, as KEY "NAME"="TEXT" (KEY @="TEXT" for the default one), and the keys without any and without subkeys.
using RegistryEntries = std::set<std::string>;

inline RegistryEntries ClassEntries() {
  RegistryEntries entries;
  std::string text;
  if (!registry::Export("HKEY_CLASSES_ROOT", &text)) return entries;
  const std::string root = "[HKEY_CLASSES_ROOT\\";
  std::istringstream lines(text);
  std::string key;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(root)) {
      key = line.substr(root.size(), line.size() - root.size() - 1);
      entries.insert(key);
    } else if (line.find('=') != std::string::npos) {
      entries.erase(key);
      entries.insert(std::string(key).append(" ").append(line));
    }
  }
  return entries;
}

inline std::string Value(const std::string& key, const std::string& name, const std::string& text) {
  return std::string(key).append(" ").append(name).append("=\"").append(text).append("\"");
}
inline std::string DefaultValue(const std::string& key, const std::string& text) {
  return Value(key, "@", text);
}

inline void CreateClassKey(const std::string& path) {
  registry::OwnedKey key;
  if (RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), key.Out()) != 0) throw std::runtime_error("no key " + path);
}
