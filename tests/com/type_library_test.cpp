// Type libraries: where they are found, what does not pass for one, and their keys in the registry.
#include <elf.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "platform/com/com.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
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

// An executable of nothing but one section of content.
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

class TypeLibraryFile : public testing::Test {
 protected:
  HRESULT LoadBytes(std::string_view bytes) {
    support::WriteFile(file_, bytes);
    return Load(file_);
  }

  support::TempFolder folder_;
  std::filesystem::path file_ = folder_.Path() / "relatório.tlb";
};

TEST_F(TypeLibraryFile, TellsWhatItsHeadSays) {
  for (const std::string& bytes : {kDescription, Executable(".typelib", kDescription)}) {
    support::WriteFile(file_, bytes);
    ComPtr<ITypeLib> library;
    ASSERT_EQ(Load(file_, library.Out()), S_OK);
    EXPECT_EQ(library->Text(), kDescription);

    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);
    EXPECT_EQ(attributes->guid, kLibrary);
    EXPECT_EQ(attributes->lcid, 1046u);
    EXPECT_EQ(attributes->syskind, SYS_WIN32);
    EXPECT_EQ(attributes->wMajorVerNum, 2);
    EXPECT_EQ(attributes->wMinorVerNum, 17);
    library->ReleaseTLibAttr(attributes);

    BSTR name = nullptr;
    BSTR help = nullptr;
    ASSERT_EQ(library->GetDocumentation(&name, &help), S_OK);
    EXPECT_EQ(std::u16string(name), u"Teste");
    EXPECT_EQ(std::u16string(help), u"Biblioteca \"de\" teste: é");
    SysFreeString(name);
    SysFreeString(help);
  }
}

TEST_F(TypeLibraryFile, TravelsInsideAnExecutable) {
  ComPtr<ITypeLib> library;
  ASSERT_EQ(Load(GetModulePath(), library.Out()), S_OK);
  EXPECT_NE(library->Text().find("library KESTORLib"), std::string::npos);
}

TEST_F(TypeLibraryFile, NothingElsePassesForOne) {
  auto with = [](const std::string& from, const std::string& to) {
    std::string changed = kDescription;
    return changed.replace(changed.find(from), from.size(), to);
  };
  for (const std::string& bytes : {std::string(),
                                   std::string("MZ"),
                                   std::string(4096, '['),
                                   std::string(100000, '{'),
                                   std::string("[]library X{}"),
                                   with("uuid", "uid"),
                                   with("aabb", "aab"),
                                   with("version", "revision"),
                                   with("2.17", "2.70000"),
                                   with("2.17", "2.x"),
                                   with("1046", "\"1046"),
                                   with("library", "module"),
                                   with("Teste", ""),
                                   with(": é\"", ": é"),
                                   with("*/", ""),
                                   with("\"}\"", "\"}"),
                                   kDescription + "}",
                                   kDescription + kDescription,
                                   "x" + kDescription,
                                   with("é", "\xE9"),
                                   with("é", std::string(1, '\0')),
                                   Executable(".typelib", ""),
                                   Executable(".typelibs", kDescription),
                                   Executable(".typeli", kDescription),
                                   Executable(".typelib", "MZ")}) {
    EXPECT_EQ(LoadBytes(bytes), TYPE_E_CANTLOADLIBRARY) << bytes.substr(0, 400);
  }

  EXPECT_EQ(Load(folder_.Path()), TYPE_E_CANTLOADLIBRARY);
  EXPECT_EQ(Load(folder_.Path() / "missing"), TYPE_E_CANTLOADLIBRARY);
  EXPECT_EQ(Load("/dev/zero"), TYPE_E_CANTLOADLIBRARY);
  const std::filesystem::path pipe = folder_.Path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(Load(pipe), TYPE_E_CANTLOADLIBRARY);
}

TEST_F(TypeLibraryFile, WhatIsCutOffIsNone) {
  const std::size_t end = kDescription.rfind('}');
  for (std::size_t size = 0; size <= end; ++size) {
    EXPECT_EQ(LoadBytes(std::string_view(kDescription).substr(0, size)), TYPE_E_CANTLOADLIBRARY) << size;
  }
  const std::string executable = Executable(".typelib", kDescription);
  for (std::size_t size = 0; size < executable.size(); ++size) {
    EXPECT_EQ(LoadBytes(std::string_view(executable).substr(0, size)), TYPE_E_CANTLOADLIBRARY) << size;
  }
}

TEST_F(TypeLibraryFile, NoDamageDoesHarm) {
  std::mt19937 random(1);
  auto number = [&random](std::size_t below) {
    return std::uniform_int_distribution<std::size_t>(0, below - 1)(random);
  };
  const std::string whole = Executable(".typelib", kDescription);
  const std::string extremes("\x00\x01\x7F\x80\xFF", 5);
  for (int round = 0; round < 1000; ++round) {
    std::string damaged = whole;
    for (std::size_t changes = 1 + number(8); changes > 0; --changes) {
      // Most of the weight on the headers, with the values that overflow.
      const bool inTable = number(2) == 0;
      const std::size_t table = damaged.size() - 3 * sizeof(Elf64_Shdr);
      const std::size_t place = inTable ? table + number(3 * sizeof(Elf64_Shdr)) : number(sizeof(Elf64_Ehdr));
      damaged[place] = extremes[number(extremes.size())];
    }
    const HRESULT result = LoadBytes(damaged);
    EXPECT_TRUE(result == S_OK || result == TYPE_E_CANTLOADLIBRARY) << result;
  }
  for (int round = 0; round < 100; ++round) {
    std::string noise = whole.substr(0, EI_NIDENT);
    while (noise.size() < 2048)
      noise += static_cast<char>(number(256));
    EXPECT_EQ(LoadBytes(noise), TYPE_E_CANTLOADLIBRARY);
  }
}

// ---- Registry ------------------------------------------------------------------------------------------------------

class TypeLibraryKeys : public testing::Test {
 protected:
  void SetUp() override {
    support::WriteFile(file_, kDescription);
    ASSERT_EQ(Load(file_, library_.Out()), S_OK);
  }

  HRESULT Register(const OLECHAR* path = u"/opt/kestor/relatório") {
    return RegisterTypeLib(library_.Get(), path, u"/opt/kestor");
  }

  static std::string Text(const std::string& path) {
    HKEY key = nullptr;
    if (RegOpenKeyA(HKEY_CLASSES_ROOT, path.c_str(), &key) != ERROR_SUCCESS) return "(no key)";
    char text[200] = "(no value)";
    DWORD size = sizeof text;
    RegQueryValueExA(key, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
    RegCloseKey(key);
    return text;
  }

  static void Create(const std::string& path) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), &key), LONG{ERROR_SUCCESS});
    RegCloseKey(key);
  }

  support::TempHome home_;
  std::filesystem::path file_ = home_.Data() / "teste.tlb";
  ComPtr<ITypeLib> library_;
  const std::string key_ = "TypeLib\\" + GuidText(kLibrary);
};

TEST_F(TypeLibraryKeys, AreThoseOfThePlatform) {
  ASSERT_EQ(Register(), S_OK);
  EXPECT_EQ(Text(key_ + "\\2.11"), text::FromUtf8("Biblioteca \"de\" teste: é"));
  EXPECT_EQ(Text(key_ + "\\2.11\\FLAGS"), "0");
  EXPECT_EQ(Text(key_ + "\\2.11\\416\\win32"), text::FromUtf8("/opt/kestor/relatório"));
  EXPECT_EQ(Text(key_ + "\\2.11\\HELPDIR"), "/opt/kestor");
}

TEST_F(TypeLibraryKeys, GoWithTheLastThatIsRegistered) {
  ASSERT_EQ(Register(), S_OK);
  Create(key_ + "\\2.11\\409\\win32");
  Create(key_ + "\\3.0\\0\\win32");
  auto remove = [](WORD major, WORD minor, LCID lcid) {
    return UnRegisterTypeLib(kLibrary, major, minor, lcid, SYS_WIN32);
  };
  EXPECT_EQ(remove(2, 17, 1046), S_OK);
  EXPECT_EQ(Text(key_ + "\\2.11\\416"), "(no key)");
  EXPECT_EQ(Text(key_ + "\\2.11\\FLAGS"), "0");
  EXPECT_EQ(remove(2, 17, 1046), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(remove(2, 17, 1033), S_OK);
  EXPECT_EQ(Text(key_ + "\\2.11"), "(no key)");
  EXPECT_EQ(Text(key_ + "\\3.0\\0\\win32"), "(no value)");
  EXPECT_EQ(remove(3, 0, 0), S_OK);
  EXPECT_EQ(Text(key_), "(no key)");
  EXPECT_EQ(Text("TypeLib"), "(no value)");
}

TEST_F(TypeLibraryKeys, FailuresAreTold) {
  EXPECT_EQ(Register(u"/opt/отчёт"), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(Text("TypeLib"), "(no key)");
  support::WriteFile(home_.Home() / "registry.reg", "REGEDIT4\n\n[HKEY_CLASSES_ROOT\n");
  EXPECT_EQ(Register(), TYPE_E_REGISTRYACCESS);
}

}  // namespace
