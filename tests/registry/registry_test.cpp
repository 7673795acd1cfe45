// The registry: its calls, its text, and its file: who may change it, and what is on the disk when a change fails.
#include "platform/registry/registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>
#include <thread>

#include "support/elsewhere.h"
#include "support/system_calls.h"

namespace {

using namespace std::string_literals;

namespace fs = std::filesystem;

using support::Elsewhere;
using testing::ElementsAre;

constexpr uid_t kNobody = 65534;

const std::string kVersion5 = "Windows Registry Editor Version 5.00\n";

// A key of HKEY_LOCAL_MACHINE, and how its opening went.
class OpenedKey {
 public:
  explicit OpenedKey(const std::string& path, bool create = false)
      : result_((create ? RegCreateKeyA : RegOpenKeyA)(HKEY_LOCAL_MACHINE, path.c_str(), key_.Out())) {}
  operator HKEY() const { return key_.Get(); }  // NOLINT: stands where a key stands
  LONG Result() const { return result_; }

 private:
  registry::OwnedKey key_;
  LONG result_;
};

LONG Set(HKEY key, const char* name, const std::string& data, DWORD type = REG_SZ) {
  const auto* bytes = reinterpret_cast<const BYTE*>(data.data());
  return RegSetValueExA(key, name, 0, type, bytes, static_cast<DWORD>(data.size()));
}

// The data of a value with its type in front, such as "1:text\0"; empty when it cannot be had. Only a buffer that is
// large enough is filled.
std::string Get(HKEY key, const char* name) {
  DWORD type = 0;
  DWORD size = 0;
  if (RegQueryValueExA(key, name, nullptr, &type, nullptr, &size) != 0) return {};
  std::string data(size, '#');
  auto* const bytes = reinterpret_cast<BYTE*>(data.data());
  DWORD room = size == 0 ? 0 : size - 1;
  EXPECT_EQ(RegQueryValueExA(key, name, nullptr, nullptr, bytes, &room), size == 0 ? 0 : LONG{ERROR_MORE_DATA});
  EXPECT_EQ(room, size);
  EXPECT_EQ(data, std::string(size, '#'));
  EXPECT_EQ(RegQueryValueExA(key, name, nullptr, nullptr, bytes, &size), 0);
  return std::to_string(type) + ':' + data;
}

// "FILE:LINE" of the error that `read` throws.
template <class Read>
std::string PlaceOfError(Read read) {
  try {
    read();
  } catch (const registry::FormatError& error) {
    const std::string message = error.what();
    return message.substr(0, message.find(": "));
  }
  return "none";
}

// Texts that stand with bars between them.
std::vector<std::string> Split(const std::string& texts) {
  std::vector<std::string> split;
  std::istringstream rest(texts);
  for (std::string text; std::getline(rest, text, '|');)
    split.push_back(text);
  return split;
}

class Registry : public testing::Test {
 protected:
  static LONG Open(const std::string& path) { return OpenedKey(path).Result(); }
  static LONG Create(const std::string& path) { return OpenedKey(path, true).Result(); }
  static LONG Delete(const std::string& path) { return RegDeleteTreeA(HKEY_LOCAL_MACHINE, path.c_str()); }

  static std::string Subkeys(HKEY key) {
    std::string all;
    std::string name;
    for (DWORD i = 0; RegEnumKeyA(key, i, &name) == 0; ++i)
      all += name + ' ';
    return all;
  }

  static std::string Exported(const std::string& key = {}) {
    std::string text;
    return registry::Export(key, &text) ? text : "no such key";
  }

  void Import(const std::string& text) const {
    support::WriteFile(imported_, text);
    registry::Import(imported_);
  }

  fs::path File() const { return home_.Home() / "registry.reg"; }
  fs::path Lock() const { return home_.Home() / "registry.lock"; }
  void Write(const std::string& text) const { support::WriteFile(File(), text); }
  std::string Text() const { return support::ReadFile(File()); }

  // Changes, whether or not they succeed, leave no other files.
  void ExpectNoLeftovers() const {
    EXPECT_THAT(support::Names(home_.Home()), ElementsAre("drives", "registry.lock", "registry.reg", "work"));
  }

  support::TempHome home_;
  const fs::path imported_ = home_.Data() / "some.reg";
};

// ---- The calls -----------------------------------------------------------------------------------------------------

TEST_F(Registry, NamesIgnoreLetterCaseAndKeepTheirFirstOne) {
  const OpenedKey made("Software\\Se\xE7\xE3o", true);
  EXPECT_EQ(Set(made, "Usu\xE1rio", "0"), 0);
  EXPECT_EQ(Set(OpenedKey("SOFTWARE\\SE\xC7\xC3O\\", true), "USU\xC1RIO", "1"), 0);
  EXPECT_EQ(Get(made, "usu\xE1rio"), "1:1\0"s);
  EXPECT_EQ(Exported(), kVersion5 + "\n[HKEY_LOCAL_MACHINE\\Software\\Seção]\n\"Usuário\"=\"1\"\n");
}

TEST_F(Registry, EveryTypeComesBackAsItWentIn) {
  const OpenedKey key("K", true);
  const std::string text = "two\r\nlines\n, \"quotes\" and \\ \x80\x81\xE9\xFF\t\x01";
  const std::string bytes = std::string(300, '\xAB') + '\0';
  const std::tuple<DWORD, std::string, std::string> cases[] = {
      {REG_SZ, text, text + '\0'},          {REG_SZ, "cut\0here\0"s, "cut\0"s}, {REG_SZ, "", "\0"s},
      {REG_MULTI_SZ, "a\0b"s, "a\0b\0\0"s}, {REG_MULTI_SZ, "", "\0"s},          {REG_DWORD, "\x01\x02", "\x01\x02"},
      {REG_BINARY, bytes, bytes},           {0xFFFFFFFF, "odd", "odd"}};
  for (const auto& [type, data, expected] : cases) {
    EXPECT_EQ(Set(key, "\"name\" \\ \xE9", data, type), 0);
    EXPECT_EQ(Get(key, "\"name\" \\ \xE9"), std::to_string(type) + ':' + expected);
  }
}

TEST_F(Registry, MalformedArgumentsAreRefusedAndChangeNothing) {
  constexpr LONG kInvalid = ERROR_INVALID_PARAMETER;
  const OpenedKey key("K", true);
  const std::string before = Text();
  const std::string deep = std::regex_replace(std::string(513, 'a'), std::regex("a"), "a\\");
  for (const std::string& path :
       {"\\"s, "\\K"s, "K\\\\L"s, "K\\L\\\\"s, "a\nb"s, "a] ;b"s, std::string(256, 'x'), deep}) {
    for (const auto call : {Open, Create, Delete})
      EXPECT_EQ(call(path), kInvalid) << path;
  }
  EXPECT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "New", nullptr), kInvalid);
  EXPECT_EQ(RegSetValueExA(key, "v", 0, REG_BINARY, nullptr, 1), kInvalid);
  EXPECT_EQ(Set(key, "v\r", "x"), kInvalid);
  EXPECT_EQ(RegEnumKeyA(key, 0, nullptr), kInvalid);
  EXPECT_EQ(Delete(""), kInvalid) << "a root";

  HKEY closed = nullptr;
  EXPECT_EQ(RegOpenKeyA(key, nullptr, &closed), 0);
  EXPECT_EQ(RegCloseKey(closed), 0);
  EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), 0);
  for (const HKEY handle : {HKEY{nullptr}, closed}) {
    EXPECT_EQ(RegCloseKey(handle), LONG{ERROR_INVALID_HANDLE});
    EXPECT_EQ(Set(handle, "v", "x"), LONG{ERROR_INVALID_HANDLE});
  }
  EXPECT_EQ(Text(), before);
}

TEST_F(Registry, KeysAreListedInTheOrderInWhichTheyWereMadeAndAnOpenKeyOutlivesItsKey) {
  constexpr LONG kNotFound = ERROR_FILE_NOT_FOUND;
  for (const char* path : {"K\\b\\x", "K\\a", "K\\C", "K\\B"})
    EXPECT_EQ(Create(path), 0);
  const OpenedKey key("K");
  EXPECT_EQ(Subkeys(key), "b a C ");
  EXPECT_EQ(RegDeleteTreeA(key, "B"), 0);
  EXPECT_EQ(RegDeleteTreeA(key, "B"), kNotFound);
  EXPECT_EQ(Subkeys(key), "a C ");
  EXPECT_EQ(Subkeys(HKEY_CLASSES_ROOT), "");

  EXPECT_EQ(Delete("K"), 0);
  EXPECT_EQ(Set(key, "v", "2"), kNotFound);
  HKEY below = nullptr;
  EXPECT_EQ(RegCreateKeyA(key, "below", &below), kNotFound);
  EXPECT_EQ(Create("K"), 0);
  EXPECT_EQ(Set(key, "v", "3"), 0);
  EXPECT_EQ(RegDeleteValueA(key, "V"), 0);
  EXPECT_EQ(RegDeleteValueA(key, "V"), kNotFound);
}

// ---- The text ------------------------------------------------------------------------------------------------------

std::string WithCrLf(const std::string& text) {
  return std::regex_replace(text, std::regex("\n"), "\r\n");
}

// ASCII as the desktop's UTF-16 files hold it.
std::string Wide(std::string_view ascii) {
  std::string out = "\xFF\xFE";
  for (const char c : ascii)
    out += {c, '\0'};
  return out;
}

const std::string kContent = R"(
; what the desktop's tools write, and what people make of it
[HKLM\SOFTWARE\Norvela]
@="default"   ; the reports
  "quo\"te\\" = "a \"b\" ; c\\"
"bytes"=hex:01,2,\
  ff,\   ; goes on
  00
"twice"="first"
"TWICE"="second"

[HKEY_LOCAL_MACHINE\SOFTWARE\Norvela\a]b\]	; a [comment]
[hkey_classes_root\CLSID]
)";

const std::string kNormalForm = kVersion5 + R"(
[HKEY_LOCAL_MACHINE\SOFTWARE\Norvela]
@="default"
"quo\"te\\"="a \"b\" ; c\\"
"bytes"=hex:01,02,ff,00
"twice"="second"

[HKEY_LOCAL_MACHINE\SOFTWARE\Norvela\a]b]

[HKEY_CLASSES_ROOT\CLSID]
)";

TEST_F(Registry, EveryFormReadsTheSameAndGoesOutInOne) {
  const std::string version5 = kVersion5 + kContent;
  for (const std::string& form :
       {"REGEDIT4\n" + kContent, WithCrLf("REGEDIT4\n" + kContent), version5, "\xEF\xBB\xBF" + WithCrLf(version5),
        Wide(WithCrLf(version5)), Wide(version5), version5.substr(0, version5.size() - 1)}) {
    SCOPED_TRACE(testing::PrintToString(form));
    Write(form);
    EXPECT_EQ(Exported(), kNormalForm);
    const OpenedKey key("SOFTWARE\\Norvela");
    EXPECT_EQ(Set(key, "twice", "third") + Set(key, "twice", "second"), 0);
    EXPECT_EQ(Text(), kNormalForm);
  }
  EXPECT_EQ(registry::ToDesktopEncoding(kNormalForm), Wide(WithCrLf(kNormalForm)));
  EXPECT_EQ(Exported("hklm\\software\\NORVELA\\A]B\\"), kVersion5 + "\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela\\a]b]\n");
  EXPECT_EQ(Exported("HKLM\\None") + Exported("SOFTWARE"), "no such keyno such key");
}

// In the older form the bytes of texts are the code page's, in the newer one UTF-16. What the code page lacks shows as
// '?', and is kept. Unusual texts go out as bytes, so that no line end of a text can be taken for one of the file.
TEST_F(Registry, EveryValueIsReadToldAndWritten) {
  const OpenedKey key("", true);
  const std::string ansi = "REGEDIT4\n";
  const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
      {ansi, "\"\x80\xE9\x81\"", "1:\x80\xE9\x81\0"s, "\"€é\xC2\x81\""},
      {ansi, "hex(2):80,e9,00", "2:\x80\xE9\0"s, "hex(2):ac,20,e9,00,00,00"},
      {ansi, "hex(7):61,00,e9,00,00", "7:a\0\xE9\0\0"s, "hex(7):61,00,00,00,e9,00,00,00,00,00"},
      {kVersion5, "\"Ж😀\"", "1:??\0"s, "\"Ж😀\""},
      {kVersion5, "\"a\r\n; c\"", "1:a\r\n; c\0"s, "hex(1):61,00,0d,00,0a,00,3b,00,20,00,63,00,00,00"},
      {kVersion5, "hex(1):61,00,62", "1:a\0"s, "hex(1):61,00,62"},
      {kVersion5, "hex(1):00,d8,00,00", "1:?\0"s, "hex(1):00,d8,00,00"},
      {kVersion5, "dword:8000ABcd", "4:\xCD\xAB\0\x80"s, "dword:8000abcd"},
      {kVersion5, "dword:7", "4:\7\0\0\0"s, "dword:00000007"},
      {kVersion5, "hex(0):", "0:", "hex(0):"},
      {kVersion5, "hex(b):01,00,80", "11:\1\0\x80"s, "hex(b):01,00,80"}};
  for (const auto& [version, read, told, written] : cases) {
    SCOPED_TRACE(read);
    Write(std::string(version).append("[HKLM]\n\"v\"=").append(read));
    EXPECT_EQ(Get(key, "v"), told);
    EXPECT_EQ(Exported(), std::string(kVersion5).append("\n[HKEY_LOCAL_MACHINE]\n\"v\"=").append(written) + '\n');
  }
  Write(kVersion5 + "[HKLM\\Жук]\n\"Имя\"=\"\"\n");
  EXPECT_EQ(Subkeys(key), "??? ");
  EXPECT_EQ(Open("???"), LONG{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(Create("\xE9"), 0);
  EXPECT_EQ(Text(), kVersion5 + "\n[HKEY_LOCAL_MACHINE\\Жук]\n\"Имя\"=\"\"\n\n[HKEY_LOCAL_MACHINE\\é]\n");
}

TEST_F(Registry, AnImportMergesAndDeletesOrChangesNothing) {
  Write(kVersion5 + "[HKLM\\A]\n\"keep\"=\"1\"\n\"go\"=\"1\"\n@=\"1\"\n[HKLM\\A\\B]\n\"x\"=\"1\"\n[HKLM\\C]\n");
  Import(kVersion5 + R"(
[HKEY_CURRENT_USER\Software]
"foreign"="1"
"foreign"=-
[-HKEY_USERS\x]
[HKLM\a]
"GO"=-
@=-
"never there"=-
"new"="2"
[-HKLM\A\b]
[-HKLM\never\there]
[HKLM\A\B]
"y"="2"
)");
  const std::string merged = kVersion5 + "\n[HKEY_LOCAL_MACHINE\\A]\n\"keep\"=\"1\"\n\"new\"=\"2\"\n" +
                             "\n[HKEY_LOCAL_MACHINE\\A\\B]\n\"y\"=\"2\"\n\n[HKEY_LOCAL_MACHINE\\C]\n";
  EXPECT_EQ(Text(), merged);
  for (const char* error : {"[-HKLM\\A]\n\"x\"=\"1\"", "[-HKLM]\n", "[HKEY_ELSEWHERE]\n", "[HKCU\\x]\n\"x\"=hex:1,"}) {
    const int line = std::string(error).ends_with('\n') ? 3 : 4;
    EXPECT_EQ(PlaceOfError([&] { Import(kVersion5 + "[HKLM\\New]\n" + error); }),
              imported_.string() + ':' + std::to_string(line));
  }
  EXPECT_THROW(registry::Import("none.reg"), fs::filesystem_error);
  EXPECT_EQ(Text(), merged);
}

TEST_F(Registry, ADamagedFileIsToldWithItsLineAndNeverOverwritten) {
  const std::string start = kVersion5 + "[HKLM]\n";
  // Each has its error on the last line.
  std::vector<std::string> damages = {Wide(start) + "a", Wide(start) + "\x41\xD8\x41\0"s, Wide(start + ";\0"s)};
  for (const std::string& head : Split("|\n|REGEDIT\n|REGEDIT5\n|\xEF\xBB\xBFREGEDIT4\n|\xFE\xFF|\xFF\xFE"))
    damages.push_back(head);
  for (const std::string& line : Split("\"early\"=\"1\"|[-HKLM\\x]|[HKCU\\x]|[HKLM]\n;\n; \xE9 b"))
    damages.push_back(kVersion5 + line + "\n");
  for (const std::string& line :
       Split(R"(x|name="x"|[HKLM\a|[HKLM\a] b|[HKLM\a\\b]|[HKLM\\a]|[]|[SOFTWARE\x]|"x"|"x"=|"x"=-|"x"=1|"x"="a" b)"
             R"(|"x"="a\b"|"x"="a|"x"=dword:|"x"=dword:123456789|"x"=dword:12g|"x"=hex:1g|"x"=hex:123|"x"=hex:1,,2)"
             R"(|"x"=hex:1,|"x"=hex:1\|"x"=hex:1,\ 2|"x"=hex(:1|"x"=hex(1:1|"x"=hex(123456789):1|"x"=hex 1)"
             "|\"x\"=\"a\n\nb\" c|\"x\"=hex:1,\\\n|\"x\"=hex:1,\\\n\"y\"=\"\"|\r;"))
    damages.push_back(start + line + "\n");
  const OpenedKey key("K", true);
  for (const std::string& damage : damages) {
    SCOPED_TRACE(testing::PrintToString(damage));
    const auto lines = std::count(damage.begin(), damage.end(), '\n') + (damage.ends_with('\n') ? 0 : 1);
    const std::string place = File().string() + ':' + std::to_string(lines);
    Write(damage);
    EXPECT_EQ(PlaceOfError([] { registry::Check(); }), place);
    EXPECT_EQ(PlaceOfError([&] { Import(start); }), place);
    for (const LONG result : {Open("K"), Create("New"), Set(key, "v", "x"), Delete("K")})
      EXPECT_EQ(result, LONG{ERROR_BADDB});
    EXPECT_EQ(Text(), damage);
  }
}

TEST_F(Registry, AFileOfCountlessKeysOrValuesIsRefused) {
  const std::string below = std::regex_replace(std::string(499, 'a'), std::regex("a"), "\\a");
  std::string keys = kVersion5;
  for (int line = 0; line < 200; ++line)
    keys += "[HKLM\\" + std::to_string(line) + below + "]\n";
  Write(keys + "[HKLM\\more]\n");
  EXPECT_EQ(PlaceOfError([] { registry::Check(); }), File().string() + ":202");

  std::string values = kVersion5 + "[HKLM\\K]\n";
  for (int i = 0; i < 250'000; ++i)
    values += '"' + std::to_string(i) + "\"=\"\"\n";
  Write(values);
  EXPECT_EQ(Set(OpenedKey("K"), "more", "x"), LONG{ERROR_DISK_FULL});
  Write(values + "\"more\"=\"\"\n");
  EXPECT_EQ(PlaceOfError([] { registry::Check(); }), File().string() + ":250003");
}

// ---- The file ------------------------------------------------------------------------------------------------------

// Eight processes of two threads each, which also read what the others write.
TEST_F(Registry, ManyWritersLoseNothingAndSeeWholeFiles) {
  const auto write = [](const std::string& path) {
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(Set(OpenedKey(path, true), std::to_string(i).c_str(), "x"), 0);
      EXPECT_NO_THROW(registry::Check());
    }
  };
  support::AtOnce(8, [&write](unsigned i) {
    std::thread beside(write, "Beside\\" + std::to_string(i));
    write("W\\" + std::to_string(i));
    beside.join();
  });
  const std::string written = Exported();
  EXPECT_EQ(std::count(written.begin(), written.end(), '='), 8 * 2 * 10) << written;
  ExpectNoLeftovers();
}

TEST_F(Registry, ContentIsOnTheDiskBeforeItTakesItsNameAndAFailedStepLeavesTheOldOne) {
  const OpenedKey key("K", true);
  const std::string before = Text();
  const auto expectFailure = [&](const char* step, int error, DWORD result) {
    const support::SystemCalls system(step, error);
    EXPECT_EQ(Set(key, "v", "x"), static_cast<LONG>(result)) << step << ": " << std::strerror(error);
  };
  expectFailure("fsync file", EIO, ERROR_IO_DEVICE);
  expectFailure("fsync file", EPROTO, ERROR_GEN_FAILURE);
  expectFailure("rename hidden registry.reg", EINVAL, ERROR_GEN_FAILURE);
  expectFailure("rename hidden registry.reg", EACCES, ERROR_ACCESS_DENIED);
  expectFailure("rename hidden registry.reg", EROFS, ERROR_WRITE_PROTECT);
  expectFailure("rename hidden registry.reg", ENOENT, ERROR_PATH_NOT_FOUND);
  Elsewhere([&] {
    support::FillDisk(1000);
    EXPECT_EQ(Set(key, "v", std::string(2000, 'a')), LONG{ERROR_DISK_FULL});
  });
  EXPECT_EQ(Text(), before);
  ExpectNoLeftovers();

  // A killed writer leaves a hidden file. There are folders that cannot be flushed.
  support::WriteFile(home_.Home() / ".registry.reg.new", "half a fi");
  const support::SystemCalls system("fsync folder", EINVAL);
  EXPECT_EQ(Set(key, "v", "x"), 0);
  EXPECT_THAT(system.Seen(), ElementsAre("unlink hidden", "fsync file", "rename hidden registry.reg", "fsync folder"));
  ExpectNoLeftovers();
}

TEST_F(Registry, ChangesFromOutsideAreSeenAtOnceAndWhatChangesNothingLeavesTheFileAlone) {
  const std::string start = "REGEDIT4\n; a comment\n[HKLM\\K]\n\"v\"=";
  Write(start + "\"0\"\n");
  const OpenedKey key("K");
  // Same inode, same size, and often the same time.
  for (char digit = '0'; digit <= '9'; ++digit) {
    Write(start + '"' + digit + "\"\n");
    EXPECT_EQ(Get(key, "v"), "1:"s + digit + '\0');
  }
  EXPECT_EQ(Set(key, "V", "9") + Create("k"), 0);
  EXPECT_EQ(RegDeleteValueA(key, "none"), LONG{ERROR_FILE_NOT_FOUND});
  Import("REGEDIT4\n[HKLM\\k]\n\"V\"=\"9\"\n[-HKLM\\none]\n");
  EXPECT_EQ(Text(), start + "\"9\"\n");
  fs::remove(File());
  EXPECT_EQ(Get(key, "v"), "");
  EXPECT_EQ(Open(""), 0);
}

TEST_F(Registry, KeepsItsModeAndItsPlaceBehindALink) {
  const fs::path target = home_.Data() / "kept.reg";
  fs::create_symlink("../data/kept.reg", File());
  const OpenedKey key("K", true);
  fs::permissions(target, fs::perms(0640));
  EXPECT_EQ(Set(key, "v", "x"), 0);
  EXPECT_TRUE(fs::is_symlink(File()));
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0640));
  EXPECT_THAT(support::Names(home_.Data()), ElementsAre("kept.reg"));
}

TEST_F(Registry, AFirstChangeMakesTheHomeIfThereIsRoomForIt) {
  fs::remove_all(home_.Home());
  EXPECT_EQ(Open("K"), LONG{ERROR_FILE_NOT_FOUND});
  EXPECT_FALSE(fs::exists(home_.Home()));
  EXPECT_EQ(Create("K"), 0);
  fs::remove(File());
  fs::create_directory(File());
  EXPECT_EQ(Create("K"), LONG{ERROR_ACCESS_DENIED});
  fs::remove(File());
  EXPECT_EQ(mkfifo(File().c_str(), 0600), 0);
  EXPECT_EQ(Open("K"), LONG{ERROR_ACCESS_DENIED});
  fs::remove_all(home_.Home());
  support::WriteFile(home_.Home(), "no folder");
  EXPECT_EQ(Create("K"), LONG{ERROR_PATH_NOT_FOUND});
}

TEST_F(Registry, WithoutPermissionItCanStillBeRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  EXPECT_EQ(Set(OpenedKey("K\\L", true), "v", "x"), 0);
  const std::string before = Text();
  fs::permissions(home_.Home().parent_path(), fs::perms(0755));
  const auto readOnly = [] {
    const OpenedKey key("K\\L", true);  // it exists
    EXPECT_EQ(Get(key, "v"), "1:x\0"s);
    for (const LONG result : {Set(key, "v", "y"), Create("New"), Delete("K")})
      EXPECT_EQ(result, LONG{ERROR_ACCESS_DENIED});
  };
  // The folder may not be written, with and without a lock file in it.
  fs::permissions(home_.Home(), fs::perms(0555));
  Elsewhere(readOnly, kNobody);
  fs::remove(Lock());
  Elsewhere(readOnly, kNobody);
  // The folder may be written, but not the file.
  fs::permissions(home_.Home(), fs::perms(0777));
  fs::permissions(File(), fs::perms(0444));
  Elsewhere(readOnly, kNobody);
  EXPECT_EQ(Text(), before);
  // The file may not even be read.
  fs::permissions(File(), fs::perms::none);
  Elsewhere([] { EXPECT_EQ(Open("K"), LONG{ERROR_ACCESS_DENIED}); }, kNobody);
}

TEST_F(Registry, OnlyWhoMayWriteTheHomeCanTakeTheLock) {
  for (const auto& [home, lock] : {std::pair(0700U, 0600U), {0755U, 0600U}, {0775U, 0660U}, {0777U, 0666U}}) {
    fs::permissions(home_.Home(), fs::perms(home));
    fs::remove(Lock());
    EXPECT_EQ(Create(std::to_string(home)), 0);
    EXPECT_EQ(fs::status(Lock()).permissions(), fs::perms(lock));
  }
  const OpenedKey key("K", true);
  const int held = open(Lock().c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(Set(key, "v", "x"), LONG{ERROR_LOCK_VIOLATION}) << "the lock is never released";
  EXPECT_EQ(Open("K"), 0);
  close(held);
  EXPECT_EQ(Set(key, "v", "x"), 0);
}

}  // namespace
