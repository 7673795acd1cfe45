// Registry scripts in both directions, and what is no script.
#include "registry_script.h"

#include <gtest/gtest.h>

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
  EXPECT_TRUE(ClassKeys().empty());

  HKEY foreign = nullptr;
  for (const char* path : {"Kept\\Foreign", "Kept\\Own\\Foreign", "Fresh\\Foreign"}) {
    ASSERT_EQ(RegCreateKeyA(HKEY_CLASSES_ROOT, path, &foreign), LONG{ERROR_SUCCESS});
    RegCloseKey(foreign);
  }
  const RegistryKeys added = {{"Kept", {{"", "stays"}}},
                              {"Kept\\Foreign", {}},
                              {"Kept\\Own", {{"", "a'b"}, {"Name", "it's 100% {plain}"}}},
                              {"Kept\\Own\\Below", {}},
                              {"Kept\\Own\\Foreign", {}},
                              {"Kept\\With it's 100% {plain}", {}},
                              {"Fresh", {}},
                              {"Fresh\\Listed", {}}};
  for (int times = 0; times < 2; ++times) {
    ASSERT_EQ(script.Add(), S_OK);
    EXPECT_EQ(ClassKeys(), added);
  }
  ASSERT_EQ(script.Remove(), S_OK);
  EXPECT_EQ(ClassKeys(), (RegistryKeys{{"Kept", {{"", "stays"}}}, {"Kept\\Foreign", {}}}));
}

TEST(RegistryScript, TellsWhatTheRegistrySays) {
  const support::TempHome home;
  support::WriteFile(home.Home() / "registry.reg", "no registry\n");
  RegistryScript script;
  ASSERT_EQ(Parse("HKCR { ForceRemove A NoRemove B { C } }", &script), S_OK);
  EXPECT_EQ(script.Add(), HRESULT_FROM_WIN32(ERROR_BADDB));
  EXPECT_EQ(script.Remove(), HRESULT_FROM_WIN32(ERROR_BADDB));
}

TEST(RegistryScript, RefusesWhatIsNone) {
  std::string deep = "HKCR {";
  for (int i = 0; i < 100000; ++i)
    deep += " A {";
  for (const std::string& text : {std::string(),
                                  std::string("HKCR"),
                                  std::string("HKCR A"),
                                  std::string("HKXX { A }"),
                                  std::string("'HKCR' { A }"),
                                  std::string("HKCR\\A { B }"),
                                  std::string("HKCR { A"),
                                  std::string("HKCR { A } }"),
                                  std::string("HKCR { A { B }"),
                                  std::string("HKCR { val A = s 'x' }"),
                                  std::string("HKCR { A { val = s 'x' } }"),
                                  std::string("HKCR { A { val B } }"),
                                  std::string("HKCR { A = 'x' }"),
                                  std::string("HKCR { A = s x }"),
                                  std::string("HKCR { A = d '1' }"),
                                  std::string("HKCR { NoRemove }"),
                                  std::string("HKCR { 'A }"),
                                  std::string("HKCR { '' }"),
                                  std::string("HKCR { '%VAZIO%' }"),
                                  std::string("HKCR { '%OUTRO%' }"),
                                  std::string("HKCR { '50%' }"),
                                  std::string("HKCR { = s 'x' }"),
                                  deep}) {
    RegistryScript script;
    EXPECT_EQ(Parse(text, &script), E_INVALIDARG) << text.substr(0, 80);
  }
}

}  // namespace
