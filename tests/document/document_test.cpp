// Writing documents, and reading back what was written.
#include <functional>
#include <libxml/xmlreader.h>
#include <random>
#include <regex>

#include "document_fixture.h"
#include "platform/text/text.h"

namespace {

using namespace kestor;

// The elements and attributes that an independent parser finds, in order: "1 relatorio versao=1 ...".
std::string Outline(const std::string& content) {
  std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> reader(
      xmlReaderForMemory(content.data(), static_cast<int>(content.size()), nullptr, nullptr, XML_PARSE_NONET),
      xmlFreeTextReader);
  const auto text = [](const xmlChar* value) { return std::string(reinterpret_cast<const char*>(value)); };
  std::string outline;
  int result = 0;
  while ((result = xmlTextReaderRead(reader.get())) == 1) {
    if (xmlTextReaderNodeType(reader.get()) != XML_READER_TYPE_ELEMENT) continue;
    outline += std::to_string(xmlTextReaderDepth(reader.get())) + " " + text(xmlTextReaderConstName(reader.get()));
    while (xmlTextReaderMoveToNextAttribute(reader.get()) == 1) {
      outline += " " + text(xmlTextReaderConstName(reader.get())) + "=" + text(xmlTextReaderConstValue(reader.get()));
    }
    outline += "\n";
  }
  EXPECT_EQ(result, 0);
  return outline;
}

std::string WithoutDepths(const std::string& outline) {
  return std::regex_replace(outline, std::regex("\\n\\d+ |^\\d+ "), "\n");
}

class RandomDocument {
 public:
  explicit RandomDocument(unsigned seed) : random_(seed) {}

  void Fill(CDocRelatorio& d) {
    d.nome = Text();
    d.dataInicial = Number<std::uint16_t>();
    d.dataFinal = Number<std::uint16_t>();
    d.impressao.margemEsquerda = Margin();
    d.impressao.margemSuperior = Margin();
    d.impressao.paginaInicial = Number<std::int32_t>();
    d.impressao.truncarColunas = Flag();
    d.impressao.tipoNumeracao = Below(2);
    d.impressao.orientacao = Below(2);
    d.impressao.cabecalho = {};
    d.impressao.cabecalho.texto = Text();
    d.impressao.cabecalho.fonte = Text();
    d.impressao.cabecalho.tamanhoFonte = Number<std::int32_t>();
    d.impressao.cabecalho.dataEmissao = Flag();
    d.impressao.cabecalho.periodo = Flag();
    d.impressao.cabecalho.logotipo = Flag();
    d.impressao.cabecalho.cabecalhoAdicional = Text();
    d.impressao.detalhe.fonteColuna = Text();
    d.impressao.detalhe.tamanhoFonteColuna = Number<std::int32_t>();
    d.impressao.detalhe.fonteDetalhe = Text();
    d.impressao.detalhe.tamanhoFonteDetalhe = Number<std::int32_t>();
    d.impressao.detalhe.textoFinal = Text();
    d.impressao.rodape.texto = Text();
    d.impressao.rodape.texto2 = Text();
    d.impressao.rodape.fonte = Text();
    d.impressao.rodape.tamanhoFonte = Number<std::int32_t>();
    for (int n = Below(8); n > 0; --n) {
      d.camposEscolhidos.campos.push_back(
          {Number<std::uint16_t>(), Text(), Text(), Number<std::int32_t>(), Byte(), Byte(), Flag(), Below(5) - 1});
    }
    d.ordenacao.somenteTotais = Flag();
    for (int n = Below(6); n > 0; --n)
      d.ordenacao.campos.push_back({Number<std::uint16_t>(), Below(5) - 1});
    for (int n = Below(6); n > 0; --n)
      d.ordenacao.totalizacoes.push_back({Number<std::uint16_t>(), Flag(), Flag()});
    for (int n = Below(6); n > 0; --n)
      d.filtro.condicoes.push_back({Number<std::uint16_t>(), Text(), Below(6), Below(3)});
    d.exportacao.cabecalho = {Text(), Number<std::int32_t>(), Below(3)};
    d.exportacao.rodape = {Text(), Number<std::int32_t>(), Below(3)};
  }

 private:
  int Below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
  bool Flag() { return Below(2) == 1; }
  char Byte() { return static_cast<char>(Below(256)); }
  float Margin() { return static_cast<float>(Below(2'000'000) - 1'000'000) / 64; }  // exact with six decimals
  template <typename Integer>
  Integer Number() {
    return static_cast<Integer>(random_() >> Below(32));
  }
  std::string Text() {
    std::string text;
    for (int n = Below(30); n > 0; --n)
      text += static_cast<char>(1 + Below(255));
    return text;
  }

  std::mt19937 random_;
};

// What writing and reading make of a document.
void Normalise(CDocRelatorio& d) {
  std::uint16_t fixed = 0;
  for (CampoEscolhido& campo : d.camposEscolhidos.campos) {
    if (campo.fixo) campo.codigo = ++fixed;
    if (campo.formatoValor < 1 || campo.formatoValor > 2) campo.formatoValor = 0;
  }
  for (CampoOrdenacao& campo : d.ordenacao.campos) {
    if (campo.separador < 0 || campo.separador > 2) campo.separador = 0;
  }
  std::erase_if(d.ordenacao.totalizacoes, [](const auto& total) { return !total.naQuebra && !total.geral; });
  for (CondicaoFiltro& condicao : d.filtro.condicoes)
    condicao.comparador = condicao.comparador == 0 ? 0 : 1;
  for (CItemExportacao* item : {&d.exportacao.cabecalho, &d.exportacao.rodape})
    item->tipo = item->tipo == 0 ? 0 : 1;
}

TEST_F(DocumentTest, RandomDocumentsComeBack) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    CDocRelatorio written;
    RandomDocument(seed).Fill(written);
    const std::string content = Content(written);
    CDocRelatorio read;
    ASSERT_TRUE(Load(read, content)) << content;
    Normalise(written);
    EXPECT_TRUE(read == written) << content;
  }
}

// A section alone is written as it stands in the whole document.
TEST_F(DocumentTest, SectionsAlone) {
  CDocRelatorio d;
  RandomDocument(7).Fill(d);
  const std::string whole = Outline(Content(d));
  const std::initializer_list<const CSecaoRelatorio*> sections = {
      &d.impressao,  &d.camposEscolhidos,    &d.ordenacao,         &d.filtro,
      &d.exportacao, &d.impressao.cabecalho, &d.impressao.detalhe, &d.impressao.rodape};
  for (const CSecaoRelatorio* section : sections) {
    CMemStream stream;
    ComPtr<IEscritorMarcacao> writer;
    CoCreateInstance(CLSID_EscritorMarcacao, nullptr, CLSCTX_ALL, IID_IEscritorMarcacao, writer.OutVoid());
    writer->DefineSaida(&stream);
    writer->IniciaDocumento();
    section->EscreveMarcacao(*writer);
    writer->FinalizaDocumento();
    const std::string alone = Outline({reinterpret_cast<const char*>(stream.Buffer()), stream.Size()});
    EXPECT_FALSE(alone.empty());
    EXPECT_NE(WithoutDepths(whole).find(WithoutDepths(alone)), std::string::npos) << alone;
  }
}

TEST_F(DocumentTest, NewDocument) {
  EXPECT_EQ(Outline(Content(CDocRelatorio())),
            "0 relatorio versao=1 criadoEm=0 usuario=0 empresa= dataInicial=0 dataFinal=0 nome=\n"
            "1 impressao margemEsquerda=0.0 margemSuperior=0.0 paginaInicial=1 truncarColunas=0 tipoNumeracao=pagina "
            "orientacao=retrato\n"
            "2 cabecalho texto= fonte=MS Sans Serif tamanhoFonte=10 dataEmissao=0 periodo=0 logotipo=0 "
            "cabecalhoAdicional=\n"
            "2 detalhe fonteColuna=MS Sans Serif tamanhoFonteColuna=10 fonteDetalhe=MS Sans Serif "
            "tamanhoFonteDetalhe=10 textoFinal=\n"
            "2 rodape texto= texto2= fonte=MS Sans Serif tamanhoFonte=10\n"
            "1 camposEscolhidos\n"
            "1 ordenacao somenteTotais=0\n"
            "1 filtro\n"
            "1 exportacao\n"
            "2 cabecalho\n"
            "3 itemExportacao descricao= tamanho=0 tipo=A\n"
            "2 rodape\n"
            "3 itemExportacao descricao= tamanho=0 tipo=A\n");
}

// Every kind of record and every encoding, as a parser of another make finds them.
TEST_F(DocumentTest, FullDocument) {
  CDocRelatorio d;
  d.nome = "Balan\xE7o <\"&\n\x02";
  d.dataInicial = 65535;
  d.impressao.margemEsquerda = 1.25F;
  d.impressao.margemSuperior = -0.5F;
  d.impressao.paginaInicial = -5;
  d.impressao.tipoNumeracao = 7;
  d.impressao.orientacao = orientacaoPaisagem;
  d.camposEscolhidos.campos = {{300, "T", "", -5, '\0', 'V', true, formatoMilharComDecimal},
                               {7, "", "C", 0, 'E', '\xE9', false, 3}};
  d.ordenacao.campos = {{1, separadorLinha}, {2, separadorPagina}, {3, 7}};
  d.ordenacao.totalizacoes = {{1, true, false}, {2, false, false}, {3, false, true}};
  d.filtro.condicoes = {{9, "x", operadorMenorIgual, 2}, {9, "", 6, comparadorE}};
  d.exportacao.rodape = {"fim", 12, 2};
  const std::string outline = Outline(Content(d));
  for (const char* line : {
           "dataInicial=65535 dataFinal=0 nome=Balan\xC3\xA7o <\"&\n\xEE\x80\x82\n",
           "1 impressao margemEsquerda=1.25 margemSuperior=-0.5 paginaInicial=-5 truncarColunas=0 tipoNumeracao=folha "
           "orientacao=paisagem\n",
           "1 camposEscolhidos\n"
           "2 campo codigo=300 cabecalho=T conteudo= tamanho=-5 alinhamento= tipoDado=V fixo=1 "
           "formatoValor=milharComDecimal\n"
           "2 campo codigo=7 cabecalho= conteudo=C tamanho=0 alinhamento=E tipoDado=\xC3\xA9 fixo=0\n"
           "1 ordenacao somenteTotais=0\n"
           "2 campo codigo=1 separador=linha\n2 campo codigo=2 separador=pagina\n2 campo codigo=3 separador=\n"
           "2 totalizacao codigo=1 naQuebra=1 geral=0\n2 totalizacao codigo=3 naQuebra=0 geral=1\n"
           "1 filtro\n"
           "2 campo codigo=9 valorComparar=x operador=menorIgual comparador=ou\n"
           "2 campo codigo=9 valorComparar= operador= comparador=e\n",
           "2 rodape\n3 itemExportacao descricao=fim tamanho=12 tipo=N\n",
       }) {
    EXPECT_NE(outline.find(line), std::string::npos) << outline;
  }
}

TEST_F(DocumentTest, DecimalsAreShortAndComeBack) {
  const std::pair<float, const char*> cases[] = {{10, "10.0"},   {1.5F, "1.5"},
                                                 {0.1F, "0.1"},  {-0.25F, "-0.25"},
                                                 {100, "100.0"}, {1152921504606846976.0F, "1152921504606846976.0"},
                                                 {1e-9F, "0.0"}};
  for (const auto& [value, text] : cases) {
    CDocRelatorio d;
    d.impressao.margemEsquerda = value;
    const std::string content = Content(d);
    EXPECT_NE(content.find(" margemEsquerda=\"" + std::string(text) + "\" "), std::string::npos) << content;
  }
  CDocRelatorio huge;
  const auto withMargin = [](const std::string& margin) {
    std::string content = Content(CDocRelatorio());
    return content.replace(content.find("0.0"), 3, margin);
  };
  ASSERT_TRUE(Load(huge, withMargin("-1" + std::string(400, '0'))));
  CDocRelatorio again;
  ASSERT_TRUE(Load(again, Content(huge)));
  EXPECT_LT(again.impressao.margemEsquerda, -3e38F);
  EXPECT_TRUE(again == huge);
}

// Without the component nothing can be written, and what is there must not be replaced by it.
TEST(DocumentWithoutComponent, GivesNothing) {
  CDocRelatorio document;
  EXPECT_EQ(Content(document), "");
  EXPECT_FALSE(Load(document, R"(<relatorio dataInicial="" dataFinal="" nome=""/>)"));
}

}  // namespace
