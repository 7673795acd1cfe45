// A registry in a home of the test's own, with short ways to look at it and to change it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
  explicit OpenedKey(const std::string& path, bool create = false)
      : result_((create ? RegCreateKeyA : RegOpenKeyA)(HKEY_LOCAL_MACHINE, path.c_str(), key_.Out())) {}

  LONG Result() const { return result_; }
  operator HKEY() const { return key_.Get(); }  // NOLINT: stands where a key stands

 private:
  registry::OwnedKey key_;
  LONG result_;
};

inline LONG Set(HKEY key, const char* name, const std::string& data, DWORD type = REG_SZ) {
  return RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE*>(data.data()),
                        static_cast<DWORD>(data.size()));
}

// The data of a value with its type in front, such as "1:text\0"; empty when it cannot be had.
inline std::string Get(HKEY key, const char* name) {
  DWORD type = 0;
  DWORD size = 0;
  if (RegQueryValueExA(key, name, nullptr, &type, nullptr, &size) != kSuccess) return {};
  std::string data(size, '\0');
  if (RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size) != kSuccess) return {};
  return std::to_string(type) + ':' + data.substr(0, size);
}

class Registry : public testing::Test {
 protected:
  std::filesystem::path File() const { return home_.Home() / "registry.reg"; }
  std::filesystem::path Lock() const { return home_.Home() / "registry.lock"; }

  // Changes, whether or not they succeed, leave no other files behind.
  void ExpectNoLeftovers() const {
    EXPECT_THAT(support::Names(home_.Home()), testing::ElementsAre("drives", "registry.lock", "registry.reg", "work"));
  }

  static std::string Exported(const std::string& key = {}) {
    std::string text;
    return registry::Export(key, &text) ? text : "no such key";
  }

  support::TempHome home_;
};
