// The registry: its calls, its limits, several writers, and what is on the disk when a change fails. The transcripts
// registry*.txt of kestorctl show the forms of its file.
#include "platform/registry/registry.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <thread>

#include "support/elsewhere.h"
#include "support/system_calls.h"

namespace {

using namespace std::string_literals;

using support::Elsewhere;
using testing::ElementsAre;

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

// Returns the data of a value with its type in front, such as "1:text\0"; empty if it cannot be read. Checks that only
// a large enough buffer is filled.
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

  static std::string Exported(const char* key = "") {
    std::string text;
    return registry::Export(key, &text) ? text : "no such key";
  }

  void Write(const std::string& text) const { support::WriteFile(file_, text); }
  std::string Text() const { return support::ReadFile(file_); }

  // Changes, whether or not they succeed, leave no other files.
  void ExpectNoLeftovers() const {
    EXPECT_THAT(support::Names(home_.Home()), ElementsAre("drives", "registry.lock", "registry.reg", "work"));
  }

  support::TempHome home_;
  const std::filesystem::path file_ = home_.Home() / "registry.reg";
};

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

TEST_F(Registry, WrongArgumentsAreRefusedAndChangeNothing) {
  constexpr LONG kInvalid = ERROR_INVALID_PARAMETER;
  const OpenedKey key("K", true);
  const std::string before = Text();
  for (const LONG result : {RegCreateKeyA(HKEY_LOCAL_MACHINE, "New", nullptr), Delete(""),
                            RegSetValueExA(key, "v", 0, REG_BINARY, nullptr, 1), RegEnumKeyA(key, 0, nullptr)})
    EXPECT_EQ(result, kInvalid);
  HKEY closed = nullptr;
  EXPECT_EQ(RegOpenKeyA(key, nullptr, &closed), 0);
  EXPECT_EQ(RegCloseKey(closed) + RegCloseKey(HKEY_LOCAL_MACHINE), 0);
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
  EXPECT_EQ(Exported("hklm\\k\\B\\"), kVersion5 + "\n[HKEY_LOCAL_MACHINE\\K\\b\\x]\n");
  EXPECT_EQ(Exported("HKLM\\None") + Exported("K"), "no such keyno such key");
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

TEST_F(Registry, AFileOfCountlessKeysOrValuesIsRefused) {
  std::string keys = kVersion5;
  for (int key = 0; key < 200; ++key) {
    keys += "[HKLM\\" + std::to_string(key);
    for (int depth = 1; depth < 500; ++depth)
      keys += "\\a";
    keys += "]\n";
  }
  Write(keys);
  EXPECT_EQ(Open("199"), 0);
  Write(keys + "[HKLM\\more]\n");
  EXPECT_EQ(Open("199"), LONG{ERROR_BADDB});

  std::string values = kVersion5 + "[HKLM\\K]\n";
  for (int i = 0; i < 250'000; ++i)
    values += '"' + std::to_string(i) + "\"=\"\"\n";
  Write(values);
  EXPECT_EQ(Set(OpenedKey("K"), "more", "x"), LONG{ERROR_DISK_FULL});
  Write(values + "\"more\"=\"\"\n");
  EXPECT_EQ(Open("K"), LONG{ERROR_BADDB});
}

// Eight processes of two threads each also read what the others write. On a slow disk a writer may time out waiting for
// the lock; it retries.
TEST_F(Registry, ManyWritersLoseNothingAndSeeWholeFiles) {
  const auto write = [](const std::string& path) {
    for (int i = 0; i < 10; ++i) {
      LONG result = ERROR_LOCK_VIOLATION;
      while (result == LONG{ERROR_LOCK_VIOLATION}) {
        const OpenedKey key(path, true);
        result = key.Result() == 0 ? Set(key, std::to_string(i).c_str(), "x") : key.Result();
      }
      EXPECT_EQ(result, 0);
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

  // A killed writer leaves a hidden file. Some folders cannot be flushed.
  support::WriteFile(home_.Home() / ".registry.reg.new", "half a fi");
  const support::SystemCalls system("fsync folder", EINVAL);
  EXPECT_EQ(Set(key, "v", "x"), 0);
  EXPECT_THAT(system.Seen(), ElementsAre("unlink hidden", "fsync file", "rename hidden registry.reg", "fsync folder"));
  ExpectNoLeftovers();
}

TEST_F(Registry, ChangesFromOutsideAreSeenAtOnce) {
  const std::string start = kVersion5 + "[HKLM\\K]\n\"v\"=";
  Write(start + "\"\"\n");
  const OpenedKey key("K");
  // Same inode, same size, and often the same time.
  for (char digit = '0'; digit <= '9'; ++digit) {
    Write(start + '"' + digit + "\"\n");
    EXPECT_EQ(Get(key, "v"), "1:"s + digit + '\0');
  }
  std::filesystem::remove(file_);
  EXPECT_EQ(Open("K"), LONG{ERROR_FILE_NOT_FOUND});
}

}  // namespace
