// Texts in fields of fixed width, as records have them.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace kestor {

// Returns the text of a field: up to its NUL, or all of it if it has none.
inline std::string_view TextoDoCampo(std::string_view campo) {
  return campo.substr(0, campo.find('\0'));
}
template <std::size_t N>
std::string_view TextoDoCampo(const char (&campo)[N]) {
  return TextoDoCampo(std::string_view(campo, N));
}

// Copies a text into a field of zeros, cut so that a NUL follows it.
template <std::size_t N>
void PreencheCampo(char (&campo)[N], std::string_view texto) {
  texto = texto.substr(0, N - 1);
  // Not memcpy: for a length with a known bound, compilers turn it into an instruction that is slow for short texts.
  if (!texto.empty()) std::memmove(campo, texto.data(), texto.size());
}

}  // namespace kestor
