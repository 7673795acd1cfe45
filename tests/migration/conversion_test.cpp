// First-generation models become report documents when a report store is initialised.
#include <cstring>

#include "common/zn_exception.h"
#include "conversion_fixture.h"
#include "platform/com/object.h"
#include "platform/files/files.h"

namespace {

using namespace kestor;
using std::filesystem::exists;
using support::ReadFile;
using support::WriteFile;

constexpr char kDone[] = "0x00000000";

TEST_F(ConversionTest, DocumentToTheByte) {
  const std::vector<LegacyModel::Column> columns = {{205, 30, 'D'},        {0, 12, 'E'},         {150, 1, 'E'},
                                                    {65536 + 310, 2, 'C'}, {8, 0xFFFFFFFF, 'E'}, {1, 2, 'E'},
                                                    {2, 3, 'E'},           {99, 0, '\0'}};
  const LegacyModel model = {.header = "Vendas <1>",
                             .footer = "Rodap\xE9",
                             .closing = "Fim",
                             .firstDate = 40000,
                             .lastDate = 40001,
                             .totalsOnly = 2,
                             .bySheet = 1,
                             .firstPage = 70000,
                             .period = 5,
                             .left = 150,
                             .top = 25,
                             .logo = 0xFFFFFFFF,
                             .fonts = {{{"A", 11}, {"B", 12}, {"C", 13}, {"D", 14}}},
                             .columns = columns,
                             .filters = {{205, 1, 4, "10"}, {0x80000136, 0, 3, ""}},
                             .keys = {{205, 1}, {0x80000001, 2}, {1, 0}},
                             .subtotals = {205, 205},
                             .totals = {310, 205}};
  WriteModel("Mod\u00e9lo", model, 3);
  tagREG_RELEXPORTACAO settings{};
  std::strcpy(settings.cCabDescricao, "Cab");
  settings.iRodapeTamanho = 7;
  settings.cRodapeTipoCampo = 'N';
  const std::vector<tagREG_RELEXPORTACAO_ITEM> items = {
      {}, {"-1234.5", "Fixo", 'V', 0}, {}, {}, {"12.345-6", "", 'N', 0}, {"1.2-3", "", 'F', 0}, {"4", "", 'X', 0}};
  WriteFile(File("Mod\u00e9lo", ".REE"), SettingsBytes(items, settings));

  ASSERT_EQ(Initialise2(), kDone);
  EXPECT_EQ(support::Names(Reports()), std::vector<std::string>{"CT01Mod\u00e9lo.RXL"});
  EXPECT_EQ(counter_.count, 0);
  EXPECT_EQ(ReadFile(File("Mod\u00e9lo", ".RXL")), std::string("\1\0", 2) + ReadFile(KESTOR_CONVERTED_DOCUMENT));
}

// A model stays if it cannot be decoded completely, cannot be stored, or has companions that would be lost with it. It
// does not prevent the migration of others. The first generation keeps three characters of a component's code;
// documents have all of them.
TEST_F(ConversionTest, WhatGoesAndWhatStays) {
  std::filesystem::rename(Catalogue(), Module() / "XCT012.REL");
  const auto old = [&](const std::string& name) { return Reports() / ("CT012" + name); };
  const auto document = [&](const std::string& name) { return Reports() / ("CT0123" + name + ".RXL"); };
  const auto inOtherCase = [](std::string name) { return name.replace(0, 1, "d"); };
  const std::string oldest = LegacyContent({}, 0).bytes;
  const std::string whole = LegacyContent({}, 2).bytes;
  const std::string settings = SettingsBytes({{}, {}});
  struct Case {
    std::string name;
    bool goes;
    std::string model;
    std::string settings = {};
    std::optional<std::string> document = {};
  };
  const Case cases[] = {
      {"Vazio", false, ""},
      {"Cortado", false, oldest.substr(0, 103)},
      {"Registro", false, oldest.substr(0, 104) + "12345"},
      {"Versao0", true, LegacyContent({}, 1).bytes.replace(2, 1, 1, '\0')},
      {"Versao4", false, LegacyContent({}, 3).bytes.replace(2, 1, 1, '\4')},
      {"Cabecalho", false, LegacyContent({.header = "\1\2\3"}, 0).bytes},
      {"", true, whole},  // an empty name is a name
      {"Inteira", true, whole, settings},
      {"Cortada", false, whole, settings.substr(0, settings.size() - 1)},
      {"Nenhuma", true, whole, settings.substr(0, 611)},  // these are no settings
      {"ModeloPreso", false, whole, settings},
      {"Presa", false, whole, settings},
      {"Documento", true, whole, settings, "old"},
      {"DocumentoPresa", false, whole, settings, "old"},  // because its settings are in use
      {"DocumentoVazio", false, whole, settings, ""},
      {"DocumentoOculto", false, whole, settings, "hidden"},
      {"Pasta", false, whole, settings},
      {"Copia", true, whole},
  };
  for (const Case& c : cases) {
    WriteFile(old(c.name + ".REL"), c.model);
    if (!c.settings.empty()) WriteFile(old(c.name + ".REE"), c.settings);
    if (c.document) WriteFile(document(inOtherCase(c.name)), *c.document);
  }
  std::string deleted(2 * 264, '\0');
  deleted.replace(264, 6, "CT0123").replace(272, 15, "DocumentoOculto");
  WriteFile(Reports() / "ZNRELDEL.DAT", deleted);
  std::filesystem::create_directory(document("Pasta"));
  WriteFile(document("Copia.bak"), "listed as Copia");
  WriteFile(old("Inteira.REF"), "a filter");
  const std::string heldNames[] = {"ModeloPreso.REL", "Presa.REE", "DocumentoPresa.REE"};
  CFile held[3];
  for (std::size_t i = 0; i < 3; ++i)
    ASSERT_TRUE(
        held[i].Open(("D:\\Dados.v2\\Rel\\CT012" + heldNames[i]).c_str(), CFile::modeRead | CFile::shareDenyNone));

  EXPECT_EQ(Initialise2(u"0123"), kDone);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(exists(old(c.name + ".REL")), !c.goes);
    EXPECT_EQ(exists(old(c.name + ".REE")), !c.goes && !c.settings.empty());
    EXPECT_TRUE(c.goes || ReadFile(old(c.name + ".REL")) == c.model);
    const auto file = document(c.document ? inOtherCase(c.name) : c.name);
    EXPECT_EQ(is_regular_file(file), c.goes || c.document);
    if (!is_regular_file(file)) continue;
    EXPECT_TRUE(c.document ? ReadFile(file) == *c.document : ReadFile(file).starts_with('\1'));
  }
  EXPECT_TRUE(exists(old("Inteira.REF")));
  for (CFile& file : held)
    file.Close();
  EXPECT_EQ(Initialise2(u"0123"), kDone);
  for (const std::string& name : heldNames)
    EXPECT_FALSE(exists(old(name))) << name;
}

// Refuses elements after the fifth, and counts all elements that it gets.
class ShortWriter final : public com::UncountedObject<IEscritorMarcacao, IID_IEscritorMarcacao> {
 public:
  static constexpr int kMost = 5;
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

// A factory of writers that fails in every way before it creates one.
class FailingWriters final : public com::UncountedObject<IClassFactory, IID_IClassFactory> {
 public:
  HRESULT LockServer(BOOL) override { return S_OK; }
  HRESULT CreateInstance(IUnknown*, REFIID, void** object) override {
    ++asked;
    if (asked == 1) throw ZN::CException(0, "", "", 0);
    if (asked == 2) throw std::bad_alloc();
    if (asked == 3) return E_FAIL;
    return *object = &writer, S_OK;
  }
  int asked = 0;
  ShortWriter writer;
};

// The next model is converted nevertheless. The rest of a document that has failed is not built: a model of 120 MB
// would block the only thread for long.
TEST_F(ConversionTest, WhatCannotBeWrittenStays) {
  const std::vector<std::string> models = {"CT01A.REL", "CT01B.REL", "CT01C.REL", "CT01D.REL"};
  for (const std::string& name : models)
    WriteFile(Reports() / name, LegacyContent({}, 2).bytes);
  EXPECT_EQ(Initialise2(u""), kDone) << "the older store has a catalogue of components only";
  component_.reset();
  FailingWriters writers;
  DWORD cookie = 0;
  ASSERT_EQ(CoRegisterClassObject(CLSID_EscritorMarcacao, &writers, CLSCTX_INPROC_SERVER, 0, &cookie), S_OK);
  component_.emplace();  // creates the attribute lists; writers come from the factory that was registered first
  EXPECT_EQ(Initialise2(), kDone);
  CoRevokeClassObject(cookie);
  EXPECT_EQ(writers.asked, 4);
  EXPECT_EQ(writers.writer.started, ShortWriter::kMost + 1);
  std::filesystem::remove(Catalogue());
  EXPECT_EQ(Initialise2(), kDone);
  EXPECT_EQ(support::Names(Reports()), models);
}

}  // namespace
