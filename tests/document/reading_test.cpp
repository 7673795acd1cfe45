// What the reader of report documents accepts, and what it makes of it.
#include <functional>
#include <regex>
#include <set>

#include "document_fixture.h"

namespace {

using namespace kestor;

// A document with every element and attribute, and with values other than those of a new one.
constexpr const char* kFull =
    R"(<relatorio versao="9" criadoEm="0" usuario="0" empresa="" dataInicial="1" dataFinal="2" nome="N">
 <impressao margemEsquerda="1.5" margemSuperior="2" paginaInicial="3" truncarColunas="1" tipoNumeracao="folha" orientacao="paisagem">
  <cabecalho texto="a" fonte="b" tamanhoFonte="4" dataEmissao="1" periodo="1" logotipo="1" cabecalhoAdicional="c"/>
  <detalhe fonteColuna="d" tamanhoFonteColuna="5" fonteDetalhe="e" tamanhoFonteDetalhe="6" textoFinal="f"/>
  <rodape texto="g" texto2="h" fonte="i" tamanhoFonte="7"/>
 </impressao>
 <camposEscolhidos>
  <campo codigo="100" cabecalho="j" conteudo="k" tamanho="8" alinhamento="D" tipoDado="V" fixo="0" formatoValor="milhar"/>
 </camposEscolhidos>
 <ordenacao somenteTotais="1">
  <campo codigo="101" separador="linha"/>
  <totalizacao codigo="102" naQuebra="1" geral="1"/>
 </ordenacao>
 <filtro>
  <campo codigo="103" valorComparar="l" operador="menor" comparador="ou"/>
 </filtro>
 <exportacao>
  <cabecalho><itemExportacao descricao="m" tamanho="9" tipo="N"/></cabecalho>
  <rodape><itemExportacao descricao="n" tamanho="10" tipo="N"/></rodape>
 </exportacao>
</relatorio>)";

std::string With(std::string document, const std::string& old, const std::string& replacement) {
  const std::size_t place = document.find(old);
  EXPECT_NE(place, std::string::npos) << old;
  return document.replace(place, old.size(), replacement);
}

std::string Full(const std::string& old, const std::string& replacement) {
  return With(kFull, old, replacement);
}

TEST_F(DocumentTest, EveryValueIsReadFromItsPlace) {
  CDocRelatorio d;
  ASSERT_TRUE(Load(d, kFull));
  CDocRelatorio expected;
  expected.nome = "N";
  expected.dataInicial = 1;
  expected.dataFinal = 2;
  expected.impressao.margemEsquerda = 1.5F;
  expected.impressao.margemSuperior = 2;
  expected.impressao.paginaInicial = 3;
  expected.impressao.truncarColunas = true;
  expected.impressao.tipoNumeracao = 1;
  expected.impressao.orientacao = 1;
  auto& cabecalho = expected.impressao.cabecalho;
  cabecalho.texto = "a";
  cabecalho.fonte = "b";
  cabecalho.tamanhoFonte = 4;
  cabecalho.dataEmissao = cabecalho.periodo = cabecalho.logotipo = true;
  cabecalho.cabecalhoAdicional = "c";
  auto& detalhe = expected.impressao.detalhe;
  detalhe.fonteColuna = "d";
  detalhe.tamanhoFonteColuna = 5;
  detalhe.fonteDetalhe = "e";
  detalhe.tamanhoFonteDetalhe = 6;
  detalhe.textoFinal = "f";
  auto& rodape = expected.impressao.rodape;
  rodape.texto = "g";
  rodape.texto2 = "h";
  rodape.fonte = "i";
  rodape.tamanhoFonte = 7;
  expected.camposEscolhidos.campos = {{100, "j", "k", 8, 'D', 'V', false, 1}};
  expected.ordenacao.somenteTotais = true;
  expected.ordenacao.campos = {{101, 1}};
  expected.ordenacao.totalizacoes = {{102, true, true}};
  expected.filtro.condicoes = {{103, "l", 4, 1}};
  expected.exportacao.cabecalho = {"m", 9, 1};
  expected.exportacao.rodape = {"n", 10, 1};
  EXPECT_TRUE(d == expected);
}

// Each attribute left out in turn: what is optional, and what the field holds then.
TEST_F(DocumentTest, RequiredAndOptionalAttributes) {
  const std::set<std::string> unread = {"versao", "criadoEm", "usuario", "empresa"};
  const std::string full = kFull;
  const std::regex attribute(" (\\w+)=\"[^\"]*\"");
  std::set<std::string> optional;
  for (std::sregex_iterator it(full.begin(), full.end(), attribute), end; it != end; ++it) {
    std::string document = full;
    document.erase(static_cast<std::size_t>(it->position()), static_cast<std::size_t>(it->length()));
    CDocRelatorio d;
    if (Load(d, document) && !unread.contains((*it)[1]))
      optional.insert((*it)[1].str() + "@" +
                      std::to_string(std::count(full.begin(), full.begin() + it->position(), '\n')));
  }
  EXPECT_EQ(optional,
            (std::set<std::string>{"orientacao@1", "cabecalhoAdicional@2", "textoFinal@3", "texto2@4", "formatoValor@7",
                                   "descricao@17", "tamanho@17", "tipo@17", "descricao@18", "tamanho@18", "tipo@18"}));
}

struct Case {
  const char* what;
  std::string document;
  bool loads;
  std::function<bool(const CDocRelatorio&)> holds;
};

TEST_F(DocumentTest, RulesOfTheReader) {
  const std::string fixedColumns =
      Full("</camposEscolhidos>",
           R"(<campo codigo="250" cabecalho="" conteudo="" tamanho="0" alinhamento="" tipoDado="" fixo="1"/>
      <campo codigo="7" cabecalho="" conteudo="" tamanho="0" alinhamento="" tipoDado="" fixo="0"/>
      <campo cabecalho="" conteudo="" tamanho="0" alinhamento="" tipoDado="" fixo="1x"/></camposEscolhidos>)");
  const auto condition = [](const char* attributes) { return Full(R"(operador="menor" comparador="ou")", attributes); };
  const Case cases[] = {
      {"other root", With(Full("<relatorio", "<Relatorio"), "</relatorio", "</Relatorio"), false, nullptr},
      {"unknown section", Full("<filtro>", "<outro/><filtro>"), false,
       [](auto& d) { return d.ordenacao.totalizacoes.size() == 1 && d.filtro.condicoes.empty(); }},
      {"section in a section", Full("<filtro>", "<filtro><filtro/>"), false, nullptr},
      {"a total in the filter", Full("<filtro>", R"(<filtro><totalizacao codigo="1" naQuebra="1" geral="1"/>)"), false,
       nullptr},
      {"element in a column", Full("/>\n </camposEscolhidos>", "><campo/></campo></camposEscolhidos>"), false,
       [](auto& d) { return d.camposEscolhidos.campos.size() == 1; }},
      {"unknown in the page set-up", Full("<cabecalho texto", "<cabecalho2/><cabecalho texto"), false, nullptr},
      {"too deep in the page set-up", Full("cabecalhoAdicional=\"c\"/>", "><cabecalho/></cabecalho>"), false, nullptr},
      {"what optional attributes leave where they are missing",
       Full("<exportacao>", R"(<impressao margemEsquerda="1" margemSuperior="1" paginaInicial="1" truncarColunas="0"
         tipoNumeracao=""><cabecalho texto="" fonte="" tamanhoFonte="1" dataEmissao="0" periodo="0" logotipo="0"/>
         <detalhe fonteColuna="" tamanhoFonteColuna="1" fonteDetalhe="" tamanhoFonteDetalhe="1"/>
         <rodape texto="" fonte="" tamanhoFonte="1"/></impressao><exportacao>)"),
       true,
       [](auto& d) {
         return d.impressao.cabecalho.cabecalhoAdicional == "c" && d.impressao.rodape.texto2 == "h" &&
                d.impressao.detalhe.textoFinal.empty() && d.impressao.orientacao == 0;
       }},
      {"of the export part as well", Full("</rodape>\n </exp", "<itemExportacao/></rodape>\n </exp"), true,
       [](auto& d) {
         return d.exportacao.rodape == CItemExportacao{"n", 10, 1};
       }},
      {"fixed columns of a document that breaks off",
       Full("</camposEscolhidos>", R"(<campo codigo="9" cabecalho="" conteudo="" tamanho="" alinhamento="" tipoDado=""
         fixo="1"/><x/></camposEscolhidos>)"),
       false, [](auto& d) { return d.camposEscolhidos.campos[1].codigo == 1; }},
      {"what was read before a failure stays", Full("fonte=\"b\"", ""), false,
       [](auto& d) {
         const auto& c = d.impressao.cabecalho;
         return d.nome == "N" && c.texto == "a" && c.fonte == "MS Sans Serif" && c.tamanhoFonte == 10;
       }},
      {"optional attributes behind a missing one", Full("fonte=\"i\"", ""), false,
       [](auto& d) { return d.impressao.rodape.texto == "g" && d.impressao.rodape.texto2.empty(); }},
      {"fixed columns are numbered", fixedColumns, true,
       [](auto& d) {
         const auto& c = d.camposEscolhidos.campos;
         return c[1].codigo == 1 && c[2].codigo == 7 && c[3].codigo == 2 && c[1].alinhamento == '\0';
       }},
      {"orientation in any letter case", Full("paisagem", "PaiSAGEM"), true,
       [](auto& d) { return d.impressao.orientacao == 1; }},
      {"numbering exactly", Full("folha", "Folha"), true, [](auto& d) { return d.impressao.tipoNumeracao == 0; }},
      {"unknown separator", Full("\"linha\"", "\"Linha\""), true,
       [](auto& d) { return d.ordenacao.campos[0].separador == 0; }},
      {"unknown format", Full("milhar", "Milhar"), true,
       [](auto& d) { return d.camposEscolhidos.campos[0].formatoValor == 0; }},
      {"operator exactly", condition(R"(operador="Menor" comparador="e")"), false,
       [](auto& d) { return d.filtro.condicoes.empty(); }},
      {"comparator", condition(R"(operador="igual" comparador="E")"), true,
       [](auto& d) { return d.filtro.condicoes[0].comparador == 1; }},
      {"flags begin with 1", Full(R"(naQuebra="1" geral="1")", R"(naQuebra="true" geral="1x")"), true,
       [](auto& d) { return !d.ordenacao.totalizacoes[0].naQuebra && d.ordenacao.totalizacoes[0].geral; }},
      {"kinds of export items",
       With(Full(R"(tipo="N"/></cab)", R"(tipo="nN"/></cab)"), R"(tipo="N"/></rod)", R"(tipo="Nx"/></rod)"), true,
       [](auto& d) { return d.exportacao.cabecalho.tipo == 0 && d.exportacao.rodape.tipo == 1; }},
      {"anything in the export part",
       Full("<exportacao>", R"(<exportacao x="1"><itemExportacao descricao="z"/><a><b><itemExportacao/></b></a>
         <cabecalho><itemExportacao tamanho="5"><c/></itemExportacao></cabecalho>)"),
       true, [](auto& d) { return d.exportacao.cabecalho.tamanho == 9 && d.exportacao.rodape.descricao == "n"; }},
      {"a second section overwrites and appends",
       Full("<filtro>", R"(<impressao margemEsquerda="" margemSuperior="x" paginaInicial="" truncarColunas=""
         tipoNumeracao=""><detalhe fonteColuna="" tamanhoFonteColuna="" fonteDetalhe="" tamanhoFonteDetalhe=""/></impressao>
         <ordenacao somenteTotais=""><campo codigo="" separador=""/></ordenacao><filtro>)"),
       true,
       [](auto& d) {
         return d.impressao.margemEsquerda == 0 && d.impressao.orientacao == 0 && d.impressao.cabecalho.texto == "a" &&
                d.impressao.detalhe.textoFinal.empty() && !d.ordenacao.somenteTotais &&
                d.ordenacao.campos == std::vector<CampoOrdenacao>{{101, 1}, {0, 0}};
       }},
      {"numbers", Full(R"(dataInicial="1" dataFinal="2")", R"(dataInicial=" 65537 dias" dataFinal="-99999999999")"),
       true, [](auto& d) { return d.dataInicial == 1 && d.dataFinal == 0; }},
      {"missing sections", R"(<relatorio dataInicial="1" dataFinal="2" nome=""/>)", true,
       [](auto& d) { return d.impressao == CSecaoImpressao() && d.exportacao == CSecaoExportacao(); }},
  };
  for (const Case& c : cases) {
    CDocRelatorio d;
    d.filtro.condicoes.resize(3);  // nothing of an earlier content is left
    EXPECT_EQ(Load(d, c.document), c.loads) << c.what;
    EXPECT_TRUE(c.holds == nullptr || c.holds(d)) << c.what;
  }
}

TEST_F(DocumentTest, OtherVersionsDoNotTouchTheDocument) {
  CDocRelatorio before;
  CDocRelatorio d;
  for (CDocRelatorio* document : {&before, &d}) {
    document->nome = "x";
    document->ordenacao.campos.resize(2);
  }
  for (const USHORT version : std::initializer_list<USHORT>{0, 2, 65535}) {
    EXPECT_FALSE(Load(d, kFull, version));
    EXPECT_TRUE(d == before);
  }
  EXPECT_FALSE(d.CarregaConteudo({1, -1, nullptr}));
  EXPECT_TRUE(d == before);
  EXPECT_FALSE(Load(d, ""));
  EXPECT_EQ(d.nome, "x");
  EXPECT_TRUE(d.ordenacao.campos.empty());
}

TEST_F(DocumentTest, CutContentIsRefused) {
  const std::string full = kFull;
  for (std::size_t bytes = 0; bytes < full.size(); ++bytes) {
    CDocRelatorio d;
    ASSERT_FALSE(Load(d, full.substr(0, bytes))) << bytes;
  }
}

TEST_F(DocumentTest, HugeContentIsReadInProportion) {
  std::string deep = "<relatorio dataInicial='1' dataFinal='2' nome=''><exportacao>";
  for (int i = 0; i < 1'000'000; ++i)
    deep += "<a>";
  CDocRelatorio d;
  EXPECT_FALSE(Load(d, deep));

  d.camposEscolhidos.campos.assign(60'000, {1, "c", "", 1, 'E', 'A', true, 0});
  CDocRelatorio again;
  EXPECT_TRUE(Load(again, Content(d)));
  EXPECT_EQ(again.camposEscolhidos.campos.back().codigo, 60'000);
}

}  // namespace
