#include "marcacao/componente_marcacao.h"

#include "atributos_marcacao.h"
#include "escritor_marcacao.h"
#include "leitor_marcacao.h"

namespace kestor {

namespace {

template <typename Objeto>
DWORD Publica(REFCLSID classe) {
  static FabricaMarcacao<Objeto> fabrica;
  DWORD cookie = 0;
  CoRegisterClassObject(classe, &fabrica, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
  return cookie;
}

}  // namespace

ComponenteMarcacao::ComponenteMarcacao()
    : cookies_{Publica<CLeitorMarcacao>(CLSID_LeitorMarcacao), Publica<CEscritorMarcacao>(CLSID_EscritorMarcacao),
               Publica<CAtributosMarcacao>(CLSID_AtributosMarcacao)} {}

ComponenteMarcacao::~ComponenteMarcacao() {
  for (const DWORD cookie : cookies_)
    CoRevokeClassObject(cookie);
}

}  // namespace kestor
