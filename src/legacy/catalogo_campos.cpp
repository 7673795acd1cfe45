#include "legacy/catalogo_campos.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "common/razao.h"
#include "contract/campo_texto.h"
#include "contract/results.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

// Positions in the line, from 0. The last column runs to the end of the line, but no further than its field holds.
struct Coluna {
  std::size_t inicio;
  std::size_t largura;
};

constexpr Coluna kCodigo = {0, 6};
constexpr Coluna kDescricao = {6, 21};
constexpr Coluna kApelido = {27, 22};
constexpr Coluna kAlinhamento = {49, 3};
constexpr Coluna kTamanho = {52, 5};
constexpr Coluna kFiltro = {57, 3};
constexpr Coluna kTipo = {60, 3};
constexpr Coluna kTotal = {63, 3};
constexpr Coluna kOrdem = {66, 3};
constexpr Coluna kOpcoes = {69, 199};

// Columns are mostly blanks: eight bytes are compared together, the last of them in the highest bits.
std::string_view SemBrancosNoFim(std::string_view texto) {
  static_assert(std::endian::native == std::endian::little);
  constexpr std::uint64_t kOitoBrancos = 0x2020202020202020U;
  while (texto.size() >= sizeof kOitoBrancos) {
    std::uint64_t oito = 0;
    std::memcpy(&oito, texto.end() - sizeof oito, sizeof oito);
    const auto brancos = static_cast<std::size_t>(std::countl_zero(oito ^ kOitoBrancos)) / 8;
    texto.remove_suffix(brancos);
    if (brancos < sizeof oito) return texto;
  }
  while (!texto.empty() && texto.back() == ' ')
    texto.remove_suffix(1);
  return texto;
}

// One line, with columns that lose their blanks at the end. A column that the line does not reach is empty.
class Linha {
 public:
  explicit Linha(std::string_view linha) : linha_(linha) {}

  std::string_view Texto(const Coluna& coluna) const { return SemBrancosNoFim(Bruto(coluna)); }

  // Copies a column into a field of zeros.
  template <std::size_t N>
  void Copia(const Coluna& coluna, char (&campo)[N]) const {
    PreencheCampo(campo, Texto(coluna));
  }

  std::int32_t Numero(const Coluna& coluna) const { return text::ToInt(Bruto(coluna)); }

  char Primeiro(const Coluna& coluna) const {
    if (linha_.size() > coluna.inicio && linha_[coluna.inicio] != ' ') return linha_[coluna.inicio];
    const std::string_view texto = Texto(coluna);
    return texto.empty() ? '\0' : texto.front();
  }

 private:
  // With the blanks at its end.
  std::string_view Bruto(const Coluna& coluna) const {
    return linha_.size() <= coluna.inicio ? std::string_view() : linha_.substr(coluna.inicio, coluna.largura);
  }

  std::string_view linha_;
};

void PreencheRegistro(const Linha& linha, tagREG_CAMPOS_RELATORIO& registro) {
  registro.iCod = linha.Numero(kCodigo);
  registro.iTamanho = linha.Numero(kTamanho);
  linha.Copia(kDescricao, registro.cDescricao);
  linha.Copia(kApelido, registro.cApelido);
  linha.Copia(kOpcoes, registro.cOpcoes);
  registro.bCondicao = linha.Primeiro(kFiltro) == 'S' ? 1 : 0;
  registro.bTotalizavel = linha.Primeiro(kTotal) == 'S' ? 1 : 0;
  registro.bOrdenavel = linha.Primeiro(kOrdem) == 'S' ? 1 : 0;
  registro.cTipo = linha.Primeiro(kTipo);
  registro.cAlinhamento = linha.Primeiro(kAlinhamento);
}

// The newer record takes letters in either case, and the low 16 bits of a number.
void PreencheRegistro(const Linha& linha, tagREG_CAMPOS_RELATORIO2& registro) {
  const auto permite = [&linha](const Coluna& coluna) {
    return static_cast<char>(text::UpperChar(linha.Primeiro(coluna)) == 'S' ? 1 : 0);
  };
  registro.nCodigo = static_cast<std::uint16_t>(linha.Numero(kCodigo));
  registro.nTamanho = static_cast<std::uint16_t>(linha.Numero(kTamanho));
  linha.Copia(kDescricao, registro.szDescricao);
  linha.Copia(kApelido, registro.szApelido);
  linha.Copia(kOpcoes, registro.szOpcoes);
  registro.bPodeFiltrar = permite(kFiltro);
  registro.bPodeTotalizar = permite(kTotal);
  registro.bPodeOrdenar = permite(kOrdem);
  registro.cTipo = linha.Primeiro(kTipo);
  registro.cAlinhamento = text::UpperChar(linha.Primeiro(kAlinhamento));
}

struct Contagem {
  std::size_t lf = 0;
  bool temNulo = false;
};

// Counts in blocks as long as a byte can count, which the compiler turns into a few instructions.
Contagem Conta(const char* inicio, const char* fim) {
  constexpr std::ptrdiff_t kBloco = 255;
  Contagem total;
  while (inicio != fim) {
    std::uint8_t lf = 0;
    std::uint8_t nulos = 0;
    for (const char* const bloco = inicio + std::min(kBloco, fim - inicio); inicio != bloco; ++inicio) {
      lf = static_cast<std::uint8_t>(lf + (*inicio == '\n' ? 1 : 0));
      nulos = static_cast<std::uint8_t>(nulos + (*inicio == '\0' ? 1 : 0));
    }
    total.lf += lf;
    total.temNulo |= nulos != 0;
  }
  return total;
}

// Calls `visita` for the first `limite` lines, without their line ends. `nulo` is the first NUL, or null.
template <typename Visita>
void PercorreLinhas(const Bytes& conteudo, const char* nulo, std::size_t limite, const Visita& visita) {
  const char* const inicio = conteudo.data();
  const char* const fim = nulo != nullptr ? nulo : inicio + conteudo.size();
  const char* linha = inicio;
  for (std::size_t numero = 0; numero < limite; ++numero) {
    const auto resto = static_cast<std::size_t>(fim - linha);
    const auto* lf = resto == 0 ? nullptr : static_cast<const char*>(std::memchr(linha, '\n', resto));
    if (lf == nullptr && nulo != nullptr) return;
    const bool ultima = lf == nullptr;
    if (ultima) lf = fim;
    const auto comprimento = static_cast<std::size_t>(lf - linha);
    visita(numero, std::string_view(linha, comprimento == 0 ? 0 : comprimento - 1));
    if (ultima) return;
    linha = lf + 1;
  }
}

template <typename Registro>
void PreencheTodos(const Bytes& conteudo, const char* nulo, Registro* registros, std::size_t quantidade) {
  // Clears records in blocks, just before they are filled: one by one, clearing costs as much as filling.
  constexpr std::size_t kBloco = 32;
  PercorreLinhas(conteudo, nulo, quantidade, [=](std::size_t numero, std::string_view linha) {
    const std::size_t restantes = quantidade - numero;
    if (numero % kBloco == 0) std::memset(registros + numero, 0, std::min(kBloco, restantes) * sizeof(Registro));
    PreencheRegistro(Linha(linha), registros[numero]);
  });
}

}  // namespace

HRESULT CCatalogoCampos::Le(const std::string& caminho) {
  CFile arquivo;
  CFileException falha;
  if (!arquivo.Open(caminho.c_str(), kLeituraModelo, &falha)) {
    DizRazao("read as field catalogue", falha);
    return ErrorForm(KESTOR_ARQ_NAO_EXISTE);
  }
  aberto_ = true;
  lido_ = LeConteudo(arquivo, caminho);
  const char* const inicio = lido_.bytes.data();
  Contagem contagem = Conta(inicio, inicio + lido_.bytes.size());
  if (contagem.temNulo) {
    nulo_ = static_cast<const char*>(std::memchr(inicio, '\0', lido_.bytes.size()));
    contagem = Conta(inicio, nulo_);
  }
  linhas_ = contagem.lf + (nulo_ != nullptr ? 0 : 1);
  return lido_.inteiro ? S_OK : ErrorForm(KESTOR_PROBLEMAS_AO_LER);
}

void CCatalogoCampos::Preenche(tagREG_CAMPOS_RELATORIO* registros, std::size_t quantidade) const {
  PreencheTodos(lido_.bytes, nulo_, registros, quantidade);
}

void CCatalogoCampos::Preenche(tagREG_CAMPOS_RELATORIO2* registros, std::size_t quantidade) const {
  PreencheTodos(lido_.bytes, nulo_, registros, quantidade);
}

}  // namespace kestor
