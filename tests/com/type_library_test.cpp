// Type libraries: where they are found, what does not pass for one, and their keys in the registry.
#include <elf.h>
#include <sys/stat.h>

#include <cstring>
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

// An executable of nothing but one section of content and the section of the names.
std::string Executable(std::string_view sectionName, std::string_view content) {
  const std::string names = std::string(1, '\0') + std::string(sectionName) + '\0';
  Elf64_Ehdr header{};
  std::memcpy(header.e_ident, ELFMAG, SELFMAG);
  header.e_ident[EI_CLASS] = ELFCLASS64;
  header.e_ident[EI_DATA] = ELFDATA2LSB;
  header.e_ident[EI_VERSION] = EV_CURRENT;
  header.e_type = ET_DYN;
  header.e_shentsize = sizeof(Elf64_Shdr);
  header.e_shnum = 3;
  header.e_shstrndx = 2;
  header.e_shoff = sizeof header + content.size() + names.size();
  Elf64_Shdr sections[3]{};
  sections[1].sh_name = 1;
  sections[1].sh_type = SHT_PROGBITS;
  sections[1].sh_offset = sizeof header;
  sections[1].sh_size = content.size();
  sections[2].sh_type = SHT_STRTAB;
  sections[2].sh_offset = sizeof header + content.size();
  sections[2].sh_size = names.size();
  std::string file(reinterpret_cast<const char*>(&header), sizeof header);
  file.append(content).append(names).append(reinterpret_cast<const char*>(sections), sizeof sections);
  return file;
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
  for (const std::string& bytes : {kDescription, Executable(".typelib", kDescription)}) {
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
  const std::string executable = Executable(".typelib", kDescription);
  std::vector<std::string> others = {std::string(4096, '['),
                                     std::string(100000, '{'),
                                     "[]library X{}",
                                     "x" + kDescription,
                                     kDescription + kDescription,
                                     Executable(".typelib", ""),
                                     Executable(".typelib", "MZ"),
                                     Executable(".typeli", kDescription),
                                     Executable(".typelibs", kDescription)};
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
  for (std::size_t size = 0; size < executable.size(); ++size)
    others.push_back(executable.substr(0, size));
  for (const std::string& bytes : others)
    EXPECT_EQ(LoadBytes(bytes), TYPE_E_CANTLOADLIBRARY) << bytes.size() << ": " << bytes.substr(0, 400);

  ASSERT_EQ(mkfifo((home_.Data() / "pipe").c_str(), 0600), 0);
  for (const char* file : {".", "missing", "pipe", "/dev/zero"})
    EXPECT_EQ(Load(home_.Data() / file), TYPE_E_CANTLOADLIBRARY) << file;
}

TEST_F(TypeLibrary, NoDamageDoesHarm) {
  const std::string whole = Executable(".typelib", kDescription);
  const std::size_t table = whole.size() - 3 * sizeof(Elf64_Shdr);
  for (std::size_t at = 0; at < whole.size(); at += at == sizeof(Elf64_Ehdr) ? table - at : 1) {
    for (const char extreme : {'\x7F', '\x80', '\xFF'}) {
      const HRESULT result = LoadBytes(std::string(whole).replace(at, 1, 1, extreme));
      EXPECT_TRUE(result == S_OK || result == TYPE_E_CANTLOADLIBRARY) << at;
    }
  }
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
