// Texts of the markup: names, values as they stand in a document, and documents while they are being built.
//
// Line ends and tabs in a value are character references, because a reader would make blanks of them. The control
// characters that XML cannot hold (1 to 31 but for those) stand as the private-use character U+E000 plus their number.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace kestor {

// A text that grows at its end. Unlike a std::string it does not set memory before it is written, and it moves large
// texts without copying them where the system can. Throws std::bad_alloc.
class Acumulador {
 public:
  Acumulador() = default;
  ~Acumulador();
  Acumulador(const Acumulador&) = delete;
  Acumulador& operator=(const Acumulador&) = delete;

  std::string_view Texto() const { return {dados_, tamanho_}; }
  std::size_t Capacidade() const { return capacidade_; }
  void Corta(std::size_t bytes) { tamanho_ = bytes; }  // what follows goes; never more than there are

  // Room for `bytes` at the end, to be written and then taken up to `fim`.
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

// Appends a name. False, nothing being appended, for one that neither elements nor attributes can have: a name is a
// letter or '_', then letters, digits, '_', '-' and '.'; ASCII.
bool AcrescentaNome(const char* nome, Acumulador& marca);

// Appends a value as it stands between double quotes.
void AcrescentaValor(const char* valor, Acumulador& marca);

// The value of an attribute, given as it stands between the quotes of what was appended, in `espaco`.
const char* ValorDe(std::string_view escrito, std::string& espaco);

// A name or value as the parser gives it (UTF-8), in code page 1252; in `espaco` where that differs from it. U+0080 to
// U+009F are the bytes of that number: programs of the code page are known to call it ISO-8859-1.
const char* TextoLido(const char* utf8, std::string& espaco);

}  // namespace kestor
