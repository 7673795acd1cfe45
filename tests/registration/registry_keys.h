// The keys and values below HKEY_CLASSES_ROOT, as the registration tests compare them.
#pragma once

#include <map>
#include <sstream>
#include <string>

#include "platform/registry/registry.h"

// By key path: the values by name, the default one with an empty name.
using RegistryKeys = std::map<std::string, std::map<std::string, std::string>>;

inline RegistryKeys ClassKeys() {
  RegistryKeys keys;
  std::string text;
  if (!registry::Export("HKEY_CLASSES_ROOT", &text)) return keys;
  auto unquoted = [](std::string quoted) {
    std::string plain;
    for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
      if (quoted[i] == '\\') ++i;
      plain += quoted[i];
    }
    return plain;
  };
  std::istringstream lines(text);
  std::string key;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("[HKEY_CLASSES_ROOT\\")) {
      key = line.substr(19, line.size() - 20);
      // A key without values shows only in the paths of those below it.
      for (std::size_t end = 0; end != std::string::npos;) {
        end = key.find('\\', end + 1);
        keys[key.substr(0, end)];
      }
    } else if (line.starts_with('@')) {
      keys[key][""] = unquoted(line.substr(2));
    } else if (line.starts_with('"')) {
      const std::size_t middle = line.find("\"=\"");
      keys[key][unquoted(line.substr(0, middle + 1))] = unquoted(line.substr(middle + 2));
    }
  }
  return keys;
}
