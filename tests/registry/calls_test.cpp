// What the calls give and refuse.
#include "fixture.h"

namespace {

using namespace std::string_literals;

using RegistryCalls = Registry;

std::string Subkeys(HKEY key) {
  std::string all;
  std::string name;
  for (DWORD i = 0; RegEnumKeyA(key, i, &name) == kSuccess; ++i)
    all += name + ' ';
  return all;
}

TEST_F(RegistryCalls, NamesIgnoreLetterCaseAndKeepTheirFirstOne) {
  const OpenedKey made("Software\\Se\xE7\xE3o", true);
  ASSERT_EQ(Set(made, "Usu\xE1rio", "0"), kSuccess);
  const OpenedKey again("SOFTWARE\\SE\xC7\xC3O\\", true);
  ASSERT_EQ(Set(again, "USU\xC1RIO", "1"), kSuccess);
  EXPECT_EQ(Get(made, "usu\xE1rio"), "1:1\0"s);
  EXPECT_EQ(Exported(),
            "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Seção]\n\"Usuário\"=\"1\"\n");
}

TEST_F(RegistryCalls, EveryTypeComesBackAsItWentIn) {
  const OpenedKey key("K", true);
  const std::string text = "two\r\nlines\n, \"quotes\" and \\ \x80\x81\xE9\xFF\t\x01";
  const std::string bytes = std::string(300, '\xAB') + '\0';
  const struct {
    DWORD type;
    std::string data;
    std::string expected;
  } cases[] = {{REG_SZ, text, text + '\0'},
               {REG_SZ, "cut\0here\0"s, "cut\0"s},
               {REG_SZ, "", "\0"s},
               {REG_EXPAND_SZ, "%TEMP%\\x", "%TEMP%\\x\0"s},
               {REG_MULTI_SZ, "a\0\xE9\0\0"s, "a\0\xE9\0\0"s},
               {REG_MULTI_SZ, "a\0b"s, "a\0b\0\0"s},
               {REG_MULTI_SZ, "", "\0"s},
               {REG_DWORD, "\x01\x02\x03\xFF", "\x01\x02\x03\xFF"},
               {REG_DWORD, "\x01\x02", "\x01\x02"},
               {REG_BINARY, bytes, bytes},
               {REG_BINARY, "", ""},
               {REG_NONE, "\0"s, "\0"s},
               {0xFFFFFFFF, "odd", "odd"}};
  for (const char* name : {"", "one \"name\" \\ \xE9"}) {
    for (const auto& c : cases) {
      ASSERT_EQ(Set(key, name, c.data, c.type), kSuccess);
      EXPECT_EQ(Get(key, name), std::to_string(c.type) + ':' + c.expected);
    }
  }
}

TEST_F(RegistryCalls, QueryFillsOnlyABufferThatIsLargeEnough) {
  const OpenedKey key("K", true);
  ASSERT_EQ(Set(key, nullptr, "text"), kSuccess);
  std::string buffer = "######";
  auto* const bytes = reinterpret_cast<BYTE*>(buffer.data());
  for (const DWORD room : {4U, 6U}) {
    DWORD size = room;
    EXPECT_EQ(RegQueryValueExA(key, "", nullptr, nullptr, bytes, &size), room < 5 ? LONG{ERROR_MORE_DATA} : kSuccess);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(buffer, room < 5 ? "######"s : "text\0#"s);
  }
}

TEST_F(RegistryCalls, MalformedArgumentsAreRefusedAndChangeNothing) {
  const OpenedKey key("K", true);
  const std::string before = support::ReadFile(File());
  std::string deep;
  for (int i = 0; i < 513; ++i)
    deep += "a\\";
  for (const std::string& path :
       {"\\"s, "\\K"s, "K\\\\L"s, "K\\L\\\\"s, "a\nb"s, "a] ;b"s, std::string(256, 'x'), deep}) {
    EXPECT_EQ(OpenedKey(path).Result(), kInvalid) << path;
    EXPECT_EQ(OpenedKey(path, true).Result(), kInvalid) << path;
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, path.c_str()), kInvalid) << path;
  }
  EXPECT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "New", nullptr), kInvalid);
  EXPECT_EQ(RegSetValueExA(key, "v", 0, REG_BINARY, nullptr, 1), kInvalid);
  EXPECT_EQ(Set(key, "v\r", "x"), kInvalid);
  EXPECT_EQ(RegEnumKeyA(key, 0, nullptr), kInvalid);
  EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, ""), kInvalid);

  HKEY closed = nullptr;
  ASSERT_EQ(RegOpenKeyA(key, nullptr, &closed), kSuccess);
  ASSERT_EQ(RegCloseKey(closed), kSuccess);
  for (const HKEY handle : {HKEY{nullptr}, closed}) {
    EXPECT_EQ(RegCloseKey(handle), LONG{ERROR_INVALID_HANDLE});
    EXPECT_EQ(Set(handle, "v", "x"), LONG{ERROR_INVALID_HANDLE});
  }
  EXPECT_EQ(support::ReadFile(File()), before);
}

TEST_F(RegistryCalls, KeysAreListedInTheOrderInWhichTheyWereMade) {
  for (const char* path : {"K\\b\\x", "K\\a", "K\\C", "K\\B"})
    ASSERT_EQ(OpenedKey(path, true).Result(), kSuccess);
  const OpenedKey key("K");
  EXPECT_EQ(Subkeys(key), "b a C ");
  EXPECT_EQ(RegDeleteTreeA(key, "B"), kSuccess);
  EXPECT_EQ(RegDeleteTreeA(key, "B"), kNotFound);
  EXPECT_EQ(Subkeys(key), "a C ");
  EXPECT_EQ(Subkeys(HKEY_CLASSES_ROOT), "");
}

TEST_F(RegistryCalls, AnOpenKeyOutlivesItsKey) {
  const OpenedKey key("K\\L", true);
  ASSERT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "K"), kSuccess);
  HKEY below = nullptr;
  EXPECT_EQ(Set(key, "v", "2"), kNotFound);
  EXPECT_EQ(RegCreateKeyA(key, "below", &below), kNotFound);
  ASSERT_EQ(OpenedKey("K\\L", true).Result(), kSuccess);
  EXPECT_EQ(Set(key, "v", "3"), kSuccess);
  EXPECT_EQ(RegDeleteValueA(key, "V"), kSuccess);
  EXPECT_EQ(RegDeleteValueA(key, "V"), kNotFound);
  EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), kSuccess);
  EXPECT_EQ(OpenedKey("K").Result(), kSuccess) << "a root stays open";
}

}  // namespace
