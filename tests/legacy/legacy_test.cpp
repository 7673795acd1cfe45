// The first generation's store in this process, on real files: state between calls, files that others have open, and
// its lifetime. The transcripts of kestorctl show the files themselves.
#include <cerrno>
#include <gmock/gmock.h>

#include "legacy_fixture.h"
#include "platform/files/files.h"
#include "support/system_calls.h"

namespace fs = std::filesystem;
using kestor::ResultCode;
using support::Text;
using support::WriteFile;
using testing::Each;
using Names = std::vector<std::string>;

namespace {

constexpr char kOk[] = "0x00000000";

class FirstGeneration : public LegacyTest {
 protected:
  const Rel rel_ = ReadyRel();
};

TEST_F(FirstGeneration, WhatIsPendingIsHandedOverOnce) {
  WriteFile(Catalogue(), "1\r\n2\r\n");
  ASSERT_EQ(Write(*rel_, u"M", "abc"), kOk);
  LONG count = 7;
  unsigned char content[5] = {};
  tagREG_CAMPOS_RELATORIO fields[4] = {};
  const auto readModel = [&] { return rel_->BuscaTamanhoRelatorio(Text(u"M"), &count); };
  const auto readFields = [&] { return rel_->BuscaQdeCamposArquivo(&count); };
  const auto takeModel = [&](LONG most) { return ResultCode(rel_->BuscaRelatorio(most, content)); };
  const auto takeFields = [&](LONG most) { return ResultCode(rel_->BuscaCampos(most, fields)); };
  const auto expectOnce = [&](const auto& read, const auto& take) {
    EXPECT_EQ(take(0), "0x80040003");
    ASSERT_EQ(read(), S_OK);
    EXPECT_EQ(count, 3);
    EXPECT_THAT((Names{take(-1), take(4)}), Each(ResultCode(E_INVALIDARG)));
    EXPECT_EQ(take(2), kOk);
    EXPECT_EQ(take(2), "0x80040003");
    ASSERT_EQ(read(), S_OK);
    ASSERT_EQ(Initialise(*rel_, u"CT", u"01"), kOk);
    EXPECT_EQ(take(0), "0x80040003") << "after a new Inicializa";
  };
  expectOnce(readModel, takeModel);
  expectOnce(readFields, takeFields);
  EXPECT_STREQ(reinterpret_cast<const char*>(content), "ab");
  EXPECT_EQ(std::int32_t{fields[1].iCod}, 2);
  EXPECT_EQ(std::int32_t{fields[2].iCod}, 0);

  // A model or catalogue that cannot be opened leaves the pending content; a catalogue that can be opened discards a
  // model's.
  ASSERT_EQ(readModel(), S_OK);
  EXPECT_EQ(ResultCode(rel_->BuscaTamanhoRelatorio(Text(u"None"), &count)), "0x00040001");
  EXPECT_EQ(count, 0);
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Contabil.v2\\XCT01.REL", CFile::modeRead | CFile::shareDenyNone));
  REG_CAMPOS_DISPONIVEIS2* none = nullptr;
  EXPECT_EQ(ResultCode(ReadyStore()->GetCamposDisponiveis(&none)), "0x80040001");
  EXPECT_EQ(ResultCode(readFields()), "0x80040001");
  EXPECT_EQ(takeModel(3), kOk);
  held.Close();
  ASSERT_EQ(readModel(), S_OK);
  ASSERT_EQ(readFields(), S_OK);
  EXPECT_EQ(takeModel(3), "0x80040003");
  EXPECT_EQ(ResultCode(rel_->AtualizaRelatorio(Text(u"M"), 0, 0, 0, nullptr)), "0x0004000B");
  EXPECT_EQ(takeFields(0), "0x80040003") << "an update reads the catalogue, too";
}

TEST_F(FirstGeneration, WhatNoCallCarriesIsNeitherReadNorWritten) {
  ASSERT_EQ(Write(*rel_, u"M", "old"), kOk);
  unsigned char byte = 0;  // a count beyond what a call can return: the bytes are never read
  EXPECT_EQ(rel_->GravaRelatorio(Text(u"M"), 1, 134'213'633, &byte), E_INVALIDARG);
  EXPECT_EQ(Read(*rel_, u"M"), "old");
  tagREG_RELEXPORTACAO withoutItems = {};
  withoutItems.iQtdeItens = 1;
  EXPECT_EQ(rel_->GravaDadosExportacaoDoRelatorio(Text(u"M"), withoutItems), E_INVALIDARG);
  LONG size = 0;
  LONG catalogue = 0;
  WriteFile(Catalogue(), std::string(1 << 20, '\n'));
  EXPECT_EQ(rel_->BuscaQdeCamposArquivo(&catalogue), E_OUTOFMEMORY) << "too many fields";
  for (const auto& [bytes, told] :
       {std::pair<std::uintmax_t, LONG>{134'213'633, 134'213'633}, {3U << 30, 0x7FFFFFFF}}) {
    SCOPED_TRACE(bytes);
    fs::resize_file(Reports() / "CT01M.REL", bytes);
    fs::resize_file(Catalogue(), bytes);
    EXPECT_EQ(ResultCode(rel_->BuscaQdeCamposArquivo(&catalogue)), "0x80040002");
    EXPECT_EQ(ResultCode(rel_->AtualizaRelatorio(Text(u"M"), 0, 0, 0, nullptr)), "0x80040002");
    EXPECT_EQ(ResultCode(rel_->BuscaTamanhoRelatorio(Text(u"M"), &size)), "0x80040002");
    EXPECT_EQ(size, told);
    EXPECT_EQ(catalogue, told);
    EXPECT_EQ(rel_->BuscaRelatorio(1, nullptr), E_INVALIDARG) << "nothing of it is there";
  }
}

TEST_F(FirstGeneration, WhatNeedsInitialisation) {
  const Rel rel = NewRel();
  LONG count = 0;
  const auto answers = [&] {
    return Names{Listed(*rel), Read(*rel, u"A"), ResultCode(rel->ExcluiRelatorio(Text(u"None")))};
  };
  EXPECT_THAT(answers(), Each("0x80040007"));
  EXPECT_EQ(ResultCode(rel->BuscaQdeCamposArquivo(&count)), "0x80040007");
  EXPECT_EQ(Initialise(*rel, u"ZZ", u"01"), "0x80043F59");
  support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\");
  EXPECT_EQ(Initialise(*rel, u"ct", u"01234"), kOk);
  EXPECT_EQ(rel->GravaRelatorioSemCallBack(Text(u"A.x"), 0, 0, nullptr), S_OK);
  EXPECT_EQ(Write(*rel, u"B", "b"), kOk);
  EXPECT_EQ(support::Names(Reports()), (Names{"ct012A.REL", "ct012B.REL"}));
  EXPECT_EQ(answers(), (Names{"A|B", "", kOk}));

  // A failure clears the folders and leaves the codes.
  EXPECT_EQ(Initialise(*rel, u"FS", u"01"), "0x80043F59");
  EXPECT_THAT(answers(), Each("0x80040007"));
  support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "");
  EXPECT_EQ(Initialise(*rel, u"CT", u"01"), kOk);
  EXPECT_EQ(answers(), (Names{"0x00040008", "0x00040001", kOk})) << "an empty folder text is the current folder";
}

TEST_F(FirstGeneration, ModelsInOtherHands) {
  ASSERT_EQ(Write(*rel_, u"A", "old"), kOk);
  {
    CFile held;
    ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01A.REL", CFile::modeRead | CFile::shareDenyNone));
    EXPECT_EQ(Write(*rel_, u"A", "new"), "0x80040005");
    EXPECT_EQ(Write(*rel_, u"A", "new", false), "0x80040006");
    EXPECT_EQ(Read(*rel_, u"A"), "0x00040001");
  }
  EXPECT_EQ(Write(*rel_, u"A", "new", false), "0x00040004");
  EXPECT_EQ(Read(*rel_, u"A"), "old");

  // Another station takes the name at the last moment, and its model is not visible yet.
  const support::SystemCalls system("rename2 hidden CT01New.REL", EEXIST);
  EXPECT_EQ(Write(*rel_, u"New", "new", false), "0x80040006");
  EXPECT_EQ(support::Names(Reports()), Names{"CT01A.REL"});
}

TEST_F(FirstGeneration, PartsOfOuterObjects) {
  class Outer final : public com::UncountedObject<IUnknown, IID_IUnknown> {
  } outer;
  ComPtr<IUnknown> part;
  ComPtr<IUnknown> identity;
  Rel rel;
  ASSERT_EQ(kestor::CRepositorioRel::Cria<kestor::CRepositorioRel>(&outer, IID_IUnknown, part.OutVoid(), counter_),
            S_OK);
  ASSERT_EQ(part->QueryInterface(IID_IZNPL_Rel, rel.OutVoid()), S_OK);
  ASSERT_EQ(rel->QueryInterface(IID_IUnknown, identity.OutVoid()), S_OK);
  EXPECT_EQ(identity.Get(), &outer);
  EXPECT_EQ(rel->AddRef() + rel->Release(), 2U) << "the outer object's answers";
  EXPECT_EQ(rel_->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(rel_->QueryInterface(IID_IZNPL_Relatorio2, identity.OutVoid()), E_NOINTERFACE);
  EXPECT_EQ(counter_.count, 2);
  rel.Reset();
  part.Reset();
  EXPECT_EQ(counter_.count, 1) << "a part goes with its own last reference";
}

}  // namespace
