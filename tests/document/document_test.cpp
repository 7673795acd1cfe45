// Report documents: written, read back, and read as others have written them.
#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <tuple>

#include "common/zn_exception.h"
#include "document_fixture.h"
#include "support/support.h"

namespace {

using namespace kestor;

// ---- The vocabulary ------------------------------------------------------------------------------------------------

// A document of this folder.
std::string Stored(const std::string& file) {
  return support::ReadFile(std::filesystem::path(KESTOR_DOCUMENTS) / file);
}

// What full.xml says, which has every element and attribute, and every word of the lists.
struct FullDocument : CDocRelatorio {
  FullDocument() {
    std::tie(nome, dataInicial, dataFinal) = std::tuple("Balan\xE7o <>\"&\t\r\n\x02\x80\x81", 65535, 2);
    auto& i = impressao;
    std::tie(i.margemEsquerda, i.margemSuperior, i.paginaInicial, i.truncarColunas, i.tipoNumeracao, i.orientacao) =
        std::tuple(1.25F, -0.5F, -5, true, numeracaoFolha, orientacaoPaisagem);
    auto& c = i.cabecalho;
    std::tie(c.texto, c.fonte, c.tamanhoFonte, c.dataEmissao, c.cabecalhoAdicional) =
        std::tuple("a", "b", 4, true, "c");
    auto& d = i.detalhe;
    std::tie(d.fonteColuna, d.tamanhoFonteColuna, d.fonteDetalhe, d.tamanhoFonteDetalhe, d.textoFinal) =
        std::tuple("d", 5, "e", 6, "f");
    auto& r = i.rodape;
    std::tie(r.texto, r.texto2, r.fonte, r.tamanhoFonte) = std::tuple("g", "h", "i", 7);
    camposEscolhidos.campos = {{300, "j", "k", 8, 'D', 'V', false, formatoMilhar},
                               {1, "T", "", -5, '\0', '\xE9', true, formatoMilharComDecimal},
                               {2, "", "C", 0, 'E', 'A', true, formatoNenhum}};
    ordenacao.somenteTotais = true;
    ordenacao.campos = {{101, separadorLinha}, {102, separadorPagina}, {103, separadorNenhum}};
    ordenacao.totalizacoes = {{104, true, false}, {105, false, true}};
    filtro.condicoes = {{106, "l", operadorIgual, comparadorE}, {106, "", operadorDiferente, comparadorOu},
                        {107, "", operadorMaior, comparadorE},  {107, "", operadorMaiorIgual, comparadorE},
                        {107, "", operadorMenor, comparadorE},  {107, "", operadorMenorIgual, comparadorE}};
    exportacao.cabecalho = {"m", 9, itemAlfanumerico};
    exportacao.rodape = {"n", 10, itemNumerico};
  }
};

TEST_F(DocumentTest, EveryValueHasItsPlace) {
  CDocRelatorio read;
  EXPECT_TRUE(Load(read, Stored("full.xml")));
  EXPECT_TRUE(read == FullDocument()) << Content(read);
  EXPECT_EQ(Content(FullDocument()), Stored("full.xml"));
  EXPECT_EQ(Content(CDocRelatorio()), Stored("new.xml"));

  EXPECT_TRUE(Load(read, R"(<relatorio dataInicial="" dataFinal="" nome=""/>)"));
  EXPECT_EQ(Content(read), Stored("new.xml")) << "something of an earlier content is left";
}

// Values without a word of their own, a fixed column that is not in its place, and a total that is wanted nowhere.
TEST_F(DocumentTest, OtherValues) {
  CDocRelatorio d;
  d.impressao.tipoNumeracao = 2;
  d.impressao.orientacao = -1;
  d.impressao.cabecalho.periodo = true;
  d.camposEscolhidos.campos = {{300, "", "", 0, 'E', 'A', true, 3}, {300, "", "", 0, 'E', 'A', false, -1}};
  d.ordenacao.campos = {{1, 3}};
  d.ordenacao.totalizacoes = {{2, false, false}};
  d.filtro.condicoes = {{2, "", 6, 2}};
  d.exportacao.cabecalho = {"fim", 12, 2};
  EXPECT_EQ(Content(d), Stored("other_values.xml"));
}

// The full document with random values of every type, and with lists of any length.
struct RandomDocument : FullDocument {
  explicit RandomDocument(unsigned seed) {
    std::mt19937 random(seed);
    const auto below = [&](unsigned limit) { return static_cast<int>(random() % limit); };
    const auto byte = [&] { return static_cast<char>(below(256)); };
    const auto number = [&] { return static_cast<std::int32_t>(random() >> below(32)); };
    const auto code = [&] { return static_cast<std::uint16_t>(number()); };
    const auto text = [&] {
      std::string value(static_cast<std::size_t>(below(30)), '\0');
      std::generate(value.begin(), value.end(), [&] { return static_cast<char>(1 + below(255)); });
      return value;
    };
    nome = text();
    impressao.margemEsquerda = static_cast<float>(below(2'000'000) - 1'000'000) / 64;  // exact with six decimals
    for (int n = below(8); n > 0; --n) {
      camposEscolhidos.campos.push_back({code(), text(), text(), number(), byte(), byte(), false, below(3)});
      ordenacao.campos.push_back({code(), below(3)});
      ordenacao.totalizacoes.push_back({code(), n % 2 == 0, true});
      filtro.condicoes.push_back({code(), text(), below(6), below(2)});
    }
  }
};

TEST_F(DocumentTest, RandomDocumentsComeBack) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    const RandomDocument written(seed);
    const std::string content = Content(written);
    CDocRelatorio read;
    ASSERT_TRUE(Load(read, content)) << content;
    EXPECT_TRUE(read == written) << content;
  }
}

// ---- What is accepted, and what is made of it ----------------------------------------------------------------------

// Each attribute left out in turn.
TEST_F(DocumentTest, AttributesThatMayBeMissing) {
  const std::string full = Stored("full.xml");
  const std::regex attribute(" (\\w+)=\"[^\"]*\"");
  std::string optional;
  for (std::sregex_iterator it(full.begin(), full.end(), attribute), end; it != end; ++it) {
    CDocRelatorio d;
    if (!Load(d, std::string(full.begin(), (*it)[0].first) + std::string((*it)[0].second, full.end()))) continue;
    optional += (*it)[1].str() + "@" + std::to_string(std::count(full.begin(), (*it)[0].first, '\n')) + " ";
  }
  EXPECT_EQ(
      optional,
      "encoding@0 versao@1 criadoEm@1 usuario@1 empresa@1 orientacao@2 cabecalhoAdicional@3 textoFinal@4 texto2@5 "
      "formatoValor@8 codigo@9 formatoValor@9 codigo@10 descricao@29 tamanho@29 tipo@29 descricao@32 tamanho@32 "
      "tipo@32 ");
}

TEST_F(DocumentTest, RulesOfTheReader) {
  struct Case {
    const char* what;
    const char* old;  // is replaced in full.xml
    std::string replacement;
    bool loads;
    const char* written;  // of the document read, written again
  };
  const Case cases[] = {
      {"another root", "<relatorio", "<Relatorio", false, R"(nome="">)"},
      {"unknown section", "<filtro>", "<outro/><filtro>", false, R"(geral="1"/>. *</ordenacao>. *<filtro/>)"},
      {"section in a section", "<filtro>", "<filtro><filtro/>", false, "<filtro/>"},
      {"a total in the filter", "<filtro>", R"(<filtro><totalizacao codigo="1" naQuebra="1" geral="1"/>)", false,
       R"("105" naQuebra="0" geral="1"/>. *</ordenacao>. *<filtro/>)"},
      {"element in a column", R"(milhar"/>)", R"(milhar"><campo/></campo>)", false,
       R"(milhar"/>. *</camposEscolhidos>)"},
      {"unknown in the page set-up", "<cabecalho", "<outro/><cabecalho", false, R"(paisagem">. *<cabecalho texto="")"},
      {"too deep in the page set-up", R"(l="c"/>)", R"(l="c"><cabecalho/></cabecalho>)", false, R"(l="c"/>)"},
      {"what was read before a failure stays", R"( fonte="b")", "", false,
       R"(dataFinal="2" nome="Bal.*<cabecalho texto="a" fonte="MS Sans Serif" tamanhoFonte="10")"},
      {"optional attributes after a missing one", R"( fonte="i")", "", false, R"(texto="g" texto2="")"},
      {"what is missing stays or becomes empty, and lists grow", "<exportacao>",
       R"(<impressao margemEsquerda="" margemSuperior="x" paginaInicial="" truncarColunas="" tipoNumeracao="">
         <cabecalho texto="" fonte="" tamanhoFonte="" dataEmissao="" periodo="" logotipo=""/>
         <detalhe fonteColuna="" tamanhoFonteColuna="" fonteDetalhe="" tamanhoFonteDetalhe=""/>
         <rodape texto="" fonte="" tamanhoFonte=""/></impressao>
         <ordenacao somenteTotais=""><campo codigo="" separador=""/></ordenacao><exportacao>)",
       true,
       R"("0.0" margemSuperior="0.0" paginaInicial="0" truncarColunas="0" tipoNumeracao="pagina" orientacao="retrato".*)"
       R"(dataEmissao="0".* cabecalhoAdicional="c".* textoFinal="".* texto2="h".*)"
       R"(somenteTotais="0".*"103" separador="nenhum"/>. *<campo codigo="0" separador="nenhum"/>. *<totalizacao)"},
      {"of an item of the export part as well", R"(tipo="N"/>)", R"(tipo="N"/><itemExportacao/>)", true,
       R"(descricao="n" tamanho="10" tipo="N")"},
      {"anything in the export part", "<exportacao>",
       R"(<exportacao x="1"><itemExportacao descricao="z"/><a><b><itemExportacao/></b></a>
         <cabecalho><itemExportacao tamanho="5"><c/></itemExportacao></cabecalho>)",
       true, R"(descricao="m" tamanho="9".*descricao="n")"},
      {"kind of an export item by its first letter", R"(tipo="N")", R"(tipo="Nx")", true, R"(tamanho="10" tipo="N")"},
      {"kind of an export item in capitals", R"(tipo="N")", R"(tipo="nN")", true, R"(tamanho="10" tipo="A")"},
      {"the server's version", R"(versao="1")", R"(versao="9")", true, R"(versao="1")"},
      {"place of a fixed column", R"(codigo="2")", R"(codigo="250")", true, R"(codigo="2" cabecalho="" conteudo="C")"},
      {"orientation in any letter case", "paisagem", "PaiSAGEM", true, R"(orientacao="paisagem")"},
      {"numbering exactly", "folha", "Folha", true, R"(tipoNumeracao="pagina")"},
      {"separator exactly", R"("linha")", R"("Linha")", true, R"(codigo="101" separador="nenhum")"},
      {"format exactly", R"("milhar")", R"("Milhar")", true, R"(tipoDado="V" fixo="0"/>)"},
      {"operator exactly", R"("igual")", R"("Igual")", false, "<filtro/>"},
      {"comparator exactly", R"(comparador="e")", R"(comparador="E")", true, R"(operador="igual" comparador="ou")"},
      {"flags begin with 1", R"(naQuebra="1" geral="0")", R"(naQuebra="true" geral="1x")", true,
       R"(codigo="104" naQuebra="0" geral="1")"},
      {"numbers", R"("65535" dataFinal="2")", R"(" 65537 dias" dataFinal="-99999999999")", true,
       R"(dataInicial="1" dataFinal="0")"},
      {"a decimal has one decimal place at least", R"("1.25")", R"("10")", true, R"(margemEsquerda="10.0")"},
      {"a decimal is as short as it can be", R"("1.25")", R"("0.1")", true, R"(margemEsquerda="0.1")"},
      {"a margin beyond the field's range", "1.25", "-1" + std::string(400, '0'), true,
       R"(margemEsquerda="-340282346638528859811704183484516925440.0")"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::string document = Stored("full.xml");
    CDocRelatorio d;
    EXPECT_EQ(Load(d, document.replace(document.find(c.old), std::strlen(c.old), c.replacement)), c.loads);
    EXPECT_THAT(Content(d), testing::ContainsRegex(c.written));
    CDocRelatorio again;
    EXPECT_TRUE(Load(again, Content(d)) && again == d);
  }
}

TEST_F(DocumentTest, OtherVersionsDoNotTouchTheDocument) {
  FullDocument d;
  for (const USHORT version : std::initializer_list<USHORT>{0, 2, 65535})
    EXPECT_FALSE(Load(d, Stored("new.xml"), version));
  EXPECT_FALSE(d.CarregaConteudo({1, -1, nullptr}));
  EXPECT_TRUE(d == FullDocument());
  EXPECT_FALSE(Load(d, ""));
  EXPECT_EQ(d.nome, FullDocument().nome);
  EXPECT_TRUE(d.ordenacao.campos.empty());
}

TEST_F(DocumentTest, CutContentIsRefused) {
  const std::string full = Stored("full.xml");
  for (std::size_t bytes = 0; bytes < full.rfind('>'); ++bytes) {
    CDocRelatorio d;
    ASSERT_FALSE(Load(d, full.substr(0, bytes))) << bytes;
  }
}

// Without the component nothing can be written, and what is there must not be replaced by it.
TEST(DocumentWithoutComponent, GivesNothing) {
  CDocRelatorio document;
  EXPECT_EQ(Content(document), "");
  EXPECT_FALSE(Load(document, R"(<relatorio dataInicial="" dataFinal="" nome=""/>)"));
}

// ---- A markup reader of another make -------------------------------------------------------------------------------
// It gives null values and null lists, goes on after failures, ends what it has not begun, and raises exceptions.

// Counts its references, for what the document releases.
template <typename Interface, const IID& kInterface>
class Counted : public com::UncountedObject<Interface, kInterface> {
 public:
  ULONG AddRef() override { return ++references; }
  ULONG Release() override { return --references; }

  virtual ~Counted() = default;

  ULONG references = 0;
};

// The attributes of every element. A null value is given as such, with success.
class Attributes final : public com::UncountedObject<IAtributosMarcacao, IID_IAtributosMarcacao> {
 public:
  HRESULT BuscaValor(const char* name, const char** value) override {
    const auto found = values.find(name);
    if (found == values.end()) return E_INVALIDARG;
    *value = found->second;
    return S_OK;
  }
  HRESULT Adiciona(const char*, const char*) override { return E_NOTIMPL; }
  HRESULT Limpa() override { return E_NOTIMPL; }
  HRESULT Reservado3() override { return E_NOTIMPL; }
  HRESULT Reservado4() override { return E_NOTIMPL; }
  HRESULT Reservado5() override { return E_NOTIMPL; }
  HRESULT Reservado7() override { return E_NOTIMPL; }
  HRESULT Reservado8() override { return E_NOTIMPL; }

  std::map<std::string, const char*> values = {{"dataInicial", "1"},   {"dataFinal", "2"},       {"nome", "N"},
                                               {"somenteTotais", "1"}, {"codigo", "9"},          {"cabecalho", nullptr},
                                               {"tamanho", nullptr},   {"alinhamento", nullptr}, {"tipoDado", "V"},
                                               {"conteudo", "c"},      {"formatoValor", nullptr}};
};

class ForeignReader final : public Counted<ILeitorMarcacao, IID_ILeitorMarcacao> {
 public:
  HRESULT DefineTratador(ITratadorMarcacao* handler) override { return handler_ = handler, S_OK; }
  HRESULT Reservado4() override { return E_NOTIMPL; }
  HRESULT Analisa(VARIANT source) override {
    EXPECT_TRUE(source.vt == VT_UNKNOWN && source.punkVal != nullptr);
    std::istringstream words(events);
    for (std::string word; words >> word;) {
      if (word == "/") {
        EXPECT_EQ(handler_->FimElemento("?"), S_OK);
        continue;
      }
      Attributes attributes;
      attributes.values["fixo"] = word.starts_with('+') ? "1" : "0";
      const bool nullList = word.starts_with('-');
      const std::string name = word.substr(word.find_first_not_of("+-"));
      if (handler_->InicioElemento(name.c_str(), nullList ? nullptr : &attributes) != S_OK) refused += word + " ";
    }
    return end == nullptr ? S_FALSE : end();
  }
  HRESULT BuscaErro(IUnknown** given) override {
    ++errorsAsked;
    return error.QueryInterface(IID_IUnknown, reinterpret_cast<void**>(given));
  }

  // What the handler is told: the beginning of an element, "-" before one with a null list, "+" before a fixed column;
  // "/" for the end of an element, with a wrong name. Then `end`, if any, gives the result.
  std::string events;
  HRESULT (*end)() = nullptr;

  std::string refused;  // of the events
  int errorsAsked = 0;
  Counted<IUnknown, IID_IUnknown> error;

 private:
  ITratadorMarcacao* handler_ = nullptr;
};

struct ReaderFactory final : com::UncountedObject<IClassFactory, IID_IClassFactory> {
  HRESULT CreateInstance(IUnknown*, REFIID iid, void** object) override { return reader.QueryInterface(iid, object); }
  HRESULT LockServer(BOOL) override { return S_OK; }

  ForeignReader reader;
};

TEST(ForeignReaderTest, AnyReaderWillDo) {
  struct Case {
    const char* what;
    const char* events;
    HRESULT (*end)();
    const char* refused;
    const char* written;  // of the document read
  };
  const char* const fixedColumns = "relatorio camposEscolhidos +campo / campo / +campo /";
  const char* const numbered = R"(nome="N".*campo codigo="1".*campo codigo="9".*campo codigo="2")";
  const Case cases[] = {
      {"null values are empty texts", "relatorio camposEscolhidos campo", nullptr, "",
       R"(codigo="9" cabecalho="" conteudo="c" tamanho="0" alinhamento="" tipoDado="V" fixo="0"/>)"},
      {"a null list has no attributes", "-relatorio -filtro -campo", nullptr, "-relatorio -campo ",
       R"(nome="".*<filtro/>)"},
      // An element that was refused is open until it ends; whether to go on is the reader's.
      {"elements are open until they end", "/ outro relatorio / / relatorio outro filtro / / ordenacao", nullptr,
       "outro relatorio outro filtro ", R"(nome="N".*somenteTotais="1")"},
      // What was read stays, in order: fixed columns have their numbers also where the reading breaks off.
      {"failure", fixedColumns, []() -> HRESULT { return E_INVALIDARG; }, "", numbered},
      {"exception", fixedColumns, []() -> HRESULT { throw ZN::CException(1, "no more", "reader", 2); }, "", numbered},
      {"no memory", fixedColumns, []() -> HRESULT { throw std::bad_alloc(); }, "", numbered},
  };
  ReaderFactory factory;
  DWORD cookie = 0;
  CoRegisterClassObject(CLSID_LeitorMarcacao, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
  const ComponenteMarcacao writes;  // readers come from the factory that was registered first
  ForeignReader& reader = factory.reader;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::tie(reader.events, reader.end, reader.refused) = std::tie(c.events, c.end, "");
    CDocRelatorio d;
    EXPECT_EQ(Load(d, "anything"), c.end == nullptr);
    EXPECT_EQ(reader.refused, c.refused);
    EXPECT_THAT(Content(d), testing::ContainsRegex(c.written));
    EXPECT_EQ(reader.references, 0U);
    EXPECT_EQ(reader.error.references, 0U);
  }
  EXPECT_EQ(reader.errorsAsked, 1) << "it is asked for after a failure only";
  CoRevokeClassObject(cookie);
}

// ---- The stream ----------------------------------------------------------------------------------------------------

TEST(MemStream, ReadingAndWritingHavePlacesOfTheirOwn) {
  CMemStream stream("abcd", 4);
  EXPECT_EQ(stream.Write("xyz", 3, nullptr), S_OK);
  for (const char* expected : {"abc", "dxy", "z", ""}) {
    std::string bytes(3, '?');
    ULONG got = 7;
    EXPECT_EQ(stream.Read(bytes.data(), 3, &got), S_OK);
    EXPECT_EQ(bytes.substr(0, got), expected);
  }
}

TEST(MemStream, RoomGrowsInSteps) {
  CMemStream stream;
  const std::string bytes(5000, 'x');
  const std::pair<ULONG, ULONG> cases[] = {{1023, 1024}, {1, 1024}, {1, 2048}, {0, 2048}, {5000, 6144}};
  for (const auto& [count, capacity] : cases) {
    EXPECT_EQ(stream.Write(bytes.data(), count, nullptr), S_OK);
    EXPECT_EQ(stream.Capacity(), capacity) << count;
  }
  EXPECT_EQ(stream.Write(bytes.data(), 0xFFFFFFFF, nullptr), E_OUTOFMEMORY);
  STATSTG status;
  std::memset(&status, 0xFF, sizeof status);
  EXPECT_EQ(stream.Stat(&status, 0), S_OK);
  EXPECT_TRUE(status.type == STGTY_STREAM && status.cbSize == 6025 && status.pwcsName == nullptr);
}

}  // namespace
