// Texts of the markup: names, values as they stand in a document, and documents while they are being built.
//
// Line ends and tabs in a value are character references, because a reader would turn them into blanks. The control
// characters that XML cannot hold (the others from 1 to 31) become the private-use character U+E000 plus their number.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace kestor {

// A text that grows at its end. Unlike a std::string, it does not initialise memory before it is written, and it moves
// large texts without a copy where the system can. Throws std::bad_alloc.
class Acumulador {
 public:
  Acumulador() = default;
  ~Acumulador();
  Acumulador(const Acumulador&) = delete;
  Acumulador& operator=(const Acumulador&) = delete;

  std::string_view Texto() const { return {dados_, tamanho_}; }
  std::size_t Capacidade() const { return capacidade_; }
  void Corta(std::size_t bytes) { tamanho_ = bytes; }  // drops what follows; at most the present size

  // Espaco returns room for `bytes` at the end, to be written to. Ocupa then makes it part of the text, up to `fim`.
  char* Espaco(std::size_t bytes) {
    if (capacidade_ - tamanho_ < bytes) Cresce(bytes);
    return dados_ + tamanho_;
  }
  void Ocupa(const char* fim) { tamanho_ = static_cast<std::size_t>(fim - dados_); }

  void Acrescenta(std::string_view texto) {
    if (!texto.empty()) std::memcpy(Espaco(texto.size()), texto.data(), texto.size());
    tamanho_ += texto.size();
  }
  void Acrescenta(char c) {
    *Espaco(1) = c;
    ++tamanho_;
  }

 private:
  void Cresce(std::size_t bytes);

  char* dados_ = nullptr;
  std::size_t tamanho_ = 0;
  std::size_t capacidade_ = 0;
};

// Appends a name. Returns false and appends nothing if it is no name for elements and attributes: a letter or '_', then
// letters, digits, '_', '-' and '.'; ASCII.
bool AcrescentaNome(const char* nome, Acumulador& marca);

// Appends a value as it stands between double quotes.
void AcrescentaValor(const char* valor, Acumulador& marca);

// Returns, in `espaco`, the value of an attribute that is given as it was appended between the quotes.
const char* ValorDe(std::string_view escrito, std::string& espaco);

// Returns a name or value of the parser (UTF-8) in code page 1252; in `espaco`, or `utf8` itself if it is all ASCII.
// U+0080 to U+009F become the bytes of that number: programs that use the code page often declare it as ISO-8859-1.
const char* TextoLido(const char* utf8, std::string& espaco);

}  // namespace kestor
