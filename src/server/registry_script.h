// Registry scripts: texts that say what belongs below a key of the registry, applied for adding or for removing.
//
//   HKCR
//   {
//     NoRemove AppID
//     {
//       '%APPID%' = s 'KESTOR'
//       'KESTOR.EXE'
//       {
//         val 'AppID' = s '%APPID%'
//       }
//     }
//   }
//
// A root, and in braces the keys below it, each with its default value, its named values and its own keys. Names and
// texts stand in quotes; a quote inside is doubled. A name without blanks and marks may do without quotes. `%NAME%`
// stands for a text that the caller supplies, `%%` for the sign itself. Code page 1252.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/com/com.h"
#include "platform/registry/registry.h"

namespace kestor {

class RegistryScript {
 public:
  // The texts that stand for %NAME%, by name. They are taken as they are, quotes and per cent signs included.
  using Replacements = std::map<std::string, std::string, std::less<>>;

  // E_INVALIDARG when the text is no such script or names a replacement that is not there.
  static HRESULT Parse(std::string_view text, const Replacements& replacements, RegistryScript* script);

  // Makes the keys that are missing and sets the values. A key marked ForceRemove is removed with everything below it
  // first. Stops at the first failure (0x8007xxxx).
  HRESULT Add() const;

  // Deletes the keys with everything below them. Of a key marked NoRemove only the keys listed below it go; its values
  // stay. What is not there is no failure; stops at the first one (0x8007xxxx).
  HRESULT Remove() const;

 private:
  friend class RegistryScriptParser;

  struct Key {
    std::string name;
    bool noRemove = false;
    bool forceRemove = false;
    std::optional<std::string> defaultValue;
    std::vector<std::pair<std::string, std::string>> values;
    std::vector<Key> keys;
  };

  static LONG AddKey(HKEY parent, const Key& key);
  static LONG AddContent(HKEY opened, const Key& key);
  static LONG RemoveKey(HKEY parent, const Key& key);

  HKEY root_ = nullptr;
  std::vector<Key> keys_;
};

}  // namespace kestor
