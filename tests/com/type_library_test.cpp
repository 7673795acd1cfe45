// Type libraries: where they are found, what does not pass for one, and their keys in the registry.
#include <sys/stat.h>

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "platform/com/com.h"
#include "platform/text/text.h"
#include "registration/registry_keys.h"
#include "support/support.h"

namespace {

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
const GUID kLibrary = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};

HRESULT Load(const std::filesystem::path& file, ITypeLib** library) {
  return LoadTypeLib(text::Utf8ToUtf16(file.string()).c_str(), library);
}

HRESULT Load(const std::filesystem::path& file) {
  ComPtr<ITypeLib> library;
  return Load(file, library.Out());
}

// A file of other bytes too, among them a mark that nothing follows.
std::string Executable(const std::string& description) {
  const std::string mark = "@(#) type library\n";
  const std::string others("\0ELF\xFF\0", 6);
  return others + mark + others + mark + description + others;
}

class TypeLibrary : public testing::Test {
 protected:
  HRESULT LoadBytes(std::string_view bytes) {
    support::WriteFile(file_, bytes);
    return Load(file_);
  }

  support::TempHome home_;
  const std::filesystem::path file_ = home_.Data() / "relatório.tlb";
};

TEST_F(TypeLibrary, TellsWhatItsHeadSays) {
  for (const std::string& bytes : {kDescription, Executable(kDescription)}) {
    support::WriteFile(file_, bytes);
    ComPtr<ITypeLib> library;
    ASSERT_EQ(Load(file_, library.Out()), S_OK);
    EXPECT_EQ(library->Text(), kDescription);
    BSTR name = nullptr;
    ASSERT_EQ(library->GetDocumentation(&name, nullptr), S_OK);
    EXPECT_EQ(std::u16string(name), u"Teste");
    SysFreeString(name);
  }
}

TEST_F(TypeLibrary, NothingElsePassesForOne) {
  std::vector<std::string> others = {std::string(4096, '['),
                                     std::string(100000, '{'),
                                     "[]library X{}",
                                     "x" + kDescription,
                                     std::string(1, '\0') + kDescription,
                                     kDescription + kDescription,
                                     Executable(""),
                                     Executable("x" + kDescription)};
  using Change = std::pair<std::string, const char*>;
  for (const auto& [from, to] : {Change{"uuid", "uid"},
                                 {"aabb", "aab"},
                                 {"version", "revision"},
                                 {"2.17", "2.70000"},
                                 {"2.17", "2.17x"},
                                 {"1046", "\"1046"},
                                 {"library", "lib"},
                                 {"Teste", ""},
                                 {": é\"", ": é"},
                                 {"*/", ""},
                                 {"\"}\"", "\"}"},
                                 {"é", "\xE9"}})
    others.push_back(std::string(kDescription).replace(kDescription.find(from), from.size(), to));
  for (std::size_t size = 0; size <= kDescription.rfind('}'); ++size)
    others.push_back(kDescription.substr(0, size));
  for (const std::string& bytes : others)
    EXPECT_EQ(LoadBytes(bytes), TYPE_E_CANTLOADLIBRARY) << bytes.size() << ": " << bytes.substr(0, 400);

  ASSERT_EQ(mkfifo((home_.Data() / "pipe").c_str(), 0600), 0);
  for (const char* file : {".", "missing", "pipe", "/dev/zero"})
    EXPECT_EQ(Load(home_.Data() / file), TYPE_E_CANTLOADLIBRARY) << file;
}

// ---- Registry ------------------------------------------------------------------------------------------------------

TEST_F(TypeLibrary, KeysGoWithTheLastThatIsRegistered) {
  support::WriteFile(file_, kDescription);
  ComPtr<ITypeLib> library;
  ASSERT_EQ(Load(file_, library.Out()), S_OK);
  ASSERT_EQ(RegisterTypeLib(library.Get(), u"/opt/kestor/kestor", u"/opt/kestor"), S_OK);
  const std::string key = "TypeLib\\" + GuidText(kLibrary);
  CreateClassKey(key + "\\2.11\\409\\win32");
  CreateClassKey(key + "\\3.0\\0\\win32");
  RegistryEntries expected = ClassEntries();

  EXPECT_EQ(UnRegisterTypeLib(kLibrary, 2, 17, 1046, SYS_WIN32), S_OK);
  EXPECT_EQ(expected.erase(DefaultValue(key + "\\2.11\\416\\win32", "/opt/kestor/kestor")), 1u);
  EXPECT_EQ(ClassEntries(), expected);
  EXPECT_EQ(UnRegisterTypeLib(kLibrary, 2, 17, 1046, SYS_WIN32), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(UnRegisterTypeLib(kLibrary, 2, 17, 1033, SYS_WIN32), S_OK);
  std::erase_if(expected, [](const auto& entry) { return entry.find("\\2.11") != std::string::npos; });
  EXPECT_EQ(ClassEntries(), expected);
  EXPECT_EQ(UnRegisterTypeLib(kLibrary, 3, 0, 0, SYS_WIN32), S_OK);
  EXPECT_EQ(ClassEntries(), RegistryEntries{"TypeLib"});

  EXPECT_EQ(RegisterTypeLib(library.Get(), u"/opt/отчёт", u"/opt"), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(ClassEntries(), RegistryEntries{"TypeLib"});
  support::WriteFile(home_.Home() / "registry.reg", "REGEDIT4\n\n[HKEY_CLASSES_ROOT\n");
  EXPECT_EQ(RegisterTypeLib(library.Get(), u"/opt/kestor", u"/opt"), TYPE_E_REGISTRYACCESS);
}

}  // namespace
