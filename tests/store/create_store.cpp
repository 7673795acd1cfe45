#include "create_store.h"

#include "store/repositorio_rel2.h"

HRESULT CreateStore(kestor::ContagemServidor& counter, REFIID iid, void** object) {
  return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, counter);
}
