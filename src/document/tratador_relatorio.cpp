#include "tratador_relatorio.h"

#include <new>

#include "document/vocabulario.h"

namespace kestor {

HRESULT CTratadorRelatorio::InicioElemento(const char* nome, IAtributosMarcacao* atributos) {
  try {
    pilha_.emplace_back(nome);
    if (pilha_.front() != vocabulario::kRelatorio.nome) return E_FAIL;
    return LeituraElementos(atributos).Le(vocabulario::kRelatorio, documento_, pilha_.data() + 1, pilha_.size() - 1);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CTratadorRelatorio::FimElemento(const char* /*nome*/) {
  if (!pilha_.empty()) pilha_.pop_back();
  return S_OK;
}

}  // namespace kestor
