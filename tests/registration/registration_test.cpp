// What registration leaves in the registry, and what unregistration leaves of it.
#include "server/registration.h"

#include <filesystem>
#include <gtest/gtest.h>

#include "contract/interfaces.h"
#include "platform/text/text.h"
#include "registry_keys.h"
#include "support/support.h"

namespace {

using kestor::DesregistraServidor;
using kestor::RegistraServidor;

// What a registration writes but for the type library.
RegistryEntries ServerEntries(const std::string& executable) {
  const std::string application = GuidText(APPID_KESTOR);
  RegistryEntries entries = {DefaultValue("AppID\\" + application, "KESTOR"),
                             Value("AppID\\KESTOR.EXE", R"("AppID")", application)};
  for (const auto& [name, identity] : std::map<std::string, std::string>{
           {"ZNPL_Rel", GuidText(CLSID_ZNPL_Rel)},
           {"ZNPL_Relatorio2", GuidText(CLSID_ZNPL_Relatorio2)},
           {"ZNPL_RelConverte", GuidText(CLSID_ZNPL_RelConverte)},
       }) {
    const std::string program = "KESTOR." + name;
    const std::string key = "CLSID\\" + identity;
    entries.merge(RegistryEntries{
        DefaultValue(program + ".1", name + " Class"), DefaultValue(program + ".1\\CLSID", identity),
        DefaultValue(program, name + " Class"), DefaultValue(program + "\\CLSID", identity),
        DefaultValue(program + "\\CurVer", program + ".1"), DefaultValue(key, name + " Class"),
        Value(key, R"("AppID")", application), DefaultValue(key + "\\ProgID", program + ".1"),
        DefaultValue(key + "\\VersionIndependentProgID", program), DefaultValue(key + "\\LocalServer32", executable),
        DefaultValue(key + "\\TypeLib", GuidText(LIBID_KESTORLib))});
  }
  return entries;
}

RegistryEntries AllEntries(const std::string& executable, const std::string& library) {
  const std::string version = "TypeLib\\" + GuidText(LIBID_KESTORLib) + "\\1.0";
  RegistryEntries entries = ServerEntries(executable);
  entries.merge(RegistryEntries{DefaultValue(version, "KESTOR 1.0 Type Library"),
                                DefaultValue(version + "\\FLAGS", "0"), DefaultValue(version + "\\409\\win32", library),
                                DefaultValue(version + "\\HELPDIR", std::filesystem::path(library).parent_path())});
  return entries;
}

class Registration : public testing::Test {
 protected:
  // An executable without a type library of its own, and, if wanted, the file beside it.
  std::string BareExecutable(const std::string& name, const std::string& libraryName) {
    ComPtr<ITypeLib> library;
    EXPECT_EQ(LoadTypeLib(text::Utf8ToUtf16(platform::ExecutablePath()).c_str(), library.Out()), S_OK);
    support::WriteFile(folder_ / name, "#!/bin/sh\n");
    if (!libraryName.empty()) support::WriteFile(folder_ / libraryName, library->Text());
    return folder_ / name;
  }

  support::TempHome home_;
  const std::filesystem::path folder_ = home_.Data();
};

TEST_F(Registration, WritesExactlyItsKeysAndRemovesWhatNobodyShares) {
  const std::string executable = platform::ExecutablePath();
  EXPECT_EQ(DesregistraServidor(executable), S_OK);
  EXPECT_TRUE(ClassEntries().empty());
  ASSERT_EQ(RegistraServidor(executable), S_OK);
  EXPECT_EQ(ClassEntries(), AllEntries(executable, executable));

  const RegistryEntries foreign = {"AppID\\Foreign", "CLSID\\Foreign", "KESTOR.Other", "TypeLib\\Foreign"};
  for (const std::string& path : foreign)
    CreateClassKey(path);
  CreateClassKey("CLSID\\" + GuidText(CLSID_ZNPL_Relatorio2) + "\\InprocServer32\\Below");
  ASSERT_EQ(RegistraServidor(executable), S_OK);
  RegistryEntries expected = AllEntries(executable, executable);
  expected.insert(foreign.begin(), foreign.end());
  EXPECT_EQ(ClassEntries(), expected) << "a class's own key is made anew";
  EXPECT_EQ(DesregistraServidor(executable), S_OK);
  EXPECT_EQ(ClassEntries(), foreign);
}

TEST_F(Registration, TakesTheTypeLibraryFromBesideTheExecutable) {
  std::filesystem::create_directory(folder_ / "kestor-1.0");
  for (const auto& [name, library] :
       std::map<std::string, std::string>{{"kestor.exe", "kestor.tlb"},
                                          {"kestor-1.0/servidor", "kestor-1.0/servidor.tlb"},
                                          {"it's 100% é.exe", "it's 100% é.tlb"}}) {
    const std::string executable = BareExecutable(name, library);
    ASSERT_EQ(RegistraServidor(executable), S_OK) << name;
    EXPECT_EQ(ClassEntries(), AllEntries(executable, folder_ / library));
    EXPECT_EQ(DesregistraServidor(executable), S_OK);
    EXPECT_EQ(ClassEntries(), (RegistryEntries{"AppID", "CLSID", "TypeLib"}));
  }
}

TEST_F(Registration, TheFirstFailureCountsAndNothingIsTakenBack) {
  const std::string bare = BareExecutable("kestor", "");
  EXPECT_EQ(RegistraServidor(bare), TYPE_E_CANTLOADLIBRARY);
  EXPECT_EQ(ClassEntries(), ServerEntries(bare));

  // A path that the registry cannot hold must not be entered under another name.
  const std::string unnameable = BareExecutable("отчёт", "отчёт.tlb");
  EXPECT_EQ(RegistraServidor(unnameable), HRESULT_FROM_WIN32(ERROR_INVALID_NAME));
  EXPECT_EQ(ClassEntries(), ServerEntries(bare));

  support::WriteFile(home_.Home() / "registry.reg", "no registry\n");
  EXPECT_EQ(RegistraServidor(platform::ExecutablePath()), HRESULT_FROM_WIN32(ERROR_BADDB));
  EXPECT_EQ(DesregistraServidor(platform::ExecutablePath()), S_OK);
  EXPECT_EQ(support::ReadFile(home_.Home() / "registry.reg"), "no registry\n");
}

}  // namespace
