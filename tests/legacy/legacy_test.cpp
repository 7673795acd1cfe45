// The first generation's store in this process, on real files, and the field catalogue, which both generations read.
#include <algorithm>
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
using Column = REG_ATUALIZACAO_RELATORIO;
using Field = tagREG_CAMPOS_RELATORIO;
using Names = std::vector<std::string>;

namespace {

constexpr char kOk[] = "0x00000000";

template <typename Value>
std::string Bytes(const std::vector<Value>& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(Value)};
}

class FirstGeneration : public LegacyTest {
 protected:
  const Rel rel_ = ReadyRel();
};

TEST_F(FirstGeneration, CatalogueLines) {
  const std::pair<std::string, std::vector<std::int32_t>> cases[] = {
      {"", {0}},
      {"1\r\n2", {1, 0}},  // the last byte stands where the CR would be
      {"1\r\n23\n", {1, 2, 0}},
      {"\n\n1\r\n", {0, 0, 1, 0}},
      {std::string("1\r\n2\0\r\n3\r\n", 10), {1}},
      {std::string("\0001\r\n", 4), {}},
      {" +7x\r\n -8 \r\n+-9\r\n", {7, -8, 0, 0}},
      {std::string(1 << 20, '1') + "\r\n5\r\n", {111111, 5, 0}},
      {std::string(65535, '\n'), std::vector<std::int32_t>(65536)},
  };
  // The newer store takes the component whole, the older one three characters of it.
  ASSERT_EQ(Initialise(*rel_, u"CT", u"0123"), kOk);
  for (const auto& [content, codes] : cases) {
    SCOPED_TRACE(content.substr(0, 20));
    for (const char* name : {"XCT012.REL", "XCT0123.REL"})
      WriteFile(Module() / name, content);
    LONG count = 0;
    ASSERT_EQ(rel_->BuscaQdeCamposArquivo(&count), S_OK);
    std::vector<Field> fields(static_cast<std::size_t>(count));
    EXPECT_EQ(rel_->BuscaCampos(count, fields.data()), S_OK);
    std::vector<std::int32_t> found(fields.size());
    std::transform(fields.begin(), fields.end(), found.begin(), [](const Field& field) { return field.iCod; });
    EXPECT_EQ(found, codes);
    REG_CAMPOS_DISPONIVEIS2* available = nullptr;
    ASSERT_EQ(ReadyStore(u"0123")->GetCamposDisponiveis(&available), S_OK);
    const TaskBlock<REG_CAMPOS_DISPONIVEIS2> owner(available);
    const TaskBlock<tagREG_CAMPOS_RELATORIO2> fields2(available->pregCampos);
    EXPECT_EQ(available->nQtdeCampos, std::min<std::size_t>(codes.size(), 65535)) << "the newer list tells of no more";
  }
}

TEST_F(FirstGeneration, WhatIsPendingIsHandedOverOnce) {
  WriteFile(Catalogue(), "1\r\n2\r\n");
  ASSERT_EQ(Write(*rel_, u"M", "abc"), kOk);
  LONG count = 7;
  unsigned char content[5] = {};
  Field fields[4] = {};
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

  // What cannot be opened leaves what is pending; a catalogue that can takes a model's content away.
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
}

TEST_F(FirstGeneration, WhatNoCallCarriesIsNeitherReadNorWritten) {
  ASSERT_EQ(Write(*rel_, u"M", "old"), kOk);
  unsigned char byte = 0;  // more of them than a call carries back are not even looked at
  EXPECT_EQ(rel_->GravaRelatorio(Text(u"M"), 1, 134'213'633, &byte), E_INVALIDARG);
  EXPECT_EQ(Read(*rel_, u"M"), "old");
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
    BSTR names = nullptr;
    const HRESULT listed = rel->BuscaNomeRelatoriosExistentes(&names);
    const OwnedBstr owner(names);
    return Names{names == nullptr ? ResultCode(listed) : text::Utf16ToUtf8(names), Read(*rel, u"A"),
                 ResultCode(rel->ExcluiRelatorio(Text(u"None")))};
  };
  EXPECT_THAT(answers(), Each("0x80040007"));
  EXPECT_EQ(ResultCode(rel->BuscaQdeCamposArquivo(&count)), "0x80040007");
  EXPECT_EQ(Initialise(*rel, u"ZZ", u"01"), "0x80043F59");
  support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\");
  EXPECT_EQ(Initialise(*rel, u"ct", u"01234"), kOk);
  EXPECT_EQ(ResultCode(rel->GravaRelatorioSemCallBack(Text(u"A.x"), 0, 0, nullptr)) + Write(*rel, u"B", "b"),
            std::string(kOk) + kOk);
  EXPECT_EQ(support::Names(Reports()), (Names{"ct012A.REL", "ct012B.REL"}));
  EXPECT_EQ(answers(), (Names{"A|B", "", kOk}));

  // A failure takes the folders away and leaves the codes.
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

  // Another station takes the name at the last moment, and its model cannot be seen yet.
  const support::SystemCalls system("rename2 hidden CT01New.REL", EEXIST);
  EXPECT_EQ(Write(*rel_, u"New", "new", false), "0x80040006");
  EXPECT_EQ(support::Names(Reports()), Names{"CT01A.REL"});
}

TEST_F(FirstGeneration, UpdatesOfMarginsAndColumns) {
  WriteFile(Catalogue(),
            "1     Um                   Um\r\n2     Dois                 Dois\r\n"
            "3     Tres                 Tr\xEAs\r\n9     Outra                Um\r\n");
  const auto column = [](std::uint32_t code, std::uint32_t width, char alignment) {
    return Bytes<std::uint32_t>({code, width}) + alignment;
  };
  const auto model = [](std::uint16_t left, std::uint16_t top, const std::string& columns) {
    return std::string(96, 'h') + Bytes<std::uint16_t>({left, top}) + "4444" + columns;
  };
  const auto three = [&](std::uint32_t first, std::uint32_t second, std::uint32_t third) {
    return column(first, first * 10, 'E') + column(second, second * 10, 'D') + column(third, third * 10, 'C') +
           std::string(4, '\0') + "what follows";
  };
  const Column um = {"Um", 10}, dois = {"Dois", 20}, tres = {"Tr\xEAs", 30}, nada = {"Nada", 4};
  const std::string old = model(1, 2, column(1, 1, 'E') + column(2, 2, 'D') + three(1, 2, 3).substr(18));
  const struct {
    std::string before;
    std::vector<Column> columns;
    std::string after;
  } cases[] = {
      {old, {tres, dois, um}, model(11, 22, three(3, 2, 1))},
      // A column that the model lacks does not count, one that no field has does when it is met.
      {old, {um, dois, tres, nada}, model(11, 22, three(1, 2, 3))},
      {old, {nada, um, dois, tres}, old},
      {old, {um, dois}, old},
      {old, {um, dois, {"tr\xEAs", 3}}, old},
      {old, {um, dois, dois, um}, old},
      {old, {}, old},
      {"", {um}, ""},
      {std::string(103, 'x'), {um}, std::string(103, 'x')},
      {'\1' + model(1, 2, "").substr(1), {um}, '\1' + model(1, 2, "").substr(1)},
      // What is left of a column is none.
      {model(1, 2, ""), {um}, model(11, 22, "")},
      {model(1, 2, column(1, 1, 'E').substr(1)), {um}, model(11, 22, column(1, 1, 'E').substr(1))},
      {model(1, 2, column(1, 1, 'E')), {um}, model(11, 22, column(1, 10, 'E'))},
  };
  for (auto [before, columns, after] : cases) {
    WriteFile(Reports() / "CT01M.REL", before);
    const auto count = static_cast<USHORT>(columns.size());
    EXPECT_EQ(ResultCode(rel_->AtualizaRelatorio(Text(u"m.rel"), 11, 22, count, columns.data())),
              before == after ? "0x0004000B" : kOk)
        << Bytes(columns);
    EXPECT_EQ(Read(*rel_, u"M"), after) << Bytes(columns);
  }
  EXPECT_EQ(ResultCode(rel_->AtualizaRelatorio(Text(u"None"), 0, 0, 0, nullptr)), "0x00040001");
  EXPECT_EQ(ResultCode(rel_->BuscaCampos(0, nullptr)), "0x80040003") << "the catalogue does not stay pending";
}

TEST_F(FirstGeneration, WhatCompanionFilesLackIsZeros) {
  tagREG_RELEXPORTACAO withoutItems = {};
  withoutItems.iQtdeItens = 1;
  EXPECT_EQ(rel_->GravaDadosExportacaoDoRelatorio(Text(u"A"), withoutItems), E_INVALIDARG);
  const auto settings = [&](const std::string& content) {
    WriteFile(Reports() / "CT01A.REE", content);
    tagREG_RELEXPORTACAO* read = nullptr;
    const HRESULT result = rel_->BuscaDadosExportacaoDoRelatorio(Text(u"a.x"), &read);
    const TaskBlock<tagREG_RELEXPORTACAO> owner(read);
    if (read == nullptr) return ResultCode(result);
    const TaskBlock<tagREG_RELEXPORTACAO_ITEM> items(read->pregItens);
    return Bytes<tagREG_RELEXPORTACAO_ITEM>({items.get(), items.get() + read->iQtdeItens});
  };
  const std::string head = std::string(604, 's') + std::string("\2\0ssssss", 8);
  EXPECT_EQ(settings(head + std::string(230, 'i')), std::string(230, 'i') + std::string(226, '\0'));
  EXPECT_EQ(settings(head.substr(1)), "0x80040002");

  const auto filter = [&](const std::string& content) {
    WriteFile(Reports() / "CT01A.REF", content);
    tagFILTRO_RELATORIO* read = nullptr;
    EXPECT_EQ(rel_->LeFiltroRelatorio(Text(u"a.x"), &read), S_OK);
    const TaskBlock<tagFILTRO_RELATORIO> owner(read);
    const TaskBlock<tagCAMPO_FILTRO> entries(read->pregValoresFiltro);
    return Bytes<tagCAMPO_FILTRO>({entries.get(), entries.get() + read->nQtdCampos});
  };
  EXPECT_EQ(filter(""), "");
  EXPECT_EQ(filter(std::string(7, '\1')), std::string(0x101 * 104, '\0'));
  EXPECT_EQ(filter(Bytes<std::uint32_t>({1, 1}) + std::string(105, 'f')), std::string(104, 'f'));
  tagCAMPO_FILTRO entry = {};
  tagFILTRO_RELATORIO one = {1, &entry};
  EXPECT_EQ(rel_->GravaFiltroRelatorio(Text(u"A.x"), &one), S_OK);
  EXPECT_EQ(fs::file_size(Reports() / "CT01A.REF"), 112U) << "nothing of a longer one is left";
  EXPECT_EQ(filter(Bytes<std::uint32_t>({9, 0xFFFFFFFF})), std::string(65535 * 104, '\0'));
  EXPECT_EQ(filter(Bytes<std::uint32_t>({1, 0x10001}) + "x"), "x" + std::string(103, '\0'));
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
