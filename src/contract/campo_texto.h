// Texts in fields of fixed width, as records have them.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace kestor {

// What a field says: up to its NUL, or all of it when it has none.
inline std::string_view TextoDoCampo(std::string_view campo) {
  return campo.substr(0, campo.find('\0'));
}
template <std::size_t N>
std::string_view TextoDoCampo(const char (&campo)[N]) {
  return TextoDoCampo(std::string_view(campo, N));
}

// Fills a field of zeros with as much of a text as leaves it a NUL.
template <std::size_t N>
void PreencheCampo(char (&campo)[N], std::string_view texto) {
  texto = texto.substr(0, N - 1);
  // Not memcpy: where the length has a bound, compilers make of it an instruction that is slow for short texts.
  if (!texto.empty()) std::memmove(campo, texto.data(), texto.size());
}

}  // namespace kestor
