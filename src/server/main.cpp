#include "server/entrada.h"
#include "server/heranca.h"

int main() {
  kestor::RecusaHeranca();
  const int resultado = kestor::ExecutaServidor();
  // The system keeps the low 8 bits of an exit code only: a failure must not become 0 there.
  return resultado != 0 && (resultado & 0xFF) == 0 ? 1 : resultado;
}
