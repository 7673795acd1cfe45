// Models in the report store of this process, on real files.

#include "platform/files/files.h"
#include "store_fixture.h"

namespace {

using support::ReadFile;
using support::ReadModel;
using support::Text;
using support::WriteFile;

using Names = std::vector<std::string>;

class ModelsTest : public StoreTest {
 protected:
  Names Files() const { return support::Names(Folder()); }

  std::string Initialise(const std::u16string& module = u"CT", const std::u16string& component = u"01") {
    return kestor::ResultCode(store_->Inicializa(Text(module), Text(component)));
  }

  std::string Write(const std::u16string& name, const std::string& content, unsigned char flags = 0) {
    return kestor::ResultCode(support::WriteModel(*store_, name, content, 1, flags));
  }

  std::string Read(const std::u16string& name) { return ReadModel(*store_, name); }

  ComPtr<IZNPL_Relatorio2> store_ = NewStore();
};

const std::string kDone = "0x00000000";
const std::string kNoModel = "0x00040001";
const std::string kExists = "0x00040004";
const std::string kReadingFailed = "0x80040002";
const std::string kWritingFailed = "0x80040005";
const std::string kNotInitialised = "0x80040007";
const std::string kNoFolder = "0x80043F59";

TEST_F(ModelsTest, InitialisedStateFollowsTheRegistryAndTheCodes) {
  EXPECT_EQ(Read(u"Vendas"), kNotInitialised);
  EXPECT_EQ(Write(u"Vendas", "x"), kNotInitialised);
  for (const LONG size : {-1, 1})
    EXPECT_EQ(kestor::ResultCode(store_->Grava(Text(u"Vendas"), 1, 0, size, nullptr)), kNotInitialised);
  EXPECT_EQ(Initialise(u"ZZ"), kNoFolder);
  EXPECT_EQ(Initialise(u"CT", u""), kDone);
  EXPECT_EQ(Read(u"Vendas"), kNotInitialised);
  EXPECT_EQ(Initialise(u"ct"), kDone);
  EXPECT_EQ(Write(u"Vendas", "x"), kDone);
  EXPECT_EQ(Files(), Names{"ct01Vendas.RXL"}) << "codes keep their letter case";

  // What fails later leaves an initialised store as it was, but for the folder just read.
  EXPECT_EQ(Initialise(u"FS", u"02"), kNoFolder) << "the application has no folder";
  EXPECT_EQ(Read(u"Vendas"), "x");
  support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "");
  EXPECT_EQ(Initialise(), kDone);
  EXPECT_EQ(Read(u"Vendas"), kNotInitialised) << "an empty folder text is no folder";
}

TEST_F(ModelsTest, LayoutAndNames) {
  Initialise();
  const struct {
    std::u16string name;
    std::string file;
    std::string content;
    USHORT version;
  } cases[] = {
      {u"Vendas", "CT01Vendas.RXL", std::string(70000, '\xFF') + '\0', 0x0102},
      {u"Vazio", "CT01Vazio.RXL", "", 65535},
      {u"Açúcar e Café", "CT01Açúcar e Café.RXL", "x", 1},
      {u"", "CT01.RXL", "without a name", 0},
      {std::u16string(u"Nul\0cut", 7), "CT01Nul.RXL", "up to the NUL", 1},
      {u"Vendas", "CT01Vendas.RXL", "no tail of the old content", 1},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(support::WriteModel(*store_, c.name, c.content, c.version), S_OK) << c.file;
    const std::string head = {static_cast<char>(c.version & 0xFF), static_cast<char>(c.version >> 8)};
    EXPECT_EQ(ReadFile(Folder() / c.file), head + c.content) << c.file;
    USHORT version = 0;
    EXPECT_EQ(ReadModel(*store_, c.name, &version), c.content) << c.file;
    EXPECT_EQ(version, c.version) << c.file;
  }

  // Reading looks at the end of the name, writing at any dot in it.
  EXPECT_EQ(Read(u"vendas.rxl"), cases[5].content);
  EXPECT_EQ(Write(u"Vendas.v2", "second"), kDone);
  EXPECT_EQ(ReadFile(Folder() / "CT01Vendas.v2"), std::string("\1\0second", 8));
  EXPECT_EQ(Read(u"Vendas.v2"), kNoModel);
}

TEST_F(ModelsTest, FlagsAndFailures) {
  Initialise();
  EXPECT_EQ(Write(u"A", "old", KESTOR_NaoSobreescrever), kDone);
  EXPECT_EQ(Write(u"a", "new", KESTOR_NaoSobreescrever), kExists);
  EXPECT_EQ(Write(u"a", "new", KESTOR_NaoSobreescrever | KESTOR_VerificarModelosDemoExcluidos), kExists);
  EXPECT_EQ(Write(u"B", "new", KESTOR_VerificarModelosDemoExcluidos), kDone);
  EXPECT_EQ(store_->Grava(Text(u"A"), 1, 0, -1, nullptr), E_INVALIDARG);
  EXPECT_EQ(store_->Grava(Text(u"A"), 1, 0, 1, nullptr), E_POINTER);
  unsigned char byte = 0;  // more of them than Le would give back are not even looked at
  EXPECT_EQ(store_->Grava(Text(u"A"), 1, 0, 134'213'633, &byte), E_INVALIDARG);
  EXPECT_EQ(Read(u"A"), "old");

  WriteFile(Folder() / "CT01One.RXL", "1");
  WriteFile(Folder() / "CT01None.RXL", "");
  EXPECT_EQ(Read(u"One"), kReadingFailed);
  EXPECT_EQ(Read(u"None"), kReadingFailed);
  std::filesystem::resize_file(Folder() / "CT01One.RXL", std::uintmax_t{1} << 27);
  EXPECT_EQ(Read(u"One"), kReadingFailed) << "more than a call carries";
  std::filesystem::create_directory(Folder() / "CT01Folder.RXL");
  EXPECT_EQ(Read(u"Folder"), kNoModel);
  EXPECT_EQ(Write(u"Folder", "x"), kWritingFailed);

  // A model that another station holds: not there for a reader, not writable, and not existing for the check.
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01A.RXL", CFile::modeRead | CFile::shareExclusive));
  EXPECT_EQ(Read(u"A"), kNoModel);
  EXPECT_EQ(Write(u"A", "new", KESTOR_NaoSobreescrever), kWritingFailed);
  EXPECT_EQ(Write(u"a", "new"), kWritingFailed);
  held.Close();
  EXPECT_EQ(ReadFile(Folder() / "CT01A.RXL"), std::string("\1\0old", 5)) << "and in its letter case";
}

TEST_F(ModelsTest, LetterCaseOfTheModelOnDisk) {
  Initialise();
  const std::filesystem::path upper = Folder() / "CT01VENDAS.RXL";
  WriteFile(upper, std::string("\1\0old", 5));
  EXPECT_EQ(Read(u"vendas"), "old");
  EXPECT_EQ(Files(), Names{"CT01VENDAS.RXL"});
  EXPECT_EQ(Write(u"Vendas", "new"), kDone);
  EXPECT_EQ(Files(), Names{"CT01Vendas.RXL"});
  EXPECT_EQ(Read(u"vendas"), "new");

  // What is not written keeps its name.
  std::filesystem::rename(Folder() / "CT01Vendas.RXL", upper);
  std::filesystem::permissions(upper, std::filesystem::perms(0444));
  EXPECT_EQ(Write(u"Vendas", "newer"), kWritingFailed);
  EXPECT_EQ(Files(), Names{"CT01VENDAS.RXL"});
}

TEST_F(ModelsTest, NamesNeverLeadElsewhere) {
  const std::filesystem::path outside = home_.Data().parent_path() / "outside.RXL";
  WriteFile(outside, std::string("\1\0secret", 8));
  Initialise();
  for (const char16_t* name :
       {u"a*", u"a?", u"a:b", u"a|b", u"<a>", u"a\"b", u"a\tb", u"日本", u"x\\y", u"..\\..\\..\\..\\..\\outside",
        u"\\..\\..\\..\\..\\..\\outside", u"/../../../../outside"}) {
    EXPECT_EQ(Write(name, "x"), kWritingFailed);
    EXPECT_EQ(Read(name), kNoModel);
  }
  EXPECT_EQ(Write(std::u16string(300, u'n'), "x"), kWritingFailed);
  EXPECT_EQ(ReadFile(outside), std::string("\1\0secret", 8));
  EXPECT_EQ(Files(), Names{});
}

TEST_F(ModelsTest, ObjectsCountAndGo) {
  void* none = &counter_;
  EXPECT_EQ(CreateStore(counter_, IID_IZNPL_Rel, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(store_->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(store_->AddRef(), 2U);
  EXPECT_EQ(store_->Release(), 1U);
  EXPECT_EQ(counter_.count, 1);
  store_.Reset();
  EXPECT_EQ(counter_.count, 0);
}

}  // namespace
