// The class object of one class.
#pragma once

#include "platform/com/object.h"
#include "server/modulo_servidor.h"

namespace kestor {

// Class objects do not keep the server alive.
class CFabricaClasse final : public com::CountedObject<IClassFactory, IID_IClassFactory> {
 public:
  // Creates a class object with one reference; E_OUTOFMEMORY when memory runs out.
  static HRESULT Cria(CModuloServidor& modulo, OperacaoCriacao criacao, IClassFactory** fabrica);

  // Returns E_POINTER for null `object`, CLASS_E_NOAGGREGATION when an outer object asks for anything but IUnknown,
  // otherwise the result of the class's creation.
  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) override;

  // Returns S_OK. An outstanding lock keeps the process up like an object.
  HRESULT LockServer(BOOL lock) override;

 private:
  CFabricaClasse(CModuloServidor& modulo, OperacaoCriacao criacao) : modulo_(modulo), criacao_(criacao) {}

  CModuloServidor& modulo_;
  const OperacaoCriacao criacao_;
};

}  // namespace kestor
