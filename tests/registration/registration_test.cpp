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

void Create(const std::string& path) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), &key), LONG{ERROR_SUCCESS});
  RegCloseKey(key);
}

void AddClass(const std::string& name, const CLSID& clsid, const std::string& executable, RegistryKeys* keys) {
  const std::string description = name + " Class";
  const std::string program = "KESTOR." + name;
  const std::string version = program + ".1";
  const std::string identity = GuidText(clsid);
  const std::string key = "CLSID\\" + identity;
  keys->merge(RegistryKeys{{version, {{"", description}}},
                           {version + "\\CLSID", {{"", identity}}},
                           {program, {{"", description}}},
                           {program + "\\CLSID", {{"", identity}}},
                           {program + "\\CurVer", {{"", version}}},
                           {key, {{"", description}, {"AppID", GuidText(APPID_KESTOR)}}},
                           {key + "\\ProgID", {{"", version}}},
                           {key + "\\VersionIndependentProgID", {{"", program}}},
                           {key + "\\LocalServer32", {{"", executable}}},
                           {key + "\\TypeLib", {{"", GuidText(LIBID_KESTORLib)}}}});
}

// Everything that a registration writes but for the type library.
RegistryKeys ServerKeys(const std::string& executable) {
  const std::string application = GuidText(APPID_KESTOR);
  RegistryKeys keys = {{"AppID", {}},
                       {"AppID\\" + application, {{"", "KESTOR"}}},
                       {"AppID\\KESTOR.EXE", {{"AppID", application}}},
                       {"CLSID", {}}};
  AddClass("ZNPL_Rel", CLSID_ZNPL_Rel, executable, &keys);
  AddClass("ZNPL_Relatorio2", CLSID_ZNPL_Relatorio2, executable, &keys);
  AddClass("ZNPL_RelConverte", CLSID_ZNPL_RelConverte, executable, &keys);
  return keys;
}

RegistryKeys AllKeys(const std::string& executable, const std::string& library) {
  const std::string identity = "TypeLib\\" + GuidText(LIBID_KESTORLib);
  RegistryKeys keys = ServerKeys(executable);
  keys.merge(RegistryKeys{{"TypeLib", {}},
                          {identity, {}},
                          {identity + "\\1.0", {{"", "KESTOR 1.0 Type Library"}}},
                          {identity + "\\1.0\\FLAGS", {{"", "0"}}},
                          {identity + "\\1.0\\409", {}},
                          {identity + "\\1.0\\409\\win32", {{"", library}}},
                          {identity + "\\1.0\\HELPDIR", {{"", std::filesystem::path(library).parent_path()}}}});
  return keys;
}

class Registration : public testing::Test {
 protected:
  // An executable without a type library of its own, and, if wanted, the file beside it.
  std::string BareExecutable(const std::string& name, const std::string& libraryName) {
    ComPtr<ITypeLib> library;
    EXPECT_EQ(LoadTypeLib(text::Utf8ToUtf16(GetModulePath()).c_str(), library.Out()), S_OK);
    support::WriteFile(folder_ / name, "#!/bin/sh\n");
    if (!libraryName.empty()) support::WriteFile(folder_ / libraryName, library->Text());
    return folder_ / name;
  }

  support::TempHome home_;
  const std::filesystem::path folder_ = home_.Data();
};

TEST_F(Registration, WritesExactlyItsKeysHoweverOften) {
  const std::string executable = GetModulePath();
  ASSERT_EQ(RegistraServidor(executable), S_OK);
  EXPECT_EQ(ClassKeys(), AllKeys(executable, executable));

  Create("CLSID\\" + GuidText(CLSID_ZNPL_Relatorio2) + "\\InprocServer32\\Below");
  Create("KESTOR.ZNPL_Rel\\Foreign");
  Create("CLSID\\Foreign");
  ASSERT_EQ(RegistraServidor(executable), S_OK);
  RegistryKeys expected = AllKeys(executable, executable);
  expected.merge(RegistryKeys{{"KESTOR.ZNPL_Rel\\Foreign", {}}, {"CLSID\\Foreign", {}}});
  EXPECT_EQ(ClassKeys(), expected);
}

TEST_F(Registration, IsUndoneButForWhatOthersShare) {
  const std::string executable = GetModulePath();
  EXPECT_EQ(DesregistraServidor(executable), S_OK);
  EXPECT_TRUE(ClassKeys().empty());

  ASSERT_EQ(RegistraServidor(executable), S_OK);
  for (const char* foreign : {"AppID\\Foreign", "CLSID\\Foreign", "KESTOR.Other", "TypeLib\\Foreign"})
    Create(foreign);
  EXPECT_EQ(DesregistraServidor(executable), S_OK);
  EXPECT_EQ(ClassKeys(), (RegistryKeys{{"AppID", {}},
                                       {"AppID\\Foreign", {}},
                                       {"CLSID", {}},
                                       {"CLSID\\Foreign", {}},
                                       {"KESTOR.Other", {}},
                                       {"TypeLib", {}},
                                       {"TypeLib\\Foreign", {}}}));
}

TEST_F(Registration, TakesTheTypeLibraryFromBesideTheExecutable) {
  std::filesystem::create_directory(folder_ / "kestor-1.0");
  for (const auto& [name, library] :
       std::map<std::string, std::string>{{"kestor.exe", "kestor.tlb"},
                                          {"kestor-1.0/servidor", "kestor-1.0/servidor.tlb"},
                                          {"it's 100%.exe", "it's 100%.tlb"}}) {
    const std::string executable = BareExecutable(name, library);
    ASSERT_EQ(RegistraServidor(executable), S_OK) << name;
    EXPECT_EQ(ClassKeys(), AllKeys(executable, folder_ / library));
    EXPECT_EQ(DesregistraServidor(executable), S_OK);
    EXPECT_EQ(ClassKeys(), (RegistryKeys{{"AppID", {}}, {"CLSID", {}}, {"TypeLib", {}}}));
  }
}

TEST_F(Registration, TheFirstFailureCountsAndNothingIsTakenBack) {
  const std::string bare = BareExecutable("kestor", "");
  EXPECT_EQ(RegistraServidor(bare), TYPE_E_CANTLOADLIBRARY);
  EXPECT_EQ(ClassKeys(), ServerKeys(bare));
  EXPECT_EQ(DesregistraServidor(bare), S_OK);
  EXPECT_EQ(ClassKeys(), (RegistryKeys{{"AppID", {}}, {"CLSID", {}}}));

  // A path that the registry cannot hold must not be entered under another name.
  const std::string unnameable = BareExecutable("отчёт", "отчёт.tlb");
  EXPECT_EQ(RegistraServidor(unnameable), HRESULT_FROM_WIN32(ERROR_INVALID_NAME));
  EXPECT_EQ(ClassKeys().size(), 4u);

  support::WriteFile(home_.Home() / "registry.reg", "no registry\n");
  EXPECT_EQ(RegistraServidor(GetModulePath()), HRESULT_FROM_WIN32(ERROR_BADDB));
  EXPECT_EQ(DesregistraServidor(GetModulePath()), S_OK);
  EXPECT_EQ(support::ReadFile(home_.Home() / "registry.reg"), "no registry\n");
}

}  // namespace
