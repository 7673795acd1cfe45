// What the server and type libraries leave in the registry when they register, and when they unregister.
#include "server/registration.h"

#include <sys/stat.h>

#include <gtest/gtest.h>
#include <regex>
#include <set>

#include "contract/interfaces.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "support/support.h"

namespace {

using kestor::DesregistraServidor;
using kestor::RegistraServidor;

using namespace std::string_literals;

namespace fs = std::filesystem;

// The keys below HKEY_CLASSES_ROOT, each with its values on lines of their own, but for those that keys below imply.
using Entries = std::set<std::string>;

Entries ClassEntries() {
  std::string text;
  registry::Export("HKEY_CLASSES_ROOT", &text);
  text = std::regex_replace(text, std::regex("\\]\n"), "\n");
  text.pop_back();
  const std::regex gap("\n+\\[HKEY_CLASSES_ROOT\\\\");
  return {std::next(std::sregex_token_iterator(text.begin(), text.end(), gap, -1)), {}};
}

void CreateClassKey(const std::string& path) {
  registry::OwnedKey key;
  EXPECT_EQ(RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), key.Out()), 0) << path;
}

std::string Value(const std::string& key, const std::string& text, const char* name = "@") {
  return key + '\n' + name + "=\"" + text + '"';
}

// What a registration enters but for the type library.
Entries ServerEntries(const std::string& executable) {
  const std::string application = GuidText(APPID_KESTOR);
  Entries entries = {Value("AppID\\" + application, "KESTOR"), Value("AppID\\KESTOR.EXE", application, "\"AppID\"")};
  for (const auto& [name, identity] : {std::pair("ZNPL_Rel"s, GuidText(CLSID_ZNPL_Rel)),
                                       {"ZNPL_Relatorio2"s, GuidText(CLSID_ZNPL_Relatorio2)},
                                       {"ZNPL_RelConverte"s, GuidText(CLSID_ZNPL_RelConverte)}}) {
    const std::string program = "KESTOR." + name;
    const std::string key = "CLSID\\" + identity;
    entries.merge(Entries{
        Value(program + ".1", name + " Class"), Value(program + ".1\\CLSID", identity), Value(program, name + " Class"),
        Value(program + "\\CLSID", identity), Value(program + "\\CurVer", program + ".1"),
        Value(Value(key, name + " Class"), application, "\"AppID\""), Value(key + "\\ProgID", program + ".1"),
        Value(key + "\\VersionIndependentProgID", program), Value(key + "\\LocalServer32", executable),
        Value(key + "\\TypeLib", GuidText(LIBID_KESTORLib))});
  }
  return entries;
}

Entries AllEntries(const std::string& executable, const std::string& library) {
  const std::string version = "TypeLib\\" + GuidText(LIBID_KESTORLib) + "\\1.0";
  Entries entries = ServerEntries(executable);
  entries.merge(Entries{Value(version, "KESTOR 1.0 Type Library"), Value(version + "\\FLAGS", "0"),
                        Value(version + "\\409\\win32", library),
                        Value(version + "\\HELPDIR", fs::path(library).parent_path())});
  return entries;
}

HRESULT Load(const fs::path& file, ComPtr<ITypeLib>* library) {
  return LoadTypeLib(text::Utf8ToUtf16(file.string()).c_str(), library->Out());
}

class Registration : public testing::Test {
 protected:
  // An executable without a type library of its own, and, if wanted, the file beside it.
  std::string BareExecutable(const std::string& name, const std::string& libraryName) {
    ComPtr<ITypeLib> library;
    EXPECT_EQ(Load(platform::ExecutablePath(), &library), S_OK);
    support::WriteFile(folder_ / name, "#!/bin/sh\n");
    if (!libraryName.empty()) support::WriteFile(folder_ / libraryName, library->Text());
    return folder_ / name;
  }

  void DamageRegistry() const { support::WriteFile(home_.Home() / "registry.reg", "no registry\n"); }

  support::TempHome home_;
  const fs::path folder_ = home_.Data();
};

TEST_F(Registration, WritesExactlyItsKeysAndRemovesWhatNothingElseShares) {
  const std::string executable = platform::ExecutablePath();
  EXPECT_EQ(DesregistraServidor(executable), S_OK);
  EXPECT_EQ(ClassEntries(), Entries());
  EXPECT_EQ(RegistraServidor(executable), S_OK);
  EXPECT_EQ(ClassEntries(), AllEntries(executable, executable));

  const Entries foreign = {"AppID\\Foreign", "CLSID\\Foreign", "KESTOR.Other", "TypeLib\\Foreign"};
  for (const std::string& path : foreign)
    CreateClassKey(path);
  CreateClassKey("CLSID\\" + GuidText(CLSID_ZNPL_Relatorio2) + "\\InprocServer32\\Below");
  EXPECT_EQ(RegistraServidor(executable), S_OK);
  Entries expected = AllEntries(executable, executable);
  expected.insert(foreign.begin(), foreign.end());
  EXPECT_EQ(ClassEntries(), expected) << "a class's own key is made anew";
  EXPECT_EQ(DesregistraServidor(executable), S_OK);
  EXPECT_EQ(ClassEntries(), foreign);
}

TEST_F(Registration, TakesTheTypeLibraryFromBesideTheExecutable) {
  fs::create_directory(folder_ / "kestor-1.0");
  for (const auto& [name, library] : {std::pair("kestor.exe", "kestor.tlb"),
                                      {"kestor-1.0/servidor", "kestor-1.0/servidor.tlb"},
                                      {"it's 100% é.exe", "it's 100% é.tlb"}}) {
    const std::string executable = BareExecutable(name, library);
    EXPECT_EQ(RegistraServidor(executable), S_OK) << name;
    EXPECT_EQ(ClassEntries(), AllEntries(executable, folder_ / library));
    EXPECT_EQ(DesregistraServidor(executable), S_OK);
    EXPECT_EQ(ClassEntries(), (Entries{"AppID", "CLSID", "TypeLib"}));
  }
}

TEST_F(Registration, TheFirstFailureCountsAndNothingIsTakenBack) {
  const std::string bare = BareExecutable("kestor", "");
  EXPECT_EQ(RegistraServidor(bare), TYPE_E_CANTLOADLIBRARY);
  EXPECT_EQ(ClassEntries(), ServerEntries(bare));
  // A path that the registry cannot hold must not be entered under another name.
  EXPECT_EQ(RegistraServidor(BareExecutable("отчёт", "отчёт.tlb")), HRESULT_FROM_WIN32(ERROR_INVALID_NAME));
  EXPECT_EQ(ClassEntries(), ServerEntries(bare));
  DamageRegistry();
  EXPECT_EQ(RegistraServidor(platform::ExecutablePath()), HRESULT_FROM_WIN32(ERROR_BADDB));
  EXPECT_EQ(DesregistraServidor(platform::ExecutablePath()), S_OK);
}

// ---- Type libraries ------------------------------------------------------------------------------------------------

const std::string kDescription = R"(// a comment
[
  uuid(00112233-4455-6677-8899-aabbccddeeff), /* another ] */
  version(2.17), lcid(1046), hidden,
  helpstring("Biblioteca \"de\" teste: é")
]
library Teste
{
  interface I { HRESULT M([in] long n); };  // }
  const char* aspas = "}";
};
)";

// A file of other bytes too, among them a mark that nothing follows.
std::string Executable(const std::string& description) {
  const std::string mark = "@(#) type library\n";
  const std::string others("\0ELF\xFF\0", 6);
  return others + mark + others + mark + description + others;
}

class TypeLibrary : public Registration {
 protected:
  HRESULT LoadBytes(std::string_view bytes) {
    support::WriteFile(file_, bytes);
    return Load(file_, &library_);
  }

  const fs::path file_ = folder_ / "relatório.tlb";
  ComPtr<ITypeLib> library_;
};

TEST_F(TypeLibrary, IsKnownByItsHeadAndItsEndAndNothingElsePassesForOne) {
  for (const std::string& bytes : {kDescription, Executable(kDescription)}) {
    ASSERT_EQ(LoadBytes(bytes), S_OK);
    EXPECT_EQ(library_->Text(), kDescription);
    BSTR name = nullptr;
    EXPECT_EQ(library_->GetDocumentation(&name, nullptr), S_OK);
    EXPECT_EQ(std::u16string(OwnedBstr(name).get()), u"Teste");
  }

  std::vector<std::string> others = {"[]library X{}",     "x" + kDescription,
                                     '\0' + kDescription, kDescription + kDescription,
                                     Executable(""),      Executable("x" + kDescription)};
  for (const auto& [from, to] :
       {std::pair("uuid"s, "uid"), std::pair("aabb"s, "aab"), std::pair("version"s, "revision"),
        std::pair("2.17"s, "2.70000"), std::pair("2.17"s, "2.17x"), std::pair("1046"s, "\"1046"),
        std::pair("library"s, "lib"), std::pair("Teste"s, ""), std::pair(": é\""s, ": é"), std::pair("*/"s, ""),
        std::pair("\"}\""s, "\"}"), std::pair("é"s, "\xE9")})
    others.push_back(std::string(kDescription).replace(kDescription.find(from), from.size(), to));
  for (std::size_t size = 0; size <= kDescription.rfind('}'); ++size)
    others.push_back(kDescription.substr(0, size));
  for (const std::string& bytes : others)
    EXPECT_EQ(LoadBytes(bytes), TYPE_E_CANTLOADLIBRARY) << bytes.size() << ": " << bytes.substr(0, 400);

  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  for (const char* file : {".", "missing", "pipe", "/dev/zero"})
    EXPECT_EQ(Load(folder_ / file, &library_), TYPE_E_CANTLOADLIBRARY) << file;
}

TEST_F(TypeLibrary, KeysGoWithTheLastThatIsRegistered) {
  const GUID guid = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
  const std::string key = "TypeLib\\" + GuidText(guid);
  ASSERT_EQ(LoadBytes(kDescription), S_OK);
  EXPECT_EQ(RegisterTypeLib(library_.Get(), u"/opt/kestor/kestor", u"/opt/kestor"), S_OK);
  CreateClassKey(key + "\\2.11\\409\\win32");
  CreateClassKey(key + "\\3.0\\0\\win32");
  Entries expected = ClassEntries();
  EXPECT_EQ(UnRegisterTypeLib(guid, 2, 17, 1046, SYS_WIN32), S_OK);
  EXPECT_EQ(expected.erase(Value(key + "\\2.11\\416\\win32", "/opt/kestor/kestor")), 1u);
  EXPECT_EQ(ClassEntries(), expected);
  EXPECT_EQ(UnRegisterTypeLib(guid, 2, 17, 1046, SYS_WIN32), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(UnRegisterTypeLib(guid, 2, 17, 1033, SYS_WIN32), S_OK);
  EXPECT_EQ(ClassEntries(), Entries{key + "\\3.0\\0\\win32"});
  EXPECT_EQ(UnRegisterTypeLib(guid, 3, 0, 0, SYS_WIN32), S_OK);
  EXPECT_EQ(ClassEntries(), Entries{"TypeLib"});

  EXPECT_EQ(RegisterTypeLib(library_.Get(), u"/opt/отчёт", u"/opt"), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(ClassEntries(), Entries{"TypeLib"});
  DamageRegistry();
  EXPECT_EQ(RegisterTypeLib(library_.Get(), u"/opt/kestor", u"/opt"), TYPE_E_REGISTRYACCESS);
}

}  // namespace
