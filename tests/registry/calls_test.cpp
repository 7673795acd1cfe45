#include <algorithm>
#include <string>
#include <vector>

#include "fixture.h"

namespace {

using namespace std::string_literals;

using RegistryCalls = Registry;

std::vector<std::string> Subkeys(HKEY key) {
  std::vector<std::string> names;
  std::string name;
  while (RegEnumKeyA(key, static_cast<DWORD>(names.size()), &name) == kSuccess)
    names.push_back(name);
  return names;
}

TEST_F(RegistryCalls, NamesIgnoreLetterCaseAndKeepTheirFirstOne) {
  const OpenedKey made("Software\\Se\xE7\xE3o", true);
  ASSERT_EQ(made.Result(), kSuccess);
  ASSERT_EQ(SetText(made.Get(), "Usu\xE1rio", "0"), kSuccess);

  const OpenedKey again("SOFTWARE\\SE\xC7\xC3O\\", true);
  ASSERT_EQ(again.Result(), kSuccess);
  ASSERT_EQ(SetText(again.Get(), "USU\xC1RIO", "1"), kSuccess);

  EXPECT_EQ(Get(made.Get(), "usu\xE1rio"), "1:1\0"s);
  EXPECT_EQ(Exported(),
            "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Seção]\n\"Usuário\"=\"1\"\n");
}

TEST_F(RegistryCalls, EveryTypeComesBackAsItWentIn) {
  const OpenedKey key("K", true);
  const struct {
    DWORD type;
    std::string data;
    std::string expected;
  } kCases[] = {{REG_SZ, "no end", "no end\0"s},
                {REG_SZ, "cut\0here\0"s, "cut\0"s},
                {REG_SZ, "", "\0"s},
                {REG_SZ, "two\r\nlines\n, \"quotes\" and \\ \x80\x81\xE9\xFF\t\x01"s,
                 "two\r\nlines\n, \"quotes\" and \\ \x80\x81\xE9\xFF\t\x01\0"s},
                {REG_EXPAND_SZ, "%TEMP%\\x", "%TEMP%\\x\0"s},
                {REG_MULTI_SZ, "a\0\xE9\0\0"s, "a\0\xE9\0\0"s},
                {REG_MULTI_SZ, "a\0b"s, "a\0b\0\0"s},
                {REG_MULTI_SZ, "", "\0"s},
                {REG_DWORD, "\x01\x02\x03\xFF", "\x01\x02\x03\xFF"},
                {REG_DWORD, "\x01\x02", "\x01\x02"},
                {REG_BINARY, std::string(300, '\xAB') + '\0', std::string(300, '\xAB') + '\0'},
                {REG_BINARY, "", ""},
                {REG_NONE, "\0"s, "\0"s},
                {0xFFFFFFFF, "odd", "odd"}};
  for (const char* name : {"", "one \"name\" \\ \xE9"}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(std::to_string(c.type) + ": " + testing::PrintToString(c.data));
      ASSERT_EQ(RegSetValueExA(key.Get(), name, 0, c.type, reinterpret_cast<const BYTE*>(c.data.data()),
                               static_cast<DWORD>(c.data.size())),
                kSuccess);
      EXPECT_EQ(Get(key.Get(), name), std::to_string(c.type) + ':' + c.expected);
    }
  }
}

TEST_F(RegistryCalls, QueryTellsTheSizeAndFillsOnlyABufferThatIsLargeEnough) {
  const OpenedKey key("K", true);
  ASSERT_EQ(SetText(key.Get(), nullptr, "text"), kSuccess);
  BYTE buffer[6] = {'#', '#', '#', '#', '#', '#'};
  DWORD type = 77;
  DWORD size = 4;
  EXPECT_EQ(RegQueryValueExA(key.Get(), "", nullptr, &type, buffer, &size), LONG{ERROR_MORE_DATA});
  EXPECT_EQ(type, REG_SZ);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(buffer[0], '#');
  size = 6;
  EXPECT_EQ(RegQueryValueExA(key.Get(), nullptr, nullptr, nullptr, buffer, &size), kSuccess);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 6), "text\0#"s);
  size = 0;
  EXPECT_EQ(RegQueryValueExA(key.Get(), nullptr, nullptr, nullptr, nullptr, &size), kSuccess);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(RegQueryValueExA(key.Get(), nullptr, nullptr, &type, nullptr, nullptr), kSuccess);
  EXPECT_EQ(RegQueryValueExA(key.Get(), "none", nullptr, &type, buffer, &size), kNotFound);
}

TEST_F(RegistryCalls, MalformedArgumentsAreRefusedAndChangeNothing) {
  const OpenedKey key("K", true);
  const std::string before = support::ReadFile(File());
  HKEY out = nullptr;
  std::string deep;
  for (int i = 0; i < 513; ++i)
    deep += "a\\";
  for (const std::string& path :
       {"\\"s, "\\K"s, "K\\\\L"s, "K\\L\\\\"s, "a\nb"s, "a] ;b"s, std::string(256, 'x'), deep}) {
    EXPECT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, path.c_str(), &out), kInvalid) << path;
    EXPECT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, path.c_str(), &out), kInvalid) << path;
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, path.c_str()), kInvalid) << path;
  }
  const BYTE data = 1;
  DWORD size = 1;
  EXPECT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "New", nullptr), kInvalid);
  EXPECT_EQ(RegSetValueExA(key.Get(), "v", 1, REG_BINARY, &data, 1), kInvalid);
  EXPECT_EQ(RegSetValueExA(key.Get(), "v", 0, REG_BINARY, nullptr, 1), kInvalid);
  EXPECT_EQ(RegSetValueExA(key.Get(), "v\r", 0, REG_BINARY, &data, 1), kInvalid);
  EXPECT_EQ(RegQueryValueExA(key.Get(), "v", &size, nullptr, nullptr, &size), kInvalid);
  EXPECT_EQ(RegEnumKeyA(key.Get(), 0, nullptr), kInvalid);
  EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, ""), kInvalid);
  EXPECT_EQ(RegDeleteTreeA(HKEY_CLASSES_ROOT, nullptr), kInvalid);

  HKEY closed = nullptr;
  ASSERT_EQ(RegOpenKeyA(key.Get(), nullptr, &closed), kSuccess);
  ASSERT_EQ(RegCloseKey(closed), kSuccess);
  const LONG kNoHandle = ERROR_INVALID_HANDLE;
  for (const HKEY handle : {HKEY{nullptr}, closed}) {
    EXPECT_EQ(RegCloseKey(handle), kNoHandle);
    EXPECT_EQ(RegOpenKeyA(handle, "K", &out), kNoHandle);
    EXPECT_EQ(RegCreateKeyA(handle, "K", &out), kNoHandle);
    EXPECT_EQ(SetText(handle, "v", "x"), kNoHandle);
  }
  EXPECT_EQ(support::ReadFile(File()), before);
}

TEST_F(RegistryCalls, KeysAreListedInTheOrderInWhichTheyWereMade) {
  for (const char* path : {"K\\b\\x", "K\\a", "K\\C", "K\\B"})
    ASSERT_EQ(OpenedKey(path, true).Result(), kSuccess);
  const OpenedKey key("K");
  EXPECT_EQ(Subkeys(key.Get()), (std::vector<std::string>{"b", "a", "C"}));
  ASSERT_EQ(RegDeleteTreeA(key.Get(), "B"), kSuccess);
  EXPECT_EQ(Subkeys(key.Get()), (std::vector<std::string>{"a", "C"}));
  EXPECT_EQ(RegDeleteTreeA(key.Get(), "B"), kNotFound);
  EXPECT_EQ(OpenedKey("K\\b\\x").Result(), kNotFound);
  EXPECT_EQ(Subkeys(HKEY_CLASSES_ROOT).size(), 0U);
}

TEST_F(RegistryCalls, AnOpenKeyOutlivesItsKey) {
  const OpenedKey key("K\\L", true);
  ASSERT_EQ(SetText(key.Get(), "v", "1"), kSuccess);
  ASSERT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "K"), kSuccess);
  HKEY out = nullptr;
  std::string name;
  EXPECT_EQ(Get(key.Get(), "v"), std::nullopt);
  EXPECT_EQ(SetText(key.Get(), "v", "2"), kNotFound);
  EXPECT_EQ(RegDeleteValueA(key.Get(), "v"), kNotFound);
  EXPECT_EQ(RegOpenKeyA(key.Get(), nullptr, &out), kNotFound);
  EXPECT_EQ(RegCreateKeyA(key.Get(), "below", &out), kNotFound);
  EXPECT_EQ(RegEnumKeyA(key.Get(), 0, &name), kNotFound);

  ASSERT_EQ(OpenedKey("K\\L", true).Result(), kSuccess);
  EXPECT_EQ(SetText(key.Get(), "v", "3"), kSuccess);
  EXPECT_EQ(Get(key.Get(), "v"), "1:3\0"s);
  EXPECT_EQ(RegDeleteValueA(key.Get(), "V"), kSuccess);
  EXPECT_EQ(RegDeleteValueA(key.Get(), "V"), kNotFound);
  EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), kSuccess);
  EXPECT_EQ(OpenedKey("K").Result(), kSuccess);
}

}  // namespace
