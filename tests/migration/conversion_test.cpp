// First-generation models become report documents when a report store is initialised.
#include <cstring>
#include <map>

#include "common/zn_exception.h"
#include "conversion_fixture.h"
#include "platform/com/object.h"
#include "platform/files/files.h"

namespace {

using namespace kestor;
using support::ReadFile;
using support::WriteFile;

// ---- What becomes of a model ---------------------------------------------------------------------------------------

TEST_F(ConversionTest, DocumentToTheByte) {
  LegacyModel model;
  model.header = "Vendas <1>";
  model.firstDate = 40000;
  model.left = 150;
  model.totalsOnly = 2;
  model.bySheet = 1;
  model.firstPage = 3;
  model.period = 1;
  model.logo = 0xFF;
  model.columns = {{205, 30, 'D'},        {7, 12, 'E'},         {150, 1, 'E'},
                   {65536 + 310, 2, 'C'}, {8, 0xFFFFFFFF, 'E'}, {99, 0, '\0'}};
  model.filters = {{205, 1, 4, "10"}, {0x80000136, 0, 3, ""}};
  model.keys = {{205, 1}, {310, 2}, {1, 0}, {2, 0}, {3, 0}, {4, 0}};
  model.subtotals = {205, 205};
  model.totals = {310, 205};
  WriteModel("Mod\u00e9lo", model);
  tagREG_RELEXPORTACAO settings{};
  settings.iQtdeItens = 5;
  std::strcpy(settings.cCabDescricao, "Cab");
  settings.iRodapeTamanho = 7;
  settings.cRodapeTipoCampo = 'N';
  tagREG_RELEXPORTACAO_ITEM item{"-1234.5", "Fixo", 'V', 0};
  WriteSettings("Mod\u00e9lo", settings, {{}, item, {}, {}, {"12.345-6", "", 'N', 0}});

  ASSERT_EQ(Initialise2(), "0x00000000");
  EXPECT_FALSE(std::filesystem::exists(File("Mod\u00e9lo", ".REL")));
  EXPECT_FALSE(std::filesystem::exists(File("Mod\u00e9lo", ".REE")));
  EXPECT_EQ(counter_.count, 0);
  EXPECT_EQ(ReadFile(File("Mod\u00e9lo", ".RXL")), std::string("\x01\0", 2) + R"(<?xml version="1.0" encoding="UTF-8"?>
<relatorio versao="1" criadoEm="0" usuario="0" empresa="" dataInicial="40000" dataFinal="0" nome="Modélo">
  <impressao margemEsquerda="1.5" margemSuperior="0.0" paginaInicial="3" truncarColunas="0" tipoNumeracao="folha">
    <cabecalho texto="Vendas &lt;1&gt;" fonte="" tamanhoFonte="10" dataEmissao="0" periodo="1" logotipo="-1"/>
    <detalhe fonteColuna="" tamanhoFonteColuna="10" fonteDetalhe="" tamanhoFonteDetalhe="10" textoFinal=""/>
    <rodape texto="" fonte="" tamanhoFonte="10"/>
  </impressao>
  <camposEscolhidos>
    <campo codigo="205" tamanho="30" alinhamento="D" fixo="0" tipoDado="V" cabecalho="Valor" conteudo=""/>
    <campo codigo="7" tamanho="12" alinhamento="E" fixo="1" tipoDado="V" cabecalho="Fixo" conteudo="-1.234,5"/>
    <campo codigo="65846" tamanho="2" alinhamento="C" fixo="0" tipoDado="D" cabecalho="Data &amp; hora" conteudo=""/>
    <campo codigo="8" tamanho="-1" alinhamento="E" fixo="1" tipoDado="N" cabecalho="" conteudo="123456"/>
    <campo codigo="99" tamanho="0" alinhamento="" fixo="1" tipoDado="A" cabecalho="" conteudo=""/>
  </camposEscolhidos>
  <ordenacao somenteTotais="2">
    <campo codigo="205" separador="linha"/>
    <campo codigo="310" separador="pagina"/>
    <campo codigo="1" separador="nenhum"/>
    <campo codigo="2" separador="nenhum"/>
    <campo codigo="3" separador="nenhum"/>
    <campo codigo="4" separador="nenhum"/>
    <totalizacao codigo="205" naQuebra="1" geral="1"/>
    <totalizacao codigo="310" naQuebra="0" geral="1"/>
  </ordenacao>
  <filtro>
    <campo codigo="205" valorComparar="10" operador="maiorIgual" comparador="e"/>
    <campo codigo="-2147483338" valorComparar="" operador="menor" comparador="ou"/>
  </filtro>
  <exportacao>
    <cabecalho>
      <itemExportacao descricao="Cab" tamanho="10" tipo="A"/>
    </cabecalho>
    <rodape>
      <itemExportacao descricao="" tamanho="7" tipo="N"/>
    </rodape>
  </exportacao>
</relatorio>
)");
}

// ---- What goes and what stays --------------------------------------------------------------------------------------

TEST_F(ConversionTest, WhatIsNotUnderstoodStays) {
  std::string later = LegacyContent(LegacyModel(), 3).bytes;
  later[2] = 4;
  const std::string whole = LegacyContent(LegacyModel(), 0).bytes;
  const std::map<std::string, std::string> contents = {
      {"Vazio", ""}, {"Curto", whole.substr(0, 103)}, {"Registro", whole.substr(0, 104) + "12345"}, {"Versao4", later}};
  for (const auto& [name, content] : contents)
    WriteFile(File(name, ".REL"), content);
  WriteModel("Preso");
  WriteModel("Ultimo");
  WriteFile(File("Ultimo", ".REF"), "filter");
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01Preso.REL", CFile::modeRead | CFile::shareDenyNone));
  EXPECT_EQ(Initialise2(), "0x00000000");
  EXPECT_EQ(support::Names(Reports()),
            (std::vector<std::string>{"CT01Curto.REL", "CT01Preso.REL", "CT01Registro.REL", "CT01Ultimo.REF",
                                      "CT01Ultimo.RXL", "CT01Vazio.REL", "CT01Versao4.REL"}));
  for (const auto& [name, content] : contents)
    EXPECT_EQ(ReadFile(File(name, ".REL")), content);
  held.Close();
  EXPECT_EQ(Initialise2(), "0x00000000");
  EXPECT_TRUE(std::filesystem::exists(File("Preso", ".RXL")));
}

TEST_F(ConversionTest, ADocumentOfTheNameIsKept) {
  WriteFile(File("Vendas", ".RXL"), "old");
  WriteModel("VENDAS");
  WriteFile(File("VENDAS", ".REE"), "settings");
  WriteModel("");  // a name of no characters is one
  WriteModel("X");
  EXPECT_EQ(Initialise2(), "0x00000000");
  EXPECT_EQ(ReadFile(File("Vendas", ".RXL")), "old");
  EXPECT_FALSE(std::filesystem::exists(File("VENDAS", ".REL")) || std::filesystem::exists(File("VENDAS", ".REE")));
  EXPECT_TRUE(std::filesystem::exists(File("", ".RXL")) && std::filesystem::exists(File("X", ".RXL")));
}

// What would be lost if the model went: settings that are in use or cut short, documents that no listing shows, files
// that are no documents of that name.
TEST_F(ConversionTest, NothingIsOverwrittenAndNoSettingsAreLost) {
  tagREG_RELEXPORTACAO settings{};
  settings.iQtdeItens = 2;
  for (const char* name : {"Preso", "Curto", "Oculto", "Pasta", "Vazio", "Copia", "Inteiro", "Nenhum"}) {
    WriteModel(name);
    WriteSettings(name, settings, {{}, {}});
  }
  std::filesystem::resize_file(File("Curto", ".REE"), 612 + 228 + 227);
  std::filesystem::resize_file(File("Nenhum", ".REE"), 611);  // these are no settings
  WriteFile(File("Oculto", ".RXL"), "hidden");
  std::string deleted(2 * 264, '\0');
  deleted.replace(264, 4, "CT01").replace(272, 6, "Oculto");
  WriteFile(Reports() / "ZNRELDEL.DAT", deleted);
  std::filesystem::create_directory(File("Pasta", ".RXL"));
  WriteFile(File("Vazio", ".RXL"), "");
  WriteFile(File("Copia.bak", ".RXL"), "a copy");
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01Preso.REE", CFile::modeRead | CFile::shareDenyNone));
  EXPECT_EQ(Initialise2(), "0x00000000");
  for (const char* name : {"Preso", "Curto", "Oculto", "Pasta", "Vazio"}) {
    EXPECT_TRUE(std::filesystem::exists(File(name, ".REL")) && std::filesystem::exists(File(name, ".REE"))) << name;
  }
  EXPECT_EQ(ReadFile(File("Oculto", ".RXL")), "hidden");
  EXPECT_EQ(ReadFile(File("Vazio", ".RXL")), "");
  for (const char* name : {"Copia", "Inteiro", "Nenhum"}) {
    EXPECT_FALSE(std::filesystem::exists(File(name, ".REL")) || std::filesystem::exists(File(name, ".REE"))) << name;
    EXPECT_GT(ReadFile(File(name, ".RXL")).size(), 500U) << name;
  }
  held.Close();
  EXPECT_EQ(Initialise2(), "0x00000000");
  EXPECT_FALSE(std::filesystem::exists(File("Preso", ".REL")));
}

// The first generation keeps three characters of a component's code; the documents have all of them.
TEST_F(ConversionTest, ComponentsWithLongCodes) {
  std::filesystem::rename(Catalogue(), Module() / "XCT012.REL");
  for (const char* name : {"Outra", "Presa"})
    WriteFile(Reports() / (std::string("CT012") + name + ".REL"), LegacyContent(LegacyModel(), 2).bytes);
  WriteFile(Reports() / "CT012Presa.REE", std::string(612, '\0'));
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT012Presa.REE", CFile::modeRead | CFile::shareDenyNone));
  EXPECT_EQ(Initialise2(u"0123"), "0x00000000");
  EXPECT_EQ(support::Names(Reports()),
            (std::vector<std::string>{"CT0123Outra.RXL", "CT012Presa.REE", "CT012Presa.REL"}));
}

// Only files from elsewhere can differ in letter case alone. What is done to one of them would be done to the other.
TEST_F(ConversionTest, ModelsThatDifferInLetterCaseAlone) {
  const std::vector<std::string> twins = {"CT01A.REL", "CT01a.REL", "CT01B.REL", "ct01B.REL"};
  const auto layout = [](const char* header) {
    LegacyModel model;
    model.header = header;
    return LegacyContent(model, 2).bytes;
  };
  for (const std::string& twin : twins)
    WriteFile(Reports() / twin, layout(twin.c_str()));
  WriteFile(File("b", ".RXL"), "kept");
  WriteModel("C");  // listed twice, and one model all the same
  WriteFile(Reports() / "CT01c.bak.REL", "");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Initialise2(), "0x00000000");
    for (const std::string& twin : twins)
      EXPECT_EQ(ReadFile(Reports() / twin), layout(twin.c_str())) << twin;
  }
  EXPECT_FALSE(std::filesystem::exists(File("A", ".RXL")) || std::filesystem::exists(File("C", ".REL")));
  EXPECT_EQ(ReadFile(File("b", ".RXL")), "kept");

  std::filesystem::rename(Reports() / twins[1], File("D", ".REL"));
  std::filesystem::remove(Reports() / twins[3]);
  EXPECT_EQ(Initialise2(), "0x00000000");
  for (const char* name : {"A", "D"})
    EXPECT_TRUE(std::filesystem::exists(File(name, ".RXL")) && !std::filesystem::exists(File(name, ".REL"))) << name;
  EXPECT_FALSE(std::filesystem::exists(File("B", ".REL"))) << "alone beside the document of its name";
}

// A maker of writers to whom everything happens: what there is to do is done for the next model all the same.
class FailingWriters final : public com::UncountedObject<IClassFactory, IID_IClassFactory> {
 public:
  HRESULT LockServer(BOOL) override { return S_OK; }
  HRESULT CreateInstance(IUnknown*, REFIID, void**) override {
    ++asked;
    if (asked == 1) throw ZN::CException(0, "", "", 0);
    if (asked == 2) throw std::bad_alloc();
    return E_FAIL;
  }
  int asked = 0;
};

// Refuses elements after the tenth, and counts all that it is given.
class ShortWriter final : public com::UncountedObject<IEscritorMarcacao, IID_IEscritorMarcacao> {
 public:
  static constexpr int kMost = 10;
  int started = 0;
  HRESULT IniciaDocumento() override { return S_OK; }
  HRESULT FinalizaDocumento() override { return started > kMost ? E_OUTOFMEMORY : S_OK; }
  HRESULT IniciaElemento(const char*, IAtributosMarcacao*) override { return ++started > kMost ? E_OUTOFMEMORY : S_OK; }
  HRESULT FinalizaElemento(const char*) override { return S_OK; }
  HRESULT Reservado7() override { return E_NOTIMPL; }
  HRESULT Reservado8() override { return E_NOTIMPL; }
  HRESULT Reservado9() override { return E_NOTIMPL; }
  HRESULT Reservado10() override { return E_NOTIMPL; }
  HRESULT DefineSaida(IStream*) override { return S_OK; }
};

class OneWriter final : public com::UncountedObject<IClassFactory, IID_IClassFactory> {
 public:
  explicit OneWriter(IEscritorMarcacao& writer) : writer_(writer) {}
  HRESULT LockServer(BOOL) override { return S_OK; }
  HRESULT CreateInstance(IUnknown*, REFIID, void** object) override { return *object = &writer_, S_OK; }

 private:
  IEscritorMarcacao& writer_;
};

// The rest of a document that comes to nothing is not built: a model of 120 MB would take the only thread for long.
TEST_F(ConversionTest, AWriterThatHasGivenUpIsAskedForNothingMore) {
  LegacyModel model;
  model.columns.assign(2000, {205, 1, 'E'});
  model.filters.assign(2000, {});
  model.keys.assign(2000, {});
  for (int i = 0; i < 2000; ++i)
    model.totals.push_back(static_cast<LegacyModel::Total>(i));
  WriteModel("A", model);
  component_.reset();
  ShortWriter writer;
  OneWriter factory(writer);
  DWORD cookie = 0;
  ASSERT_EQ(CoRegisterClassObject(CLSID_EscritorMarcacao, &factory, CLSCTX_INPROC_SERVER, 0, &cookie), S_OK);
  component_.emplace();  // makes the lists of attributes; a writer comes from the factory that was registered first
  EXPECT_EQ(Initialise2(), "0x00000000");
  CoRevokeClassObject(cookie);
  EXPECT_EQ(writer.started, ShortWriter::kMost + 1);
  EXPECT_EQ(support::Names(Reports()), std::vector<std::string>{"CT01A.REL"});
}

TEST_F(ConversionTest, WhatCannotBeWrittenStays) {
  const std::vector<std::string> models = {"CT01A.REL", "CT01B.REL", "CT01C.REL"};
  for (const char* name : {"A", "B", "C"})
    WriteModel(name);
  const auto unchanged = [&] { return support::Names(Reports()) == models; };
  EXPECT_EQ(Initialise2(u""), "0x00000000");  // the older store has a catalogue of components only
  EXPECT_TRUE(unchanged());
  const auto uninitialised = NewStore();
  EXPECT_EQ(Migrate(counter_, *uninitialised, "CT", "01", {}), S_OK);
  EXPECT_TRUE(unchanged());
  EXPECT_EQ(ResultCode(Migrate(counter_, *uninitialised, "ZZ", "01", {})), "0x80043F59");
  CConversorRel without(*uninitialised, "CT", "01", counter_, [](auto&, auto&, auto) -> HRESULT { return E_FAIL; });
  EXPECT_EQ(without.Executa(), E_OUTOFMEMORY);

  component_.reset();
  FailingWriters writers;
  DWORD cookie = 0;
  ASSERT_EQ(CoRegisterClassObject(CLSID_EscritorMarcacao, &writers, CLSCTX_INPROC_SERVER, 0, &cookie), S_OK);
  EXPECT_EQ(Initialise2(), "0x00000000");
  CoRevokeClassObject(cookie);
  EXPECT_EQ(writers.asked, 3);
  std::filesystem::remove(Catalogue());
  EXPECT_EQ(Initialise2(), "0x00000000");
  EXPECT_TRUE(unchanged());
}

}  // namespace
