// How the values of a report document are written as attribute texts, and read back.
//
// An encoding has `Le`, which sets a value from a text or returns false to refuse the text, and `Escreve`, which
// returns the text of a value, or null to leave the attribute out. A text is valid while its value lives, until the
// draft is used again.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "platform/text/text.h"

namespace kestor {

// A buffer for the text of one value at a time.
class Rascunho {
 public:
  const char* Numero(std::int64_t valor) {
    *std::to_chars(numero_.data(), numero_.data() + numero_.size() - 1, valor).ptr = '\0';
    return numero_.data();
  }
  const char* Caractere(char valor) {
    numero_ = {valor};
    return numero_.data();
  }
  // Six decimals without the zeros at the end, but at least one.
  const char* Decimal(double valor) {
    decimal_ = text::FormatDouble(valor);
    while (decimal_.size() > 1 && decimal_.back() == '0' && decimal_[decimal_.size() - 2] != '.')
      decimal_.pop_back();
    return decimal_.c_str();
  }

 private:
  std::array<char, std::numeric_limits<std::int64_t>::digits10 + 3> numero_{};
  std::string decimal_;
};

struct Numero {
  // A 16-bit field takes the low 16 bits of the number.
  template <typename Inteiro>
  static bool Le(const char* texto, Inteiro& valor) {
    valor = static_cast<Inteiro>(text::ToInt(texto));
    return true;
  }
  static const char* Escreve(std::int64_t valor, Rascunho& rascunho) { return rascunho.Numero(valor); }
};

struct Flag {
  static bool Le(const char* texto, bool& valor) {
    valor = *texto == '1';
    return true;
  }
  static const char* Escreve(bool valor, Rascunho& /*rascunho*/) { return valor ? "1" : "0"; }
};

struct Caractere {
  static bool Le(const char* texto, char& valor) {
    valor = *texto;
    return true;
  }
  static const char* Escreve(char valor, Rascunho& rascunho) { return rascunho.Caractere(valor); }
};

struct Decimal {
  // A number beyond the field's range becomes the limit of the range, which can be written and read again.
  static bool Le(const char* texto, float& valor) {
    constexpr double kMaximo = std::numeric_limits<float>::max();
    valor = static_cast<float>(std::clamp(text::ToDouble(texto), -kMaximo, kMaximo));
    return true;
  }
  static const char* Escreve(float valor, Rascunho& rascunho) { return rascunho.Decimal(valor); }
};

struct Texto {
  static bool Le(const char* texto, std::string& valor) {
    valor = texto;
    return true;
  }
  static const char* Escreve(const std::string& valor, Rascunho& /*rascunho*/) { return valor.c_str(); }
};

// A value that is written as the word at its index in a list. A null word stands for a value whose attribute is left
// out.
class Palavras {
 public:
  enum class Igualdade { exata, semCaixa, primeiraLetra };
  static constexpr std::int32_t kRecusa = -1;

  // A value without a word of its own is written as `outraPalavra`. A text that is none of the words is read as
  // `outroValor`, or refused if that is kRecusa.
  template <std::size_t N>
  constexpr Palavras(const std::array<const char*, N>& palavras, const char* outraPalavra, std::int32_t outroValor,
                     Igualdade igualdade = Igualdade::exata)
      : palavras_(palavras.data()),
        quantidade_(N),
        outraPalavra_(outraPalavra),
        outroValor_(outroValor),
        igualdade_(igualdade) {}

  bool Le(const char* texto, std::int32_t& valor) const {
    for (std::int32_t i = 0; i < quantidade_; ++i) {
      if (palavras_[i] == nullptr || !Igual(texto, palavras_[i])) continue;
      valor = i;
      return true;
    }
    if (outroValor_ == kRecusa) return false;
    valor = outroValor_;
    return true;
  }

  const char* Escreve(std::int32_t valor, Rascunho& /*rascunho*/) const {
    return valor >= 0 && valor < quantidade_ ? palavras_[valor] : outraPalavra_;
  }

 private:
  bool Igual(std::string_view texto, std::string_view palavra) const {
    switch (igualdade_) {
      case Igualdade::semCaixa:
        return text::EqualNoCase(texto, palavra);
      case Igualdade::primeiraLetra:
        return texto.substr(0, 1) == palavra;
      case Igualdade::exata:
        break;
    }
    return texto == palavra;
  }

  const char* const* palavras_;
  std::int32_t quantidade_;
  const char* outraPalavra_;
  std::int32_t outroValor_;
  Igualdade igualdade_;
};

}  // namespace kestor
