// The four layouts of the content of first-generation models.

#include "migration/valores_rel.h"

#include <array>
#include <span>

#include "leitor_bytes.h"

namespace kestor {

namespace {

using V = ValoresRel;

// ---- Steps of a layout ---------------------------------------------------------------------------------------------

enum class Tipo {
  ignora,
  inteiro8,
  inteiro16,
  inteiro32,
  tamanhoFonte,  // 16 bits; 0 means the default
  texto,         // a field of fixed width
  textoContado,  // a length of 32 bits and, when that is not 0, the text and a NUL
  conta16,       // how many records a section has
  conta32,
  registros,  // as many records as were counted
  corrida,    // records up to 32 zero bits in place of one, which are skipped, or to the end
};

struct Passo {
  Tipo tipo;
  std::size_t largura;  // bytes in the content; of a record in sections, 0 where the content tells
  std::int32_t V::*numero = nullptr;
  std::string V::*texto = nullptr;
  SecaoRel V::*secao = nullptr;
};

constexpr Passo Ignora(std::size_t bytes) {
  return {Tipo::ignora, bytes};
}
constexpr Passo Inteiro8(std::int32_t V::*numero) {
  return {Tipo::inteiro8, 1, numero};
}
constexpr Passo Inteiro16(std::int32_t V::*numero) {
  return {Tipo::inteiro16, 2, numero};
}
constexpr Passo Inteiro32(std::int32_t V::*numero) {
  return {Tipo::inteiro32, 4, numero};
}
constexpr Passo TamanhoFonte(std::int32_t V::*numero) {
  return {Tipo::tamanhoFonte, 2, numero};
}
constexpr Passo Texto(std::size_t largura, std::string V::*texto) {
  return {Tipo::texto, largura, nullptr, texto};
}
constexpr Passo TextoContado(std::string V::*texto) {
  return {Tipo::textoContado, 0, nullptr, texto};
}
constexpr Passo Conta16(SecaoRel V::*secao) {
  return {Tipo::conta16, 2, nullptr, nullptr, secao};
}
constexpr Passo Conta32(SecaoRel V::*secao) {
  return {Tipo::conta32, 4, nullptr, nullptr, secao};
}
constexpr Passo Registros(std::size_t largura, SecaoRel V::*secao) {
  return {Tipo::registros, largura, nullptr, nullptr, secao};
}
constexpr Passo Corrida(std::size_t largura, SecaoRel V::*secao) {
  return {Tipo::corrida, largura, nullptr, nullptr, secao};
}

// ---- The layouts ---------------------------------------------------------------------------------------------------

constexpr std::size_t kColuna = 9;
constexpr std::size_t kColunaLarga = 12;
constexpr std::size_t kFiltro = 52;
constexpr std::size_t kOrdenacao = 8;
constexpr std::size_t kTotal = 4;

constexpr std::size_t kTextoPagina = 40;
constexpr std::size_t kNomeFonte = 100;

constexpr std::array kCabecalho0 = {
    Texto(kTextoPagina, &V::textoCabecalho),
    Texto(kTextoPagina, &V::textoRodape),
    Inteiro16(&V::dataInicial),
    Inteiro16(&V::dataFinal),
    Inteiro32(&V::somenteTotais),
    Inteiro32(&V::numeracao),
    Inteiro32(&V::reservado),
    Inteiro16(&V::margemEsquerda),
    Inteiro16(&V::margemSuperior),
    Inteiro32(&V::primeiraPagina),
};

constexpr std::array kCorridas0 = {
    Corrida(kColuna, &V::colunas),  Corrida(kFiltro, &V::filtros),     Corrida(kOrdenacao, &V::ordenacoes),
    Corrida(kTotal, &V::subtotais), Corrida(kTotal, &V::totaisGerais),
};

constexpr std::array kCabecalho1 = {
    Ignora(4),  // identifies the layout
    Texto(kTextoPagina, &V::textoCabecalho),
    Texto(kTextoPagina, &V::textoRodape),
    Inteiro16(&V::dataInicial),
    Inteiro16(&V::dataFinal),
    Inteiro32(&V::somenteTotais),
    Inteiro32(&V::numeracao),
    Inteiro32(&V::reservado),
    Inteiro32(&V::periodo),
    Ignora(4),
    Inteiro16(&V::margemEsquerda),
    Inteiro16(&V::margemSuperior),
    Inteiro16(&V::primeiraPagina),
    Conta16(&V::colunas),
    Conta16(&V::filtros),
    Conta16(&V::ordenacoes),
    Conta16(&V::totaisGerais),
    Conta16(&V::subtotais),
};

constexpr std::array kFontes2 = {
    Texto(kNomeFonte, &V::fonteCabecalho),
    TamanhoFonte(&V::tamanhoFonteCabecalho),
    Texto(kNomeFonte, &V::fonteColuna),
    TamanhoFonte(&V::tamanhoFonteColuna),
    Texto(kNomeFonte, &V::fonteDetalhe),
    TamanhoFonte(&V::tamanhoFonteDetalhe),
    Texto(kNomeFonte, &V::fonteRodape),
    TamanhoFonte(&V::tamanhoFonteRodape),
    Inteiro8(&V::logo),
    Ignora(23),
};

constexpr std::array kSecoes12 = {
    Registros(kColunaLarga, &V::colunas), Registros(kFiltro, &V::filtros),     Registros(kOrdenacao, &V::ordenacoes),
    Registros(kTotal, &V::subtotais),     Registros(kTotal, &V::totaisGerais),
};

constexpr std::array kLeiaute3 = {
    Ignora(4),  // identifies the layout
    Inteiro16(&V::dataInicial),
    Inteiro16(&V::dataFinal),
    Conta32(&V::ordenacoes),
    Registros(kOrdenacao, &V::ordenacoes),
    Inteiro32(&V::somenteTotais),
    Conta16(&V::colunas),
    Registros(kColuna, &V::colunas),
    Conta16(&V::filtros),
    Registros(kFiltro, &V::filtros),
    Conta32(&V::subtotais),
    Registros(kTotal, &V::subtotais),
    Conta32(&V::totaisGerais),
    Registros(kTotal, &V::totaisGerais),
    Inteiro16(&V::margemEsquerda),
    Inteiro16(&V::margemSuperior),
    Inteiro32(&V::numeracao),
    Inteiro32(&V::primeiraPagina),
    Inteiro32(&V::reservado),
    Inteiro32(&V::periodo),
    Inteiro32(&V::logo),
    TextoContado(&V::textoCabecalho),
    TamanhoFonte(&V::tamanhoFonteCabecalho),
    TextoContado(&V::fonteCabecalho),
    TamanhoFonte(&V::tamanhoFonteColuna),
    TextoContado(&V::fonteColuna),
    TamanhoFonte(&V::tamanhoFonteDetalhe),
    TextoContado(&V::fonteDetalhe),
    TextoContado(&V::textoFinal),
    TextoContado(&V::textoRodape),
    TamanhoFonte(&V::tamanhoFonteRodape),
    TextoContado(&V::fonteRodape),
};

constexpr std::size_t Largura(std::span<const Passo> passos) {
  std::size_t bytes = 0;
  for (const Passo& passo : passos)
    bytes += passo.largura;
  return bytes;
}
static_assert(Largura(kCabecalho0) == 104);
static_assert(Largura(kCabecalho1) == 124);
static_assert(Largura(kCabecalho1) + Largura(kFontes2) == 556);

// ---- Decoding ------------------------------------------------------------------------------------------------------

// The parts of a content's layout; unused ones are empty.
using Leiaute = std::array<std::span<const Passo>, 3>;
constexpr Leiaute kDesconhecido = {};

Leiaute LeiauteDe(LeitorBytes leitor) {
  if (leitor.Le<std::uint8_t>() != 1) return {kCabecalho0, kCorridas0};
  leitor.Bytes(1);
  const auto versao = leitor.Le<std::uint16_t>();
  if (versao < 2) return {kCabecalho1, kSecoes12};
  if (versao == 2) return {kCabecalho1, kFontes2, kSecoes12};
  if (versao == 3) return {kLeiaute3};
  return kDesconhecido;
}

class Decodificacao {
 public:
  Decodificacao(LeitorBytes leitor, ValoresRel& valores) : leitor_(leitor), valores_(valores) {}

  void Executa(const Passo& passo) {
    switch (passo.tipo) {
      case Tipo::ignora:
        leitor_.Bytes(passo.largura);
        break;
      case Tipo::inteiro8:
        valores_.*passo.numero = leitor_.Le<std::int8_t>();  // NOLINT(bugprone-signed-char-misuse): a number
        break;
      case Tipo::inteiro16:
        valores_.*passo.numero = leitor_.Le<std::uint16_t>();
        break;
      case Tipo::inteiro32:
        valores_.*passo.numero = leitor_.Le<std::int32_t>();
        break;
      case Tipo::tamanhoFonte:
        if (const auto tamanho = leitor_.Le<std::uint16_t>()) valores_.*passo.numero = tamanho;
        break;
      case Tipo::texto:
        valores_.*passo.texto = leitor_.Texto(passo.largura);
        break;
      case Tipo::textoContado:
        LeTextoContado(valores_.*passo.texto);
        break;
      case Tipo::conta16:
        (valores_.*passo.secao).prometidos = leitor_.Le<std::uint16_t>();
        break;
      case Tipo::conta32:
        (valores_.*passo.secao).prometidos = leitor_.Le<std::uint32_t>();
        break;
      case Tipo::registros:
        LeRegistros(valores_.*passo.secao, passo.largura);
        break;
      case Tipo::corrida:
        LeCorrida(valores_.*passo.secao, passo.largura);
        break;
    }
  }

 private:
  void LeTextoContado(std::string& texto) {
    const std::size_t tamanho = leitor_.Le<std::uint32_t>();
    if (tamanho > 0) texto = TextoDoCampo(leitor_.Bytes(tamanho + 1).substr(0, tamanho));
  }

  void LeRegistros(SecaoRel& secao, std::size_t largura) {
    secao.registros = leitor_.Registros(secao.prometidos, largura);
    secao.largura = largura;
    secao.quantidade = secao.prometidos;
  }

  void LeCorrida(SecaoRel& secao, std::size_t largura) {
    secao.registros = leitor_.Restante();
    secao.largura = largura;
    for (; !leitor_.Restante().empty(); ++secao.quantidade) {
      if (LeitorBytes(leitor_).Le<std::uint32_t>() == 0) {
        leitor_.Bytes(sizeof(std::uint32_t));
        return;
      }
      leitor_.Bytes(largura);
    }
  }

  LeitorBytes leitor_;
  ValoresRel& valores_;
};

}  // namespace

bool DecodificaConteudo(std::string_view conteudo, ValoresRel& valores) {
  try {
    const LeitorBytes leitor(conteudo);
    const Leiaute leiaute = LeiauteDe(leitor);
    Decodificacao decodificacao(leitor, valores);
    for (const std::span<const Passo> parte : leiaute) {
      for (const Passo& passo : parte)
        decodificacao.Executa(passo);
    }
    return !leiaute.front().empty();
  } catch (const XUtil::CAutomaticArrayException&) {
    return false;
  }
}

// ---- Records -------------------------------------------------------------------------------------------------------

ColunaRel ValoresRel::Coluna(std::size_t posicao) const {
  LeitorBytes leitor(colunas.Registro(posicao));
  return {leitor.Le<std::int32_t>(), leitor.Le<std::int32_t>(), leitor.Le<char>()};
}

FiltroRel ValoresRel::Filtro(std::size_t posicao) const {
  constexpr std::size_t kLarguraValor = 40;
  LeitorBytes leitor(filtros.Registro(posicao));
  return {leitor.Le<std::int32_t>(), leitor.Le<std::int32_t>(), leitor.Le<std::int32_t>(),
          std::string(leitor.Texto(kLarguraValor))};
}

OrdenacaoRel ValoresRel::Ordenacao(std::size_t posicao) const {
  LeitorBytes leitor(ordenacoes.Registro(posicao));
  return {leitor.Le<std::int32_t>(), leitor.Le<std::int32_t>()};
}

std::uint16_t ValoresRel::Subtotal(std::size_t posicao) const {
  return LeitorBytes(subtotais.Registro(posicao)).Le<std::uint16_t>();
}

std::uint16_t ValoresRel::TotalGeral(std::size_t posicao) const {
  return LeitorBytes(totaisGerais.Registro(posicao)).Le<std::uint16_t>();
}

}  // namespace kestor
