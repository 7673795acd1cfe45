// The report document: what the content of a second-generation model says.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "contract/records.h"
#include "document/mem_stream.h"
#include "markup/interfaces_marcacao.h"

namespace kestor {

// A part of a document that is an element of its own, with everything below it. Sections are values. All texts are code
// page 1252.
class CSecaoRelatorio {
 public:
  // Writes the element. Ignores the writer's results. Throws std::bad_alloc if an attribute list cannot be made.
  virtual void EscreveMarcacao(IEscritorMarcacao& escritor) const = 0;
  virtual void Reinicia() = 0;  // sets the values of a new document and empties lists

  bool operator==(const CSecaoRelatorio&) const = default;

 protected:
  ~CSecaoRelatorio() = default;
};

inline constexpr const char* kFontePadrao = "MS Sans Serif";
inline constexpr std::int32_t kTamanhoFontePadrao = 10;

// ---- Page set-up ---------------------------------------------------------------------------------------------------

enum TipoNumeracao : std::int32_t { numeracaoPagina = 0, numeracaoFolha = 1 };
enum Orientacao : std::int32_t { orientacaoRetrato = 0, orientacaoPaisagem = 1 };

class CImpressaoCabecalho final : public CSecaoRelatorio {
 public:
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CImpressaoCabecalho(); }
  bool operator==(const CImpressaoCabecalho&) const = default;

  std::string texto;
  std::string fonte = kFontePadrao;
  std::int32_t tamanhoFonte = kTamanhoFontePadrao;
  bool dataEmissao = false;
  bool periodo = false;
  bool logotipo = false;
  std::string cabecalhoAdicional;
};

class CImpressaoDetalhe final : public CSecaoRelatorio {
 public:
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CImpressaoDetalhe(); }
  bool operator==(const CImpressaoDetalhe&) const = default;

  std::string fonteColuna = kFontePadrao;
  std::int32_t tamanhoFonteColuna = kTamanhoFontePadrao;
  std::string fonteDetalhe = kFontePadrao;
  std::int32_t tamanhoFonteDetalhe = kTamanhoFontePadrao;
  std::string textoFinal;
};

class CImpressaoRodape final : public CSecaoRelatorio {
 public:
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CImpressaoRodape(); }
  bool operator==(const CImpressaoRodape&) const = default;

  std::string texto;
  std::string texto2;
  std::string fonte = kFontePadrao;
  std::int32_t tamanhoFonte = kTamanhoFontePadrao;
};

class CSecaoImpressao final : public CSecaoRelatorio {
 public:
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CSecaoImpressao(); }
  bool operator==(const CSecaoImpressao&) const = default;

  float margemEsquerda = 0;
  float margemSuperior = 0;
  std::int32_t paginaInicial = 1;
  bool truncarColunas = false;
  std::int32_t tipoNumeracao = numeracaoPagina;
  std::int32_t orientacao = orientacaoRetrato;
  CImpressaoCabecalho cabecalho;
  CImpressaoDetalhe detalhe;
  CImpressaoRodape rodape;
};

// ---- Chosen columns ------------------------------------------------------------------------------------------------

enum FormatoValor : std::int32_t { formatoNenhum = 0, formatoMilhar = 1, formatoMilharComDecimal = 2 };

struct CampoEscolhido {
  std::uint16_t codigo = 0;  // in the field catalogue; for a fixed column, its place among the fixed columns
  std::string cabecalho;     // the column's title
  std::string conteudo;
  std::int32_t tamanho = 0;
  char alinhamento = static_cast<char>(KESTOR_Esquerda);   // KESTOR2_Alinhamento
  char tipoDado = static_cast<char>(KESTOR_Alfanumerico);  // KESTOR2_TipoDado
  bool fixo = false;
  std::int32_t formatoValor = formatoNenhum;

  bool operator==(const CampoEscolhido&) const = default;
};

class CSecaoCampos final : public CSecaoRelatorio {
 public:
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CSecaoCampos(); }
  bool operator==(const CSecaoCampos&) const = default;

  std::vector<CampoEscolhido> campos;
};

// ---- Sorting and totals --------------------------------------------------------------------------------------------

enum Separador : std::int32_t { separadorNenhum = 0, separadorLinha = 1, separadorPagina = 2 };

struct CampoOrdenacao {
  std::uint16_t codigo = 0;
  std::int32_t separador = separadorNenhum;  // what separates two groups when the key changes

  bool operator==(const CampoOrdenacao&) const = default;
};

struct CampoTotalizacao {
  std::uint16_t codigo = 0;
  bool naQuebra = false;  // at each group break
  bool geral = false;

  bool operator==(const CampoTotalizacao&) const = default;
};

class CSecaoOrdenacao final : public CSecaoRelatorio {
 public:
  // Leaves out a total that is wanted neither at breaks nor at the end.
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CSecaoOrdenacao(); }
  bool operator==(const CSecaoOrdenacao&) const = default;

  bool somenteTotais = false;
  std::vector<CampoOrdenacao> campos;
  std::vector<CampoTotalizacao> totalizacoes;
};

// ---- Filter --------------------------------------------------------------------------------------------------------

enum Operador : std::int32_t {
  operadorIgual = 0,
  operadorDiferente = 1,
  operadorMaior = 2,
  operadorMaiorIgual = 3,
  operadorMenor = 4,
  operadorMenorIgual = 5
};
enum Comparador : std::int32_t { comparadorE = 0, comparadorOu = 1 };

struct CondicaoFiltro {
  std::uint16_t codigo = 0;
  std::string valorComparar;
  std::int32_t operador = operadorIgual;
  std::int32_t comparador = comparadorE;  // how the condition joins the others

  bool operator==(const CondicaoFiltro&) const = default;
};

class CSecaoFiltro final : public CSecaoRelatorio {
 public:
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CSecaoFiltro(); }
  bool operator==(const CSecaoFiltro&) const = default;

  std::vector<CondicaoFiltro> condicoes;
};

// ---- Export --------------------------------------------------------------------------------------------------------

enum TipoItemExportacao : std::int32_t { itemAlfanumerico = 0, itemNumerico = 1 };

// The header or footer line of the export file.
struct CItemExportacao {
  std::string descricao;
  std::int32_t tamanho = 0;
  std::int32_t tipo = itemAlfanumerico;

  bool operator==(const CItemExportacao&) const = default;
};

class CSecaoExportacao final : public CSecaoRelatorio {
 public:
  void EscreveMarcacao(IEscritorMarcacao& escritor) const override;
  void Reinicia() override { *this = CSecaoExportacao(); }
  bool operator==(const CSecaoExportacao&) const = default;

  CItemExportacao cabecalho;
  CItemExportacao rodape;
};

// ---- The document --------------------------------------------------------------------------------------------------

// The version of a model whose content is a report document, and of the document itself.
inline constexpr USHORT kVersaoDocumento = 1;

class CDocRelatorio {
 public:
  CDocRelatorio() = default;
  CDocRelatorio(const CDocRelatorio&) = delete;
  CDocRelatorio& operator=(const CDocRelatorio&) = delete;

  // Writes the root element with all five sections.
  virtual void EscreveMarcacao(IEscritorMarcacao& escritor) const;
  // Sets everything except the name as in a new document.
  virtual void Reinicia();
  virtual ~CDocRelatorio() = default;

  // Fills the document from a model's content, which stays the caller's. Needs the markup component. Returns false for
  // a version other than 1, and leaves the document as it is; also for content that is no report document, and the
  // document then holds what was read before the failure. `*motivo` (unless null) then tells people why; English,
  // UTF-8.
  bool CarregaConteudo(const REG_RELATORIO2& conteudo, std::string* motivo = nullptr);

  // Returns the content to store under version 1; empty if memory runs out or the markup component is missing, null if
  // not even the stream can be made.
  std::unique_ptr<CMemStream> GeraConteudo() const;

  std::uint16_t versao = kVersaoDocumento;
  std::string nome;               // the model's
  std::uint16_t dataInicial = 0;  // period, as the client numbers it
  std::uint16_t dataFinal = 0;
  CSecaoImpressao impressao;
  CSecaoCampos camposEscolhidos;
  CSecaoOrdenacao ordenacao;
  CSecaoFiltro filtro;
  CSecaoExportacao exportacao;
};

}  // namespace kestor
