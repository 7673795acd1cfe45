// Models of the first generation, their export settings and filters.

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include "legacy_fixture.h"
#include "platform/files/files.h"
#include "support/elsewhere.h"
#include "support/system_calls.h"

namespace fs = std::filesystem;
using kestor::ResultCode;
using support::Names;
using support::ReadFile;
using support::Text;
using support::WriteFile;

namespace {

constexpr char kOk[] = "0x00000000";

class RelTest : public LegacyTest {
 protected:
  static std::string List(IZNPL_Rel& rel) {
    BSTR names = nullptr;
    const HRESULT result = rel.BuscaNomeRelatoriosExistentes(&names);
    std::string text;
    for (UINT i = 0; i < SysStringLen(names); ++i)
      text += static_cast<char>(names[i]);
    SysFreeString(names);
    return result == S_OK ? text : ResultCode(result);
  }

  static std::string Delete(IZNPL_Rel& rel, const std::u16string& name) {
    return ResultCode(rel.ExcluiRelatorio(Text(name)));
  }
};

TEST_F(RelTest, NamesOfFilesByCall) {
  auto rel = ReadyRel();
  EXPECT_EQ(Write(*rel, u"VENDAS.TXT", "one"), kOk);
  EXPECT_EQ(ReadFile(Reports() / "CT01VENDAS.REL"), "one");
  EXPECT_EQ(Read(*rel, u"vendas"), "one");
  EXPECT_EQ(Read(*rel, u"VENDAS.TXT"), "0x00040001");
  EXPECT_EQ(Read(*rel, u"Vendas.rel"), "one");
  EXPECT_EQ(ResultCode(rel->GravaRelatorioSemCallBack(Text(u"Vazio"), 0, 0, nullptr)), kOk);
  EXPECT_EQ(Read(*rel, u"Vazio"), "");

  EXPECT_EQ(Write(*rel, u"vendas", "two", false), "0x00040004");
  EXPECT_EQ(Write(*rel, u"vendas", "two"), kOk);
  EXPECT_EQ(Names(Reports()), (std::vector<std::string>{"CT01VENDAS.REL", "CT01Vazio.REL"}));
  EXPECT_EQ(Read(*rel, u"VENDAS"), "two");
  EXPECT_EQ(List(*rel), "Vazio|VENDAS");

  auto cut = NewRel();
  support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\");
  ASSERT_EQ(Initialise(*cut, u"ct", u"01234"), kOk);
  EXPECT_EQ(List(*cut), "0x00040008");
  EXPECT_EQ(Write(*cut, u"X", "x"), kOk);
  EXPECT_EQ(List(*cut), "X");
  EXPECT_TRUE(fs::exists(Reports() / "ct012X.REL"));
}

TEST_F(RelTest, PendingContentIsHandedOverOnce) {
  auto rel = ReadyRel();
  unsigned char bytes[4] = {};
  LONG size = 0;
  EXPECT_EQ(ResultCode(rel->BuscaRelatorio(0, bytes)), "0x80040003");
  ASSERT_EQ(Write(*rel, u"A", "aaa"), kOk);
  ASSERT_EQ(rel->BuscaTamanhoRelatorio(Text(u"A"), &size), S_OK);
  EXPECT_EQ(size, 3);
  EXPECT_EQ(rel->BuscaRelatorio(-1, bytes), E_INVALIDARG);
  EXPECT_EQ(rel->BuscaRelatorio(4, bytes), E_INVALIDARG);
  EXPECT_EQ(ResultCode(rel->BuscaTamanhoRelatorio(Text(u"None"), &size)), "0x00040001");
  EXPECT_EQ(size, 0);
  EXPECT_EQ(rel->BuscaRelatorio(2, bytes), S_OK) << "a model that is not there leaves what is pending";
  EXPECT_EQ(ResultCode(rel->BuscaRelatorio(2, bytes)), "0x80040003");
}

TEST_F(RelTest, WhatNeedsInitialisation) {
  auto rel = NewRel();
  EXPECT_EQ(Read(*rel, u"A"), "0x80040007");
  EXPECT_EQ(Delete(*rel, u"A"), "0x80040007");
  EXPECT_EQ(List(*rel), "0x80040007");
  EXPECT_EQ(Initialise(*rel, u"ZZ", u"01"), "0x80043F59");
  EXPECT_EQ(Initialise(*rel, u"CT", u""), kOk);
  EXPECT_EQ(Write(*rel, u"A", "x"), kOk);
  EXPECT_EQ(Names(Reports()), std::vector<std::string>{"CTA.REL"});

  // A failure takes the folders away and leaves the codes.
  EXPECT_EQ(Initialise(*rel, u"FS", u"01"), "0x80043F59");
  EXPECT_EQ(Read(*rel, u"A"), "0x80040007");
  support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "");
  EXPECT_EQ(Initialise(*rel, u"CT", u"01"), kOk);
  EXPECT_EQ(Read(*rel, u"A"), "0x00040001") << "an empty folder text is the current folder";
}

TEST_F(RelTest, DeletionTakesTheSettingsAlong) {
  auto rel = ReadyRel();
  for (const char* file : {"CT01A.REL", "CT01A.REE", "CT01A.REF", "CT01B.REL", "CT01B.REE"})
    WriteFile(Reports() / file, "x");
  EXPECT_EQ(Delete(*rel, u"None"), kOk);
  EXPECT_EQ(Delete(*rel, u"a"), kOk);
  EXPECT_EQ(Delete(*rel, u"B.REL"), kOk);
  EXPECT_EQ(Names(Reports()), (std::vector<std::string>{"CT01A.REF", "CT01B.REE"}));
}

// A model that no call could hand out again must not take the place of one that can be read.
TEST_F(RelTest, WhatNoCallCarriesIsNotWritten) {
  const Rel rel = ReadyRel();
  ASSERT_EQ(Write(*rel, u"A", "old"), "0x00000000");
  unsigned char byte = 0;  // more of them than a call carries back are not even looked at
  EXPECT_EQ(rel->GravaRelatorio(Text(u"A"), 1, 134'213'633, &byte), E_INVALIDARG);
  EXPECT_EQ(rel->GravaRelatorioSemCallBack(Text(u"B"), 0, 134'213'633, &byte), E_INVALIDARG);
  EXPECT_EQ(Read(*rel, u"A"), "old");
  EXPECT_EQ(Read(*rel, u"B"), "0x00040001");
}

TEST_F(RelTest, ModelsInOtherHands) {
  auto rel = ReadyRel();
  ASSERT_EQ(Write(*rel, u"A", "old"), kOk);
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01A.REL", CFile::modeRead | CFile::shareExclusive));
  EXPECT_EQ(Write(*rel, u"A", "new"), "0x80040005");
  EXPECT_EQ(Write(*rel, u"A", "new", false), "0x80040006");
  EXPECT_EQ(Read(*rel, u"A"), "0x00040001");
  held.Close();
  EXPECT_EQ(Read(*rel, u"A"), "old");
}

// Models of both generations, whose files another station opens alone and lets go of, over and over.
TEST_F(RelTest, WhatMustNotBeOverwrittenIsNot) {
  auto rel = ReadyRel();
  auto store = ReadyStore();
  ASSERT_EQ(Write(*rel, u"A", "old"), kOk);
  ASSERT_EQ(support::WriteModel(*store, u"A", "old"), S_OK);
  std::atomic<bool> done{false};
  std::thread other([&done] {
    while (!done) {
      for (const char* model : {"D:\\Dados.v2\\Rel\\CT01A.REL", "D:\\Dados.v2\\Rel\\CT01A.RXL"})
        CFile().Open(model, CFile::modeRead | CFile::shareExclusive);
    }
  });
  for (int round = 0; round < 8000 && !HasFailure(); ++round) {
    std::string result = Write(*rel, u"a", "new", false);
    EXPECT_TRUE(result == "0x00040004" || result == "0x80040006") << result;
    result = ResultCode(support::WriteModel(*store, u"a", "new", 1, KESTOR_NaoSobreescrever));
    EXPECT_TRUE(result == "0x00040004" || result == "0x80040005") << result;
  }
  done = true;
  other.join();
  EXPECT_EQ(Read(*rel, u"A"), "old");
  EXPECT_EQ(support::ReadModel(*store, u"A"), "old");

  // Another station has taken the name at the last moment, and its model cannot be seen yet.
  const support::SystemCalls system("rename2 hidden CT01New.REL", EEXIST);
  EXPECT_EQ(Write(*rel, u"New", "new", false), "0x80040006");
  EXPECT_EQ(Names(Reports()), (std::vector<std::string>{"CT01A.REL", "CT01A.RXL"}));
}

// ---- Updating columns ----------------------------------------------------------------------------------------------

std::string Number(std::uint32_t value, std::size_t bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes; ++i)
    text += static_cast<char>(value >> (8 * i));
  return text;
}

std::string Column(std::uint32_t code, std::uint32_t width, char alignment) {
  return Number(code, 4) + Number(width, 4) + alignment;
}

std::string Model(std::uint32_t left, std::uint32_t top, const std::string& columns) {
  return std::string(96, 'h') + Number(left, 2) + Number(top, 2) + "4444" + columns;
}

class UpdateTest : public RelTest {
 protected:
  UpdateTest() {
    std::string catalogue;
    for (const char* line : {"1     Um                   Um", "2     Dois                 Dois",
                             "3     Tres                 Tr\xEAs", "9     Outra                Um"}) {
      catalogue += std::string(line) + "\r\n";
    }
    WriteFile(Catalogue(), catalogue);
  }

  static std::string Update(IZNPL_Rel& rel, const std::u16string& name,
                            const std::vector<std::pair<std::string, LONG>>& columns) {
    std::vector<REG_ATUALIZACAO_RELATORIO> records(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i) {
      columns[i].first.copy(records[i].cNomeColuna, sizeof records[i].cNomeColuna);
      records[i].iTamanho = columns[i].second;
    }
    return ResultCode(rel.AtualizaRelatorio(Text(name), 11, 22, static_cast<USHORT>(records.size()), records.data()));
  }
};

TEST_F(UpdateTest, OrderWidthsAndMargins) {
  const std::string tail = Number(0, 4) + "what follows";
  const std::string old = Model(1, 2, Column(1, 10, 'E') + Column(2, 20, 'D') + Column(3, 30, 'C') + tail);
  WriteFile(Reports() / "CT01M.REL", old);
  auto rel = ReadyRel();
  LONG count = 0;
  Text name(u"M");
  ASSERT_EQ(rel->BuscaTamanhoRelatorio(name, &count), S_OK);

  EXPECT_EQ(Update(*rel, u"M", {{"Tr\xEAs", 33}, {"Dois", 22}, {"Um", 11}}), kOk);
  EXPECT_EQ(Read(*rel, u"M"), Model(11, 22, Column(3, 33, 'E') + Column(2, 22, 'D') + Column(1, 11, 'C') + tail));
  EXPECT_EQ(ResultCode(rel->BuscaCampos(0, nullptr)), "0x80040003") << "the catalogue does not stay pending";

  // A caller's column that the model lacks does not count, one that no field has does when it is met.
  EXPECT_EQ(Update(*rel, u"m.rel", {{"Um", 1}, {"Dois", 2}, {"Tr\xEAs", 3}, {"Nada", 4}}), kOk);
  EXPECT_EQ(Read(*rel, u"M"), Model(11, 22, Column(1, 1, 'E') + Column(2, 2, 'D') + Column(3, 3, 'C') + tail));
  const std::vector<std::vector<std::pair<std::string, LONG>>> unfit = {
      {{"Nada", 4}, {"Um", 1}, {"Dois", 2}, {"Tr\xEAs", 3}},
      {{"Um", 1}, {"Dois", 2}},
      {{"Um", 1}, {"Dois", 2}, {"um", 3}},
      {{"Um", 1}, {"Dois", 2}, {"Dois", 3}, {"Um", 3}},
      {}};
  const std::string before = Read(*rel, u"M");
  for (const auto& columns : unfit) {
    EXPECT_EQ(Update(*rel, u"M", columns), "0x0004000B");
    EXPECT_EQ(Read(*rel, u"M"), before);
  }
  EXPECT_EQ(Update(*rel, u"None", {}), "0x00040001");
  fs::remove(Catalogue());
  EXPECT_EQ(Update(*rel, u"M", {}), "0x80040001");
  EXPECT_EQ(Read(*rel, u"M"), before);
}

TEST_F(UpdateTest, NoRoomForACopy) {
  auto rel = ReadyRel();
  const std::string model = Model(1, 2, Column(1, 10, 'E'));
  ASSERT_EQ(Write(*rel, u"M", model), kOk);
  support::Elsewhere([&] {
    support::FillDisk(100);
    EXPECT_EQ(Update(*rel, u"M", {{"Dois", 7}}), "0x0004000B") << "what is not written needs none";
    EXPECT_EQ(Update(*rel, u"M", {{"Um", 7}}), "0x80040005");
  });
  EXPECT_EQ(Read(*rel, u"M"), model);
}

TEST_F(UpdateTest, ShortAndOtherModels) {
  auto rel = ReadyRel();
  std::string other = Model(1, 2, "");
  other[0] = '\1';
  for (const std::string& content : {std::string(), std::string(103, 'x'), other}) {
    WriteFile(Reports() / "CT01M.REL", content);
    EXPECT_EQ(Update(*rel, u"M", {{"Um", 1}}), "0x0004000B");
    EXPECT_EQ(Read(*rel, u"M"), content);
  }
  for (std::size_t cut = 0; cut <= 9; ++cut) {
    const std::string part = Column(1, 10, 'E').substr(0, cut);
    WriteFile(Reports() / "CT01M.REL", Model(1, 2, part));
    EXPECT_EQ(Update(*rel, u"M", {{"Um", 7}}), kOk);
    EXPECT_EQ(Read(*rel, u"M"), Model(11, 22, cut == 9 ? Column(1, 7, 'E') : part)) << cut;
  }
}

TEST_F(UpdateTest, WhatNoCallCarriesIsNotRead) {
  auto rel = ReadyRel();
  ASSERT_EQ(Write(*rel, u"M", "x"), kOk);
  for (const auto& [bytes, told] :
       {std::pair{std::uintmax_t{1} << 27, 1 << 27}, {std::uintmax_t{3} << 30, 2147483647}}) {
    fs::resize_file(Reports() / "CT01M.REL", bytes);
    LONG size = 0;
    EXPECT_EQ(ResultCode(rel->BuscaTamanhoRelatorio(Text(u"M"), &size)), "0x80040002");
    EXPECT_EQ(size, told);
    EXPECT_EQ(rel->BuscaRelatorio(1, nullptr), E_INVALIDARG) << "nothing of it is there";
    EXPECT_EQ(Update(*rel, u"M", {}), "0x80040002");
    fs::resize_file(Catalogue(), bytes);
    EXPECT_EQ(ResultCode(rel->BuscaQdeCamposArquivo(&size)), "0x80040002");
    EXPECT_EQ(size, told);
  }
}

// ---- Export settings and filters -----------------------------------------------------------------------------------

TEST_F(RelTest, ExportSettings) {
  auto rel = ReadyRel();
  tagREG_RELEXPORTACAO_ITEM items[3];
  tagREG_RELEXPORTACAO settings;
  std::memset(items, 'i', sizeof items);
  std::memset(&settings, 's', sizeof settings);
  settings.pregItens = items;
  settings.iQtdeItens = 3;
  tagREG_RELEXPORTACAO* read = nullptr;
  EXPECT_EQ(ResultCode(rel->BuscaDadosExportacaoDoRelatorio(Text(u"A"), &read)), "0x80040002");
  EXPECT_EQ(read, nullptr);
  ASSERT_EQ(rel->GravaDadosExportacaoDoRelatorio(Text(u"A.REL"), settings), S_OK);
  EXPECT_EQ(fs::file_size(Reports() / "CT01A.REE"), 1296U);

  const auto readBack = [&] {
    EXPECT_EQ(rel->BuscaDadosExportacaoDoRelatorio(Text(u"a"), &read), S_OK);
    const TaskBlock<tagREG_RELEXPORTACAO> owner(read);
    const TaskBlock<tagREG_RELEXPORTACAO_ITEM> block(read->pregItens);
    EXPECT_EQ(std::memcmp(read, &settings, 612), 0);
    return std::string(reinterpret_cast<const char*>(block.get()), read->iQtdeItens * sizeof *items);
  };
  EXPECT_EQ(readBack(), std::string(684, 'i'));
  fs::resize_file(Reports() / "CT01A.REE", 700);
  EXPECT_EQ(readBack(), std::string(88, 'i') + std::string(596, '\0'));
  fs::resize_file(Reports() / "CT01A.REE", 611);
  read = nullptr;
  EXPECT_EQ(ResultCode(rel->BuscaDadosExportacaoDoRelatorio(Text(u"A"), &read)), "0x80040002");
  EXPECT_EQ(read, nullptr);

  settings.iQtdeItens = 0;
  ASSERT_EQ(rel->GravaDadosExportacaoDoRelatorio(Text(u"A"), settings), S_OK);
  EXPECT_EQ(readBack(), "");
  settings.iQtdeItens = 1;
  settings.pregItens = nullptr;
  EXPECT_EQ(rel->GravaDadosExportacaoDoRelatorio(Text(u"A"), settings), E_INVALIDARG);
}

TEST_F(RelTest, Filters) {
  auto rel = ReadyRel();
  tagCAMPO_FILTRO entries[2];
  std::memset(entries, 'f', sizeof entries);
  tagFILTRO_RELATORIO filter = {2, entries};
  tagFILTRO_RELATORIO* read = nullptr;
  EXPECT_EQ(ResultCode(rel->LeFiltroRelatorio(Text(u"A"), &read)), "0x80043EB7");
  EXPECT_EQ(read, nullptr);
  ASSERT_EQ(rel->GravaFiltroRelatorio(Text(u"A.REL"), &filter), S_OK);
  EXPECT_EQ(Names(Reports()), (std::vector<std::string>{"CT01A.REF", "ZNCTLARQ.DAT"}));
  EXPECT_EQ(ReadFile(Reports() / "CT01A.REF"), Number(1, 4) + Number(2, 4) + std::string(208, 'f'));

  const auto readBack = [&] {
    EXPECT_EQ(rel->LeFiltroRelatorio(Text(u"a"), &read), S_OK);
    const TaskBlock<tagFILTRO_RELATORIO> owner(read);
    const TaskBlock<tagCAMPO_FILTRO> block(read->pregValoresFiltro);
    return std::string(reinterpret_cast<const char*>(block.get()), read->nQtdCampos * sizeof *entries);
  };
  EXPECT_EQ(readBack(), std::string(208, 'f'));
  filter.nQtdCampos = 1;
  ASSERT_EQ(rel->GravaFiltroRelatorio(Text(u"A"), &filter), S_OK);
  EXPECT_EQ(fs::file_size(Reports() / "CT01A.REF"), 112U);
  EXPECT_EQ(readBack(), std::string(104, 'f'));

  const std::pair<std::string, std::size_t> files[] = {{"", 0},
                                                       {std::string(7, '\1'), 0x101},
                                                       {Number(9, 4) + Number(0xFFFFFFFF, 4), 65535},
                                                       {Number(1, 4) + Number(0x10001, 4) + "x", 1}};
  for (const auto& [content, count] : files) {
    WriteFile(Reports() / "CT01A.REF", content);
    EXPECT_EQ(readBack().size(), count * 104);
  }
  fs::remove(Reports() / "CT01A.REF");
  EXPECT_EQ(ResultCode(rel->GravaFiltroRelatorio(Text(u"A"), &filter)), "0x80043EB7");
}

// ---- Identity ------------------------------------------------------------------------------------------------------

TEST_F(RelTest, PartsOfOuterObjects) {
  class Outer final : public IUnknown {
   public:
    HRESULT QueryInterface(REFIID iid, void** object) override {
      if (iid == IID_IZNPL_Rel) return part->QueryInterface(iid, object);
      *object = this;
      AddRef();
      return S_OK;
    }
    ULONG AddRef() override { return ++count; }
    ULONG Release() override { return --count; }
    ComPtr<IUnknown> part;
    ULONG count = 1;
  };
  Outer outer;
  ASSERT_EQ(
      kestor::CRepositorioRel::Cria<kestor::CRepositorioRel>(&outer, IID_IUnknown, outer.part.OutVoid(), counter_),
      S_OK);
  EXPECT_EQ(counter_.count, 1);
  {
    ComPtr<IZNPL_Rel> rel;
    ASSERT_EQ(outer.QueryInterface(IID_IZNPL_Rel, rel.OutVoid()), S_OK);
    EXPECT_EQ(outer.count, 2U) << "the interface counts on the outer object";
    ComPtr<IUnknown> identity;
    ASSERT_EQ(rel->QueryInterface(IID_IUnknown, identity.OutVoid()), S_OK);
    EXPECT_EQ(identity.Get(), &outer);
  }
  EXPECT_EQ(outer.count, 1U);
  outer.part.Reset();
  EXPECT_EQ(counter_.count, 0);

  auto alone = NewRel();
  ComPtr<IUnknown> none;
  EXPECT_EQ(alone->QueryInterface(IID_IZNPL_Relatorio2, none.OutVoid()), E_NOINTERFACE);
  EXPECT_EQ(alone->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  alone.Reset();
  EXPECT_EQ(counter_.count, 0);
}

}  // namespace
