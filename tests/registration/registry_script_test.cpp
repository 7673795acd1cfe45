// Registry scripts in both directions, and what is no script.
#include "registry_script.h"

#include <gtest/gtest.h>
#include <sstream>

#include "registry_keys.h"
#include "support/support.h"

namespace {

using kestor::RegistryScript;

const RegistryScript::Replacements kReplacements = {{"NOME", "it's 100% {plain}"}, {"VAZIO", ""}};

HRESULT Parse(std::string_view text, RegistryScript* script) {
  return RegistryScript::Parse(text, kReplacements, script);
}

TEST(RegistryScript, AddsAndRemoves) {
  const support::TempHome home;
  RegistryScript script;
  ASSERT_EQ(Parse("hkcr { noremove Kept = s 'stays' { Own = s 'a''b' { val Name = s '%NOME%' Below } 'With %NOME%' } "
                  "ForceRemove 'Fresh'{'Listed'}}",
                  &script),
            S_OK);
  EXPECT_EQ(script.Remove(), S_OK);
  EXPECT_TRUE(ClassEntries().empty());

  for (const char* path : {"Kept\\Foreign", "Kept\\Own\\Foreign", "Fresh\\Foreign"})
    CreateClassKey(path);
  const RegistryEntries added = {DefaultValue("Kept", "stays"),
                                 "Kept\\Foreign",
                                 DefaultValue("Kept\\Own", "a'b"),
                                 Value("Kept\\Own", R"("Name")", "it's 100% {plain}"),
                                 "Kept\\Own\\Below",
                                 "Kept\\Own\\Foreign",
                                 "Kept\\With it's 100% {plain}",
                                 "Fresh\\Listed"};
  for (int times = 0; times < 2; ++times) {
    ASSERT_EQ(script.Add(), S_OK);
    EXPECT_EQ(ClassEntries(), added);
  }
  ASSERT_EQ(script.Remove(), S_OK);
  EXPECT_EQ(ClassEntries(), (RegistryEntries{DefaultValue("Kept", "stays"), "Kept\\Foreign"}));

  support::WriteFile(home.Home() / "registry.reg", "no registry\n");
  EXPECT_EQ(script.Add(), HRESULT_FROM_WIN32(ERROR_BADDB));
  EXPECT_EQ(script.Remove(), HRESULT_FROM_WIN32(ERROR_BADDB));
}

TEST(RegistryScript, RefusesWhatIsNone) {
  std::string deep = "HKCR";
  for (int i = 0; i < 100000; ++i)
    deep += " { A";
  std::istringstream scripts(R"(
HKCR
HKXX { A }
HKCR { A
HKCR { A } }
HKCR { A { val B } }
HKCR { A = d '1' }
HKCR { NoRemove }
HKCR { 'A }
HKCR { '%VAZIO%' }
HKCR { '%OUTRO%' }
)" + deep);
  for (std::string text; std::getline(scripts, text);) {
    RegistryScript script;
    EXPECT_EQ(Parse(text, &script), E_INVALIDARG) << text.substr(0, 80);
  }
}

}  // namespace
