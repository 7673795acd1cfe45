#include "server/fabrica_classe.h"

#include <new>

namespace kestor {

HRESULT CFabricaClasse::Cria(CModuloServidor& modulo, OperacaoCriacao criacao, IClassFactory** fabrica) {
  *fabrica = new (std::nothrow) CFabricaClasse(modulo, criacao);
  if (*fabrica == nullptr) return E_OUTOFMEMORY;
  (*fabrica)->AddRef();
  return S_OK;
}

HRESULT CFabricaClasse::CreateInstance(IUnknown* outer, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (outer != nullptr && !(iid == IID_IUnknown)) return CLASS_E_NOAGGREGATION;
  return criacao_(modulo_, outer, iid, object);
}

HRESULT CFabricaClasse::LockServer(BOOL lock) {
  if (lock != FALSE) {
    modulo_.Trava();
  } else {
    modulo_.Destrava();
  }
  return S_OK;
}

}  // namespace kestor
