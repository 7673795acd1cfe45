// A registry in a home of the test's own, with short ways to look at it and to change it.
#pragma once

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>

#include "platform/registry/registry.h"
#include "support/support.h"

inline constexpr LONG kSuccess = ERROR_SUCCESS;
inline constexpr LONG kNotFound = ERROR_FILE_NOT_FOUND;
inline constexpr LONG kDenied = ERROR_ACCESS_DENIED;
inline constexpr LONG kDamaged = ERROR_BADDB;
inline constexpr LONG kInvalid = ERROR_INVALID_PARAMETER;

// A key of HKEY_LOCAL_MACHINE, and how its opening went.
class OpenedKey {
 public:
  explicit OpenedKey(const char* path, bool create = false)
      : result_((create ? RegCreateKeyA : RegOpenKeyA)(HKEY_LOCAL_MACHINE, path, key_.Out())) {}

  LONG Result() const { return result_; }
  HKEY Get() const { return key_.Get(); }

 private:
  registry::OwnedKey key_;
  LONG result_;
};

inline LONG SetText(HKEY key, const char* name, const std::string& text) {
  return RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1));
}

// The data of a value with its type in front, such as "1:text\0"; nothing when it cannot be had.
inline std::optional<std::string> Get(HKEY key, const char* name) {
  DWORD type = 0;
  DWORD size = 0;
  if (RegQueryValueExA(key, name, nullptr, &type, nullptr, &size) != kSuccess) return std::nullopt;
  std::string data(size, '\0');
  if (RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size) != kSuccess) {
    return std::nullopt;
  }
  data.resize(size);
  return std::to_string(type) + ':' + data;
}

class Registry : public testing::Test {
 protected:
  std::filesystem::path File() const { return home_.Home() / "registry.reg"; }

  std::filesystem::path Lock() const { return home_.Home() / "registry.lock"; }

  // Changes, whether or not they succeed, leave no other files behind.
  void ExpectNoLeftovers() const {
    EXPECT_THAT(support::Names(home_.Home()), testing::ElementsAre("drives", "registry.lock", "registry.reg", "work"));
  }

  static std::string Exported() {
    std::string text;
    registry::Export("", &text);
    return text;
  }

  support::TempHome home_;
};
