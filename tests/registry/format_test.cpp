// The registry's text: every form that is read, the one that is written, and what is refused.
#include <algorithm>
#include <sstream>

#include "fixture.h"

namespace {

using namespace std::string_literals;

namespace fs = std::filesystem;

using RegistryFormat = Registry;

const std::string kVersion5 = "Windows Registry Editor Version 5.00\n";

std::string WithCrLf(std::string_view text) {
  std::string out;
  for (const char c : text)
    out += c == '\n' ? "\r\n"s : std::string(1, c);
  return out;
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
@="default"
"Relatorios"="D:\\Rel\\"   ; the reports
  "quo\"te" = "a \"b\" ; c"
"number"=dword:0000ABcd
"short"=dword:7
"bytes"=hex:01,2,\
  ff,\   ; goes on
  00
"none"=hex(0):
"kind"=hex(b):01,00,00,00,00,00,00,80
"twice"="first"
"TWICE"="second"

[HKEY_LOCAL_MACHINE\SOFTWARE\Norvela\a]b\]	; a [comment]
[hkey_classes_root\CLSID]
)";

const std::string kNormalForm = kVersion5 + R"(
[HKEY_LOCAL_MACHINE\SOFTWARE\Norvela]
@="default"
"Relatorios"="D:\\Rel\\"
"quo\"te"="a \"b\" ; c"
"number"=dword:0000abcd
"short"=dword:00000007
"bytes"=hex:01,02,ff,00
"none"=hex(0):
"kind"=hex(b):01,00,00,00,00,00,00,80
"twice"="second"

[HKEY_LOCAL_MACHINE\SOFTWARE\Norvela\a]b]

[HKEY_CLASSES_ROOT\CLSID]
)";

TEST_F(RegistryFormat, EveryFormReadsTheSameAndGoesOutInOne) {
  const std::string version5 = kVersion5 + kContent;
  const std::string forms[] = {
      "REGEDIT4\n" + kContent,
      WithCrLf("REGEDIT4\n" + kContent),
      version5,
      "\xEF\xBB\xBF" + WithCrLf(version5),
      Wide(WithCrLf(version5)),
      Wide(version5),
      version5.substr(0, version5.size() - 1),  // the last line without its end
  };
  for (const std::string& form : forms) {
    SCOPED_TRACE(form.substr(0, 10));
    support::WriteFile(File(), form);
    EXPECT_EQ(Exported(), kNormalForm);
    const OpenedKey key("SOFTWARE\\Norvela");
    ASSERT_EQ(Set(key, "twice", "third"), kSuccess);
    ASSERT_EQ(Set(key, "twice", "second"), kSuccess);
    EXPECT_EQ(support::ReadFile(File()), kNormalForm);
  }
}

TEST_F(RegistryFormat, TextsFollowTheEncodingOfTheirFile) {
  const OpenedKey key("", true);
  // In the older form the bytes of texts are the code page's, in the newer one UTF-16.
  support::WriteFile(File(),
                     "REGEDIT4\n[HKLM]\n\"t\"=\"\x80\xE9\x81\"\n\"e\"=hex(2):80,e9,00\n\"m\"=hex(7):61,00,e9,00,00\n");
  EXPECT_EQ(Get(key, "t"), "1:\x80\xE9\x81\0"s);
  EXPECT_EQ(Get(key, "e"), "2:\x80\xE9\0"s);
  EXPECT_EQ(Get(key, "m"), "7:a\0\xE9\0\0"s);
  EXPECT_EQ(Exported(), kVersion5 +
                            "\n[HKEY_LOCAL_MACHINE]\n\"t\"=\"€é\xC2\x81\"\n\"e\"=hex(2):ac,20,e9,00,00,00\n"
                            "\"m\"=hex(7):61,00,00,00,e9,00,00,00,00,00\n");

  // What the code page lacks shows as '?', and is kept.
  support::WriteFile(File(), kVersion5 + "[HKLM\\Жук]\n\"Имя\"=\"Ж😀\"\n");
  std::string name;
  EXPECT_EQ(RegEnumKeyA(key, 0, &name), kSuccess);
  EXPECT_EQ(name, "???");
  EXPECT_EQ(OpenedKey("???").Result(), kNotFound);
  ASSERT_EQ(Set(key, "new", "\xE9"), kSuccess);
  EXPECT_EQ(Exported(), kVersion5 +
                            "\n[HKEY_LOCAL_MACHINE]\n\"new\"=\"é\"\n\n[HKEY_LOCAL_MACHINE\\Жук]\n"
                            "\"Имя\"=\"Ж😀\"\n");

  // Unusual texts go out as bytes, so that no line end of a text can be taken for one of the file.
  const std::string asBytes = "\"odd\"=hex(1):61,00,62\n\"half\"=hex(1):00,d8,00,00\n";
  support::WriteFile(File(), kVersion5 + "[HKLM]\n\"raw\"=\"a\r\n; c\"\n" + asBytes);
  EXPECT_EQ(Get(key, "raw"), "1:a\r\n; c\0"s);
  EXPECT_EQ(Get(key, "odd"), "1:a\0"s);
  EXPECT_EQ(Get(key, "half"), "1:?\0"s);
  EXPECT_EQ(Exported(),
            kVersion5 + "\n[HKEY_LOCAL_MACHINE]\n\"raw\"=hex(1):61,00,0d,00,0a,00,3b,00,20,00,63,00,00,00\n" + asBytes);
}

TEST_F(RegistryFormat, AnExportMovesEverythingToAnotherMachine) {
  std::string bytes = "00";
  for (int i = 0; i < 100; ++i)
    bytes += ",7f";
  support::WriteFile(File(), kVersion5 + kContent + "\"Ж\"=\"é\\\\\"\n\"long\"=hex:" + bytes + "\n");
  const std::string before = Exported();
  const std::string desktop = registry::ToDesktopEncoding(before);
  EXPECT_EQ(desktop.substr(0, 4), "\xFF\xFEW\0"s);
  EXPECT_NE(desktop.find("0\0\r\0\n\0"s), std::string::npos);

  fs::remove(File());
  support::WriteFile(home_.Data() / "old.reg", desktop);
  registry::Import(home_.Data() / "old.reg");
  EXPECT_EQ(Exported(), before);
  EXPECT_EQ(Exported("hklm\\software\\NORVELA\\A]B\\"), kVersion5 + "\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela\\a]b]\n");
  for (const char* none : {"HKLM\\None", "SOFTWARE"})
    EXPECT_EQ(Exported(none), "no such key");
}

TEST_F(RegistryFormat, AnImportMergesAndDeletes) {
  support::WriteFile(
      File(), kVersion5 + "[HKLM\\A]\n\"keep\"=\"1\"\n\"go\"=\"1\"\n@=\"1\"\n[HKLM\\A\\B]\n\"x\"=\"1\"\n[HKLM\\C]\n");
  support::WriteFile(home_.Data() / "new.reg", kVersion5 + R"(
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
  registry::Import(home_.Data() / "new.reg");
  EXPECT_EQ(Exported(), kVersion5 + R"(
[HKEY_LOCAL_MACHINE\A]
"keep"="1"
"new"="2"

[HKEY_LOCAL_MACHINE\A\B]
"y"="2"

[HKEY_LOCAL_MACHINE\C]
)");
}

// The line of the error that `read` throws, 0 when it throws none. The message must begin with the file's name.
template <class Read>
int LineOfError(const fs::path& file, Read read) {
  try {
    read();
  } catch (const registry::FormatError& error) {
    const std::string message = error.what();
    const std::string start = file.string() + ':';
    return message.starts_with(start) ? std::stoi(message.substr(start.size())) : -1;
  }
  return 0;
}

int LastLine(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  return 1 + static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

// Each is a file with an error on its last line, behind which a line end may stand.
std::vector<std::string> EveryDamage() {
  const std::string key = kVersion5 + "[HKLM]\n";
  std::vector<std::string> damages = {Wide(key) + "a", Wide(key) + "\x41\xD8\x41\0"s, Wide(key + ";\0"s)};
  for (const char* head : {"", "\n", "REGEDIT\n", "REGEDIT5\n", "\xEF\xBB\xBFREGEDIT4\n", "\xFE\xFF", "\xFF\xFE"})
    damages.emplace_back(head);
  for (const char* line : {"\"early\"=\"1\"\n", "[-HKLM\\x]\n", "[HKCU\\x]\n", "[HKLM]\n;\n; \xE9 b\n"})
    damages.push_back(kVersion5 + line);
  std::string deep = "[HKLM";
  for (int i = 0; i < 513; ++i)
    deep += "\\a";
  damages.push_back(key + deep + "]\n");
  damages.push_back(key + "[HKLM\\" + std::string(256, 'x') + "]\n");
  std::istringstream lines(
      R"(x|name="x"|[HKLM\a|[HKLM\a] b|[HKLM\a\\b]|[HKLM\\a]|[]|[SOFTWARE\x]|"x"|"x"=|"x"=-|"x"=1|"x"="a" b|"x"="a\b")"
      R"(|"x"="a|"x"=dword:|"x"=dword:123456789|"x"=dword:12g|"x"=hex:1g|"x"=hex:123|"x"=hex:1,,2|"x"=hex:1,)"
      R"(|"x"=hex:1\|"x"=hex:1,\ 2|"x"=hex(:1|"x"=hex(1:1|"x"=hex(123456789):1|"x"=hex 1)"
      "|\"x\"=\"a\n\nb\" c|\"x\"=hex:1,\\\n|\"x\"=hex:1,\\\n\"y\"=\"\"|\r;");
  for (std::string line; std::getline(lines, line, '|');)
    damages.push_back(key + line + "\n");
  return damages;
}

TEST_F(RegistryFormat, ADamagedRegistryIsToldWithItsLineAndNeverOverwritten) {
  const fs::path good = home_.Data() / "good.reg";
  support::WriteFile(good, kVersion5 + "[HKLM\\Good]\n");
  const OpenedKey key("K", true);
  for (const std::string& damage : EveryDamage()) {
    SCOPED_TRACE(testing::PrintToString(damage));
    support::WriteFile(File(), damage);
    EXPECT_EQ(LineOfError(File(), [] { registry::Check(); }), LastLine(damage));
    EXPECT_EQ(LineOfError(File(), [&] { registry::Import(good); }), LastLine(damage));
    EXPECT_EQ(OpenedKey("K").Result(), kDamaged);
    EXPECT_EQ(OpenedKey("New", true).Result(), kDamaged);
    EXPECT_EQ(Set(key, "v", "x"), kDamaged);
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "K"), kDamaged);
    EXPECT_EQ(support::ReadFile(File()), damage);
  }
}

TEST_F(RegistryFormat, AnImportWithAnErrorChangesNothing) {
  ASSERT_EQ(OpenedKey("K", true).Result(), kSuccess);
  const std::string before = support::ReadFile(File());
  const fs::path file = home_.Data() / "bad.reg";
  for (const char* damage :
       {"[-HKLM\\K]\n\"x\"=\"1\"\n", "[-HKLM]\n", "[HKEY_ELSEWHERE]\n", "[HKCU\\x]\n\"x\"=hex:1,\n"}) {
    const std::string bytes = kVersion5 + "[HKLM\\New]\n" + damage;
    support::WriteFile(file, bytes);
    EXPECT_EQ(LineOfError(file, [&] { registry::Import(file); }), LastLine(bytes)) << bytes;
  }
  EXPECT_THROW(registry::Import(home_.Data() / "none.reg"), fs::filesystem_error);
  EXPECT_EQ(support::ReadFile(File()), before);
}

TEST_F(RegistryFormat, AFileOfCountlessKeysOrValuesIsRefused) {
  std::string bytes = kVersion5;
  for (int line = 0; line < 200; ++line) {
    bytes += "[HKLM\\" + std::to_string(line);
    for (int i = 1; i < 512; ++i)
      bytes += "\\a";
    bytes += "]\n";
  }
  support::WriteFile(File(), bytes);
  EXPECT_EQ(LineOfError(File(), [] { registry::Check(); }), 1 + 100'000 / 512 + 1);

  bytes = kVersion5 + "[HKLM\\K]\n";
  for (int i = 0; i < 250'000; ++i)
    bytes += '"' + std::to_string(i) + "\"=\"\"\n";
  support::WriteFile(File(), bytes);
  EXPECT_EQ(Set(OpenedKey("K"), "more", "x"), LONG{ERROR_DISK_FULL});
  support::WriteFile(File(), bytes + "\"more\"=\"\"\n");
  EXPECT_EQ(LineOfError(File(), [] { registry::Check(); }), 2 + 250'000 + 1);
}

}  // namespace
