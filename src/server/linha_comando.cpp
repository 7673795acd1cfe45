#include "server/linha_comando.h"

#include <cstring>

#include "platform/text/text.h"

namespace kestor {

const char* ProximoParametro(const char* texto, const char* iniciais) {
  for (; *texto != '\0'; texto = CharNextA(texto)) {
    if (std::strchr(iniciais, *texto) != nullptr) return CharNextA(texto);
  }
  return nullptr;
}

Chamada ExaminaLinhaComando(const char* linha) {
  constexpr const char* kIniciais = "-/";
  for (const char* parametro = ProximoParametro(linha, kIniciais); parametro != nullptr;
       parametro = ProximoParametro(parametro, kIniciais)) {
    if (lstrcmpiA(parametro, "UnregServer") == 0) return Chamada::cancelamento;
    if (lstrcmpiA(parametro, "RegServer") == 0) return Chamada::registro;
  }
  return Chamada::servidor;
}

}  // namespace kestor
