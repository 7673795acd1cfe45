// What the content of a first-generation model says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "document/doc_relatorio.h"

namespace kestor {

// The records of one kind, one after the other in the content.
struct SecaoRel {
  std::size_t prometidos = 0;  // records that the content announces
  std::size_t quantidade = 0;  // records that are there
  std::size_t largura = 0;     // bytes of a record
  std::string_view registros;  // begins with them

  std::string_view Registro(std::size_t posicao) const { return registros.substr(posicao * largura, largura); }
};

struct ColunaRel {
  std::int32_t codigo = 0;
  std::int32_t tamanho = 0;
  char alinhamento = '\0';

  // The export settings describe a fixed column. Other codes are fields of the catalogue, or nothing if negative.
  static constexpr std::int32_t kPrimeiroCodigoCatalogo = 100;
  bool Fixa() const { return codigo >= 0 && codigo < kPrimeiroCodigoCatalogo; }
};

struct FiltroRel {
  std::int32_t codigo = 0;
  std::int32_t conector = 0;  // 0: or; not 0: and
  std::int32_t operador = 0;  // 1 different, 2 greater, 3 less, 4 greater or equal, 5 less or equal, otherwise equal
  std::string valor;
};

struct OrdenacaoRel {
  std::int32_t codigo = 0;
  std::int32_t separador = 0;  // 1 a line, 2 a new page, otherwise nothing
};

// Numbers of 32 bits are signed, as documents carry them. Texts are code page 1252. The values own their texts; their
// records are views of the content, which must outlive them.
struct ValoresRel {
  std::string textoCabecalho;
  std::string textoRodape;
  std::string textoFinal;
  std::int32_t dataInicial = 0;
  std::int32_t dataFinal = 0;
  std::int32_t somenteTotais = 0;
  std::int32_t numeracao = 0;  // not 0: by sheet; 0: by page
  std::int32_t reservado = 0;
  std::int32_t periodo = 0;
  std::int32_t logo = 0;
  std::int32_t margemEsquerda = 0;  // in hundredths
  std::int32_t margemSuperior = 0;
  std::int32_t primeiraPagina = 0;
  std::string fonteCabecalho = kFontePadrao;
  std::string fonteColuna = kFontePadrao;
  std::string fonteDetalhe = kFontePadrao;
  std::string fonteRodape = kFontePadrao;
  std::int32_t tamanhoFonteCabecalho = kTamanhoFontePadrao;
  std::int32_t tamanhoFonteColuna = kTamanhoFontePadrao;
  std::int32_t tamanhoFonteDetalhe = kTamanhoFontePadrao;
  std::int32_t tamanhoFonteRodape = kTamanhoFontePadrao;
  SecaoRel colunas;
  SecaoRel filtros;
  SecaoRel ordenacoes;
  SecaoRel subtotais;
  SecaoRel totaisGerais;

  // Positions count from 0 and must be below the section's number of records.
  ColunaRel Coluna(std::size_t posicao) const;
  FiltroRel Filtro(std::size_t posicao) const;
  OrdenacaoRel Ordenacao(std::size_t posicao) const;
  std::uint16_t Subtotal(std::size_t posicao) const;
  std::uint16_t TotalGeral(std::size_t posicao) const;
};

// Reads the values of a content, up to the point where a truncated one ends. Values that it lacks keep their defaults,
// as do all values for an unknown version. Returns true if the layout is known and the content has all that it
// announces.
bool DecodificaConteudo(std::string_view conteudo, ValoresRel& valores);

}  // namespace kestor
