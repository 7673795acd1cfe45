// Type libraries: which files hold one, and what cannot be entered in the registry. The transcript registration.txt of
// kestorctl shows what the server enters.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/com/com.h"
#include "platform/text/text.h"
#include "support/support.h"

namespace {

using namespace std::string_literals;

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

// Returns a file that has other bytes too, among them a mark with nothing after it.
std::string Executable(const std::string& description) {
  const std::string mark = "@(#) type library\n";
  const std::string others("\0ELF\xFF\0", 6);
  return others + mark + others + mark + description + others;
}

class TypeLibrary : public testing::Test {
 protected:
  HRESULT Load(const std::filesystem::path& file) {
    return LoadTypeLib(text::Utf8ToUtf16(file.string()).c_str(), library_.Out());
  }
  HRESULT LoadBytes(std::string_view bytes) {
    support::WriteFile(file_, bytes);
    return Load(file_);
  }

  support::TempHome home_;
  const std::filesystem::path file_ = home_.Data() / "relatório.tlb";
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

  ASSERT_EQ(mkfifo((home_.Data() / "pipe").c_str(), 0600), 0);
  for (const char* file : {".", "missing", "pipe", "/dev/zero"})
    EXPECT_EQ(Load(home_.Data() / file), TYPE_E_CANTLOADLIBRARY) << file;
}

TEST_F(TypeLibrary, TellsWhatCannotBeEnteredOrIsNotThere) {
  const GUID guid = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
  ASSERT_EQ(LoadBytes(kDescription), S_OK);
  EXPECT_EQ(RegisterTypeLib(library_.Get(), u"/opt/отчёт", u"/opt"), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(RegisterTypeLib(library_.Get(), u"/opt/kestor", u"/opt/отчёт"), TYPE_E_REGISTRYACCESS);
  EXPECT_EQ(UnRegisterTypeLib(guid, 2, 17, 1046, SYS_WIN32), TYPE_E_REGISTRYACCESS) << "nothing was entered";
  EXPECT_EQ(RegisterTypeLib(library_.Get(), u"/opt/kestor", u"/opt"), S_OK);
  EXPECT_EQ(UnRegisterTypeLib(guid, 2, 17, 1046, SYS_WIN32), S_OK);
  support::WriteFile(home_.Home() / "registry.reg", "no registry\n");
  EXPECT_EQ(RegisterTypeLib(library_.Get(), u"/opt/kestor", u"/opt"), TYPE_E_REGISTRYACCESS);
}

}  // namespace
