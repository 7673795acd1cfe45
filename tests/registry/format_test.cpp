#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "fixture.h"

namespace {

using namespace std::string_literals;

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

const std::string kNormalForm = R"(
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
  const std::vector<std::string> kForms = {
      "REGEDIT4\n" + kContent,
      WithCrLf("REGEDIT4\n" + kContent),
      kVersion5 + kContent,
      "\xEF\xBB\xBF" + WithCrLf(kVersion5 + kContent),
      Wide(WithCrLf(kVersion5 + kContent)),
      Wide(kVersion5 + kContent),
      kVersion5 + kContent.substr(0, kContent.size() - 1),  // the last line without its end
  };
  for (std::size_t form = 0; form < kForms.size(); ++form) {
    SCOPED_TRACE(form);
    support::WriteFile(File(), kForms[form]);
    EXPECT_EQ(Exported(), kVersion5 + kNormalForm);
    const OpenedKey key("SOFTWARE\\Norvela");
    ASSERT_EQ(SetText(key.Get(), "twice", "third"), kSuccess);
    ASSERT_EQ(SetText(key.Get(), "twice", "second"), kSuccess);
    EXPECT_EQ(support::ReadFile(File()), kVersion5 + kNormalForm);
  }
}

TEST_F(RegistryFormat, TextsFollowTheEncodingOfTheirFile) {
  const OpenedKey key("", true);
  // In the older form the bytes of texts are the code page's, in the newer one UTF-16.
  support::WriteFile(File(),
                     "REGEDIT4\n[HKLM]\n\"t\"=\"\x80\xE9\x81\"\n\"e\"=hex(2):80,e9,00\n\"m\"=hex(7):61,00,e9,00,00\n");
  EXPECT_EQ(Get(key.Get(), "t"), "1:\x80\xE9\x81\0"s);
  EXPECT_EQ(Get(key.Get(), "e"), "2:\x80\xE9\0"s);
  EXPECT_EQ(Get(key.Get(), "m"), "7:a\0\xE9\0\0"s);
  EXPECT_EQ(Exported(), kVersion5 +
                            "\n[HKEY_LOCAL_MACHINE]\n\"t\"=\"€é\xC2\x81\"\n\"e\"=hex(2):ac,20,e9,00,00,00\n"
                            "\"m\"=hex(7):61,00,00,00,e9,00,00,00,00,00\n");

  // What the code page lacks shows as '?', and is kept.
  support::WriteFile(File(), kVersion5 + "[HKLM\\Жук]\n\"Имя\"=\"Ж😀\"\n\"x\"=\"Ж\"\n");
  std::string name;
  EXPECT_EQ(RegEnumKeyA(key.Get(), 0, &name), kSuccess);
  EXPECT_EQ(name, "???");
  EXPECT_EQ(OpenedKey("???").Result(), kNotFound);
  ASSERT_EQ(SetText(key.Get(), "new", "\xE9"), kSuccess);
  EXPECT_EQ(Exported(), kVersion5 +
                            "\n[HKEY_LOCAL_MACHINE]\n\"new\"=\"é\"\n\n[HKEY_LOCAL_MACHINE\\Жук]\n"
                            "\"Имя\"=\"Ж😀\"\n\"x\"=\"Ж\"\n");
}

TEST_F(RegistryFormat, TextsMayHoldLineEndsAndUnusualBytes) {
  const OpenedKey key("", true);
  support::WriteFile(
      File(),
      kVersion5 +
          "[HKLM]\n\"raw\"=\"a\r\nb\n; c\"\n\"next\"=\"x\"\n\"odd\"=hex(1):61,00,62\n\"half\"=hex(1):00,d8,00,00\n");
  EXPECT_EQ(Get(key.Get(), "raw"), "1:a\r\nb\n; c\0"s);
  EXPECT_EQ(Get(key.Get(), "next"), "1:x\0"s);
  EXPECT_EQ(Get(key.Get(), "odd"), "1:a\0"s);
  EXPECT_EQ(Get(key.Get(), "half"), "1:?\0"s);
  // They go out as bytes, so that no line end of a text can be taken for one of the file.
  EXPECT_EQ(Exported(),
            kVersion5 +
                "\n[HKEY_LOCAL_MACHINE]\n\"raw\"=hex(1):61,00,0d,00,0a,00,62,00,0a,00,3b,00,20,00,63,00,00,00\n"
                "\"next\"=\"x\"\n\"odd\"=hex(1):61,00,62\n\"half\"=hex(1):00,d8,00,00\n");
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

  std::filesystem::remove(File());
  ASSERT_EQ(Exported(), kVersion5);
  support::WriteFile(home_.Data() / "old.reg", desktop);
  registry::Import(home_.Data() / "old.reg");
  EXPECT_EQ(Exported(), before);
  std::string part;
  EXPECT_TRUE(registry::Export("hklm\\software\\NORVELA\\A]B\\", &part));
  EXPECT_EQ(part, kVersion5 + "\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela\\a]b]\n");
  EXPECT_FALSE(registry::Export("HKLM\\None", &part));
  EXPECT_FALSE(registry::Export("SOFTWARE", &part));
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
int LineOfError(const std::filesystem::path& file, Read read) {
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
  std::vector<std::string> damages = {"",
                                      "\n",
                                      "REGEDIT\n",
                                      "REGEDIT5\n",
                                      "\xEF\xBB\xBFREGEDIT4\n",
                                      "\xFE\xFF\0W"s,
                                      "\xFF\xFE",
                                      "REGEDIT4\n;\0\n"s,
                                      Wide(key) + "a",
                                      Wide(key) + "\x41\xD8\x41\0"s,
                                      Wide(key + ";\0"s),
                                      key + ";\n; \xE9 b\n",
                                      kVersion5 + "\n\"early\"=\"1\"\n",
                                      kVersion5 + "[HKCU\\x]\n",
                                      key + "\"x\"=\"a\n\nb\" c",
                                      key + "\"x\"=hex:1,\\\n\n",
                                      key + "\"x\"=hex:1,\\\n\"y\"=\"\"",
                                      key + "\r;\n"};
  std::istringstream lines(
      R"(x|name="x"|[HKLM\a|[HKLM\a] b|[HKLM\a\\b]|[HKLM\\a]|[]|[SOFTWARE\x]|"x"|"x"=|"x"=1|"x"="a" b|"x"="a\b"|"x"="a)"
      R"(|"x"=dword:|"x"=dword:123456789|"x"=dword:12g|"x"=hex:1g|"x"=hex:123|"x"=hex:1,,2|"x"=hex:1,|"x"=hex:1\)"
      R"(|"x"=hex:1,\ 2|"x"=hex(:1|"x"=hex(1:1|"x"=hex(123456789):1|"x"=hex 1)");
  for (std::string line; std::getline(lines, line, '|');)
    damages.push_back(key + line + "\n");
  std::string deep = "[HKLM";
  for (int i = 0; i < 513; ++i)
    deep += "\\a";
  damages.push_back(key + deep + "]\n");
  damages.push_back(key + "[HKLM\\" + std::string(256, 'x') + "]\n");
  return damages;
}

TEST_F(RegistryFormat, ADamagedRegistryIsToldWithItsLineAndNeverOverwritten) {
  std::vector<std::string> damages = EveryDamage();
  damages.push_back(kVersion5 + "[HKLM]\n\"x\"=-\n");
  damages.push_back(kVersion5 + "[-HKLM\\x]\n");
  const std::filesystem::path good = home_.Data() / "good.reg";
  support::WriteFile(good, kVersion5 + "[HKLM\\Good]\n");
  const OpenedKey key("K", true);
  for (const std::string& damage : damages) {
    SCOPED_TRACE(testing::PrintToString(damage));
    support::WriteFile(File(), damage);
    const int line = LastLine(damage);
    EXPECT_EQ(LineOfError(File(), [] { registry::Check(); }), line);
    EXPECT_EQ(LineOfError(File(), [&] { registry::Import(good); }), line);
    EXPECT_EQ(OpenedKey("K").Result(), kDamaged);
    EXPECT_EQ(OpenedKey("New", true).Result(), kDamaged);
    EXPECT_EQ(SetText(key.Get(), "v", "x"), kDamaged);
    EXPECT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "K"), kDamaged);
    EXPECT_EQ(support::ReadFile(File()), damage);
  }
}

TEST_F(RegistryFormat, AnImportWithAnErrorChangesNothing) {
  const OpenedKey key("K", true);
  const std::string before = support::ReadFile(File());
  std::vector<std::string> damages = {"[-HKLM\\K]\n\"x\"=\"1\"\n", "[-HKLM]\n", "[HKEY_ELSEWHERE]\n",
                                      "[HKCU\\x]\n\"x\"=hex:1,\n"};
  const std::filesystem::path file = home_.Data() / "bad.reg";
  const std::string start = kVersion5 + "[HKLM\\New]\n";
  for (const std::string& damage : damages) {
    const std::string bytes = start + damage;
    support::WriteFile(file, bytes);
    EXPECT_EQ(LineOfError(file, [&] { registry::Import(file); }), LastLine(bytes)) << bytes;
  }
  EXPECT_THROW(registry::Import(home_.Data() / "none.reg"), std::filesystem::filesystem_error);
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
  const OpenedKey key("K");
  EXPECT_EQ(SetText(key.Get(), "more", "x"), LONG{ERROR_DISK_FULL});
  support::WriteFile(File(), bytes + "\"more\"=\"\"\n");
  EXPECT_EQ(LineOfError(File(), [] { registry::Check(); }), 2 + 250'000 + 1);
}

}  // namespace
