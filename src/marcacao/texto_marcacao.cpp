#include "texto_marcacao.h"

#include <algorithm>
#include <array>

#include "platform/text/text.h"

namespace kestor {

namespace {

constexpr unsigned char kEspaco = 0x20;

// U+E001 to U+E01F in UTF-8 are these two bytes and one from 0x81 to 0x9F.
constexpr std::string_view kInicioControle = "\xEE\x80";
constexpr unsigned char kDesvioControle = 0x80;

bool EhLetra(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

bool EhContinuacao(char c) {
  return EhLetra(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

// How each byte of a value is written.
class Escapes {
 public:
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

}  // namespace

void AcrescentaValor(std::string_view valor, std::string& documento) {
  const Escapes& escapes = TabelaEscapes();
  const char* inicio = valor.data();
  const char* const fim = inicio + valor.size();
  for (const char* c = inicio; c != fim; ++c) {
    if (escapes.EhSimples(*c)) continue;
    documento.append(inicio, c);
    documento.append(escapes.Texto(*c));
    inicio = c + 1;
  }
  documento.append(inicio, fim);
}

const char* TextoLido(const char* utf8, std::string& espaco) {
  const std::string_view texto(utf8);
  if (std::all_of(texto.begin(), texto.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) return utf8;
  std::string comControles;
  comControles.reserve(texto.size());
  for (std::size_t i = 0; i < texto.size(); ++i) {
    const unsigned char terceiro = i + 2 < texto.size() ? static_cast<unsigned char>(texto[i + 2]) : 0;
    const bool controle =
        texto.substr(i, 2) == kInicioControle && terceiro > kDesvioControle && terceiro < kDesvioControle + kEspaco;
    comControles += controle ? static_cast<char>(terceiro - kDesvioControle) : texto[i];
    if (controle) i += 2;
  }
  espaco = text::FromUtf8(comControles);
  return espaco.c_str();
}

bool NomeValido(std::string_view nome) {
  return !nome.empty() && EhLetra(nome.front()) && std::all_of(nome.begin(), nome.end(), EhContinuacao);
}

}  // namespace kestor
