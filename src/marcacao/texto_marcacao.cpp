#include "texto_marcacao.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <new>
#include <utility>

#include "platform/text/text.h"

namespace kestor {

namespace {

constexpr unsigned char kEspaco = 0x20;

// U+E001 to U+E01F in UTF-8 are these two bytes and one from 0x81 to 0x9F.
constexpr std::string_view kInicioControle = "\xEE\x80";
constexpr unsigned char kDesvioControle = 0x80;

// U+0080 to U+009F are this byte and one from 0x80 to 0x9F.
constexpr std::string_view kInicioC1 = "\xC2";

// The bytes that are written as references.
constexpr char kComReferencia[] = {'&', '<', '>', '"', '\t', '\n', '\r'};

// Which bytes may start and continue a name.
class LetrasDeNome {
 public:
  constexpr LetrasDeNome() {
    for (unsigned char c = 'A'; c <= 'Z'; ++c)
      inicia_[c] = true;
    for (unsigned char c = 'a'; c <= 'z'; ++c)
      inicia_[c] = true;
    inicia_['_'] = true;
    continua_ = inicia_;
    for (unsigned char c = '0'; c <= '9'; ++c)
      continua_[c] = true;
    continua_['-'] = true;
    continua_['.'] = true;
  }

  constexpr bool Inicia(char c) const { return inicia_[static_cast<unsigned char>(c)]; }
  constexpr bool Continua(char c) const { return continua_[static_cast<unsigned char>(c)]; }

 private:
  std::array<bool, 256> inicia_{};
  std::array<bool, 256> continua_{};
};
constexpr LetrasDeNome kLetrasDeNome;

// How each byte of a value is written.
class Escapes {
 public:
  static constexpr std::size_t kMaximo = 6;  // bytes, of &quot;

  Escapes() {
    for (unsigned byte = 0; byte < textos_.size(); ++byte) {
      const char c = static_cast<char>(byte);
      textos_[byte] = byte < kEspaco ? Controle(byte) : text::ToUtf8(std::string_view(&c, 1));
    }
    textos_['&'] = "&amp;";
    textos_['<'] = "&lt;";
    textos_['>'] = "&gt;";
    textos_['"'] = "&quot;";
    for (std::size_t byte = 0; byte < textos_.size(); ++byte)
      simples_[byte] = textos_[byte].size() == 1;
  }

  // True for a byte that is written as itself; false for the NUL at the end of a text.
  bool EhSimples(char c) const { return simples_[static_cast<unsigned char>(c)]; }
  const std::string& Texto(char c) const { return textos_[static_cast<unsigned char>(c)]; }

 private:
  static std::string Controle(unsigned byte) {
    if (byte == '\t' || byte == '\n' || byte == '\r') return "&#" + std::to_string(byte) + ";";
    return std::string(kInicioControle) + static_cast<char>(kDesvioControle + byte);
  }

  std::array<std::string, 256> textos_;
  std::array<bool, 256> simples_{};
};

const Escapes& TabelaEscapes() {
  static const Escapes tabela;
  return tabela;
}

// Returns true if the text begins with `inicio` and a byte from `primeiro` to 0x9F.
bool EhDesvio(std::string_view texto, std::string_view inicio, unsigned primeiro) {
  if (!texto.starts_with(inicio) || texto.size() == inicio.size()) return false;
  const unsigned byte = static_cast<unsigned char>(texto[inicio.size()]);
  return byte >= primeiro && byte < kDesvioControle + unsigned{kEspaco};
}

}  // namespace

Acumulador::~Acumulador() {
  std::free(dados_);
}

void Acumulador::Cresce(std::size_t bytes) {
  constexpr std::size_t kMinimo = 512;
  const std::size_t capacidade = std::max({kMinimo, 2 * capacidade_, tamanho_ + bytes});
  auto* dados = static_cast<char*>(std::realloc(dados_, capacidade));
  if (dados == nullptr) throw std::bad_alloc();
  dados_ = dados;
  capacidade_ = capacidade;
}

// The next two functions walk a text once, in pieces for which they make room, and do not measure it first: most texts
// have a few bytes.

bool AcrescentaNome(const char* nome, Acumulador& marca) {
  constexpr std::size_t kPedaco = 64;
  const std::size_t inicio = marca.Texto().size();
  bool valido = kLetrasDeNome.Inicia(*nome);
  while (valido && *nome != '\0') {
    char* c = marca.Espaco(kPedaco);
    for (const char* const fim = c + kPedaco; c != fim && kLetrasDeNome.Continua(*nome); ++nome)
      *c++ = *nome;
    marca.Ocupa(c);
    valido = *nome == '\0' || kLetrasDeNome.Continua(*nome);
  }
  if (!valido) marca.Corta(inicio);
  return valido;
}

void AcrescentaValor(const char* valor, Acumulador& marca) {
  constexpr std::size_t kPedaco = 64;
  const Escapes& escapes = TabelaEscapes();
  while (*valor != '\0') {
    char* c = marca.Espaco(kPedaco + Escapes::kMaximo);
    for (const char* const fim = c + kPedaco; c != fim && escapes.EhSimples(*valor); ++valor)
      *c++ = *valor;
    if (*valor != '\0' && !escapes.EhSimples(*valor)) {
      const std::string& escape = escapes.Texto(*valor++);
      c = std::copy(escape.begin(), escape.end(), c);
    }
    marca.Ocupa(c);
  }
}

const char* ValorDe(std::string_view escrito, std::string& espaco) {
  std::string utf8;
  while (!escrito.empty()) {
    const char* byte = escrito.front() == '&'
                           ? std::find_if(std::begin(kComReferencia), std::end(kComReferencia),
                                          [&](char c) { return escrito.starts_with(TabelaEscapes().Texto(c)); })
                           : std::end(kComReferencia);
    const bool referencia = byte != std::end(kComReferencia);
    utf8 += referencia ? *byte : escrito.front();
    escrito.remove_prefix(referencia ? TabelaEscapes().Texto(*byte).size() : 1);
  }
  const char* lido = TextoLido(utf8.c_str(), espaco);
  if (lido == utf8.c_str()) espaco = std::move(utf8);
  return espaco.c_str();
}

const char* TextoLido(const char* utf8, std::string& espaco) {
  const std::string_view texto(utf8);
  if (std::all_of(texto.begin(), texto.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) return utf8;
  std::string semDesvios;
  semDesvios.reserve(texto.size());
  for (std::size_t i = 0; i < texto.size(); ++i) {
    const std::string_view resto = texto.substr(i);
    if (EhDesvio(resto, kInicioControle, kDesvioControle + 1)) {
      semDesvios += static_cast<char>(resto[2] - kDesvioControle);
      i += 2;
    } else if (EhDesvio(resto, kInicioC1, kDesvioControle)) {
      semDesvios += TabelaEscapes().Texto(resto[1]);
      i += 1;
    } else {
      semDesvios += texto[i];
    }
  }
  espaco = text::FromUtf8(semDesvios);
  return espaco.c_str();
}

}  // namespace kestor
