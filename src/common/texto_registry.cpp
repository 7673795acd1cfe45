#include "texto_registry.h"

#include <vector>

namespace kestor {

bool LeTexto(HKEY chave, const char* valor, std::string* texto) {
  DWORD tamanho = 0;
  if (RegQueryValueExA(chave, valor, nullptr, nullptr, nullptr, &tamanho) != 0) return false;
  std::vector<char> dados(tamanho + 1, '\0');
  if (RegQueryValueExA(chave, valor, nullptr, nullptr, reinterpret_cast<BYTE*>(dados.data()), &tamanho) != 0) {
    return false;
  }
  *texto = dados.data();
  return true;
}

}  // namespace kestor
