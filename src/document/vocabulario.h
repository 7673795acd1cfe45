// The vocabulary of report documents: every element with its place, every attribute in the order in which it is
// written, with the field that it stands for, its encoding, and what it means when it is missing. docs/formats.md
// explains them.
#pragma once

#include <array>

#include "document/doc_relatorio.h"
#include "document/elemento.h"

namespace kestor::vocabulario {

// ---- Words ---------------------------------------------------------------------------------------------------------

inline constexpr std::array kPalavrasTipoNumeracao = {"pagina", "folha"};
inline constexpr std::array kPalavrasOrientacao = {"retrato", "paisagem"};
inline constexpr std::array<const char*, 3> kPalavrasFormatoValor = {nullptr, "milhar", "milharComDecimal"};
inline constexpr std::array kPalavrasSeparador = {"nenhum", "linha", "pagina"};
inline constexpr std::array kPalavrasOperador = {"igual", "diferente", "maior", "maiorIgual", "menor", "menorIgual"};
inline constexpr std::array kPalavrasComparador = {"e", "ou"};
inline constexpr std::array kPalavrasTipoItem = {"A", "N"};

inline constexpr Palavras kTipoNumeracao(kPalavrasTipoNumeracao, "folha", numeracaoPagina);
inline constexpr Palavras kOrientacao(kPalavrasOrientacao, "paisagem", orientacaoRetrato,
                                      Palavras::Igualdade::semCaixa);
inline constexpr Palavras kFormatoValor(kPalavrasFormatoValor, nullptr, formatoNenhum);
inline constexpr Palavras kSeparador(kPalavrasSeparador, "", separadorNenhum);
inline constexpr Palavras kOperador(kPalavrasOperador, "", Palavras::kRecusa);
inline constexpr Palavras kComparador(kPalavrasComparador, "ou", comparadorOu);
inline constexpr Palavras kTipoItem(kPalavrasTipoItem, "N", itemAlfanumerico, Palavras::Igualdade::primeiraLetra);

// ---- Elements, from the innermost outwards -------------------------------------------------------------------------

inline constexpr Elemento kImpressaoCabecalho(
    "cabecalho",
    Atributos(Atributo("texto", &CImpressaoCabecalho::texto, Texto{}),
              Atributo("fonte", &CImpressaoCabecalho::fonte, Texto{}),
              Atributo("tamanhoFonte", &CImpressaoCabecalho::tamanhoFonte, Numero{}),
              Atributo("dataEmissao", &CImpressaoCabecalho::dataEmissao, Flag{}),
              Atributo("periodo", &CImpressaoCabecalho::periodo, Flag{}),
              Atributo("logotipo", &CImpressaoCabecalho::logotipo, Flag{}),
              Atributo("cabecalhoAdicional", &CImpressaoCabecalho::cabecalhoAdicional, Texto{}, Falta::mantem)));

inline constexpr Elemento kImpressaoDetalhe(
    "detalhe", Atributos(Atributo("fonteColuna", &CImpressaoDetalhe::fonteColuna, Texto{}),
                         Atributo("tamanhoFonteColuna", &CImpressaoDetalhe::tamanhoFonteColuna, Numero{}),
                         Atributo("fonteDetalhe", &CImpressaoDetalhe::fonteDetalhe, Texto{}),
                         Atributo("tamanhoFonteDetalhe", &CImpressaoDetalhe::tamanhoFonteDetalhe, Numero{}),
                         Atributo("textoFinal", &CImpressaoDetalhe::textoFinal, Texto{}, Falta::esvazia)));

inline constexpr Elemento kImpressaoRodape(
    "rodape", Atributos(Atributo("texto", &CImpressaoRodape::texto, Texto{}),
                        Atributo("texto2", &CImpressaoRodape::texto2, Texto{}, Falta::mantem),
                        Atributo("fonte", &CImpressaoRodape::fonte, Texto{}),
                        Atributo("tamanhoFonte", &CImpressaoRodape::tamanhoFonte, Numero{})));

inline constexpr Elemento kImpressao(
    "impressao",
    Atributos(Atributo("margemEsquerda", &CSecaoImpressao::margemEsquerda, Decimal{}),
              Atributo("margemSuperior", &CSecaoImpressao::margemSuperior, Decimal{}),
              Atributo("paginaInicial", &CSecaoImpressao::paginaInicial, Numero{}),
              Atributo("truncarColunas", &CSecaoImpressao::truncarColunas, Flag{}),
              Atributo("tipoNumeracao", &CSecaoImpressao::tipoNumeracao, kTipoNumeracao),
              Atributo("orientacao", &CSecaoImpressao::orientacao, kOrientacao, Falta::esvazia)),
    ElementoParte(&CSecaoImpressao::cabecalho, kImpressaoCabecalho),
    ElementoParte(&CSecaoImpressao::detalhe, kImpressaoDetalhe),
    ElementoParte(&CSecaoImpressao::rodape, kImpressaoRodape));

// The code of a fixed column is its place among the fixed columns, whatever the document says.
inline constexpr Elemento kCampoEscolhido(
    "campo", Atributos(Atributo("codigo", &CampoEscolhido::codigo, Numero{}).Salvo(&CampoEscolhido::fixo),
                       Atributo("cabecalho", &CampoEscolhido::cabecalho, Texto{}),
                       Atributo("conteudo", &CampoEscolhido::conteudo, Texto{}),
                       Atributo("tamanho", &CampoEscolhido::tamanho, Numero{}),
                       Atributo("alinhamento", &CampoEscolhido::alinhamento, Caractere{}),
                       Atributo("tipoDado", &CampoEscolhido::tipoDado, Caractere{}),
                       Atributo("fixo", &CampoEscolhido::fixo, Flag{}),
                       Atributo("formatoValor", &CampoEscolhido::formatoValor, kFormatoValor, Falta::esvazia)));

inline constexpr Elemento kCamposEscolhidos("camposEscolhidos", Atributos(),
                                            ElementosLista(&CSecaoCampos::campos, kCampoEscolhido));

inline constexpr Elemento kCampoOrdenacao("campo",
                                          Atributos(Atributo("codigo", &CampoOrdenacao::codigo, Numero{}),
                                                    Atributo("separador", &CampoOrdenacao::separador, kSeparador)));

inline constexpr Elemento kCampoTotalizacao("totalizacao",
                                            Atributos(Atributo("codigo", &CampoTotalizacao::codigo, Numero{}),
                                                      Atributo("naQuebra", &CampoTotalizacao::naQuebra, Flag{}),
                                                      Atributo("geral", &CampoTotalizacao::geral, Flag{})));

inline bool TotalPedido(const CampoTotalizacao& total) {
  return total.naQuebra || total.geral;
}

inline constexpr Elemento kOrdenacao("ordenacao",
                                     Atributos(Atributo("somenteTotais", &CSecaoOrdenacao::somenteTotais, Flag{})),
                                     ElementosLista(&CSecaoOrdenacao::campos, kCampoOrdenacao),
                                     ElementosLista(&CSecaoOrdenacao::totalizacoes, kCampoTotalizacao, TotalPedido));

inline constexpr Elemento kCondicaoFiltro("campo",
                                          Atributos(Atributo("codigo", &CondicaoFiltro::codigo, Numero{}),
                                                    Atributo("valorComparar", &CondicaoFiltro::valorComparar, Texto{}),
                                                    Atributo("operador", &CondicaoFiltro::operador, kOperador),
                                                    Atributo("comparador", &CondicaoFiltro::comparador, kComparador)));

inline constexpr Elemento kFiltro("filtro", Atributos(), ElementosLista(&CSecaoFiltro::condicoes, kCondicaoFiltro));

inline constexpr Elemento kItemExportacao(
    "itemExportacao", Atributos(Atributo("descricao", &CItemExportacao::descricao, Texto{}, Falta::mantem),
                                Atributo("tamanho", &CItemExportacao::tamanho, Numero{}, Falta::mantem),
                                Atributo("tipo", &CItemExportacao::tipo, kTipoItem, Falta::mantem)));

inline constexpr Elemento kExportacaoCabecalho("cabecalho", Atributos(),
                                               ElementoParte(&CSecaoExportacao::cabecalho, kItemExportacao));
inline constexpr Elemento kExportacaoRodape("rodape", Atributos(),
                                            ElementoParte(&CSecaoExportacao::rodape, kItemExportacao));

inline constexpr Elemento kExportacao =
    Elemento("exportacao", Atributos(), ElementoDentro(kExportacaoCabecalho), ElementoDentro(kExportacaoRodape))
        .Tolerante();

inline constexpr Elemento kRelatorio("relatorio",
                                     Atributos(Atributo("versao", &CDocRelatorio::versao, Numero{}, Falta::naoSeLe),
                                               AtributoConstante{"criadoEm", "0"}, AtributoConstante{"usuario", "0"},
                                               AtributoConstante{"empresa", ""},
                                               Atributo("dataInicial", &CDocRelatorio::dataInicial, Numero{}),
                                               Atributo("dataFinal", &CDocRelatorio::dataFinal, Numero{}),
                                               Atributo("nome", &CDocRelatorio::nome, Texto{})),
                                     ElementoParte(&CDocRelatorio::impressao, kImpressao),
                                     ElementoParte(&CDocRelatorio::camposEscolhidos, kCamposEscolhidos),
                                     ElementoParte(&CDocRelatorio::ordenacao, kOrdenacao),
                                     ElementoParte(&CDocRelatorio::filtro, kFiltro),
                                     ElementoParte(&CDocRelatorio::exportacao, kExportacao));

}  // namespace kestor::vocabulario
