// What the component's objects have in common: reference counts, which start at 0, and class factories. An object is
// used on one thread.
#pragma once

#include <new>

#include "platform/com/com.h"

namespace kestor {

// An object with one interface besides IUnknown. It does not keep the server's process alive.
template <typename Interface, const IID& kInterface>
class ObjetoMarcacao : public Interface {
 public:
  ObjetoMarcacao() = default;
  ObjetoMarcacao(const ObjetoMarcacao&) = delete;
  ObjetoMarcacao& operator=(const ObjetoMarcacao&) = delete;

  HRESULT QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!(iid == IID_IUnknown) && !(iid == kInterface)) return E_NOINTERFACE;
    *object = static_cast<Interface*>(this);
    AddRef();
    return S_OK;
  }
  ULONG AddRef() override { return ++referencias_; }
  ULONG Release() override {
    const ULONG restantes = --referencias_;
    if (restantes == 0) Descarta();
    return restantes;
  }

  // Ends an object to which nobody has a reference.
  virtual void Descarta() { delete this; }

 protected:
  virtual ~ObjetoMarcacao() = default;

 private:
  ULONG referencias_ = 0;
};

// The class object of one of the component's classes, whose objects Objeto::Novo makes; lives as long as the component.
template <typename Objeto>
class FabricaMarcacao final : public IClassFactory {
 public:
  HRESULT QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    const bool conhecida = iid == IID_IUnknown || iid == IID_IClassFactory;
    *object = conhecida ? static_cast<IClassFactory*>(this) : nullptr;
    return conhecida ? S_OK : E_NOINTERFACE;
  }
  ULONG AddRef() override { return 1; }
  ULONG Release() override { return 1; }

  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    try {
      Objeto* novo = Objeto::Novo();
      const HRESULT resultado = novo->QueryInterface(iid, object);
      if (FAILED(resultado)) novo->Descarta();
      return resultado;
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    }
  }
  HRESULT LockServer(BOOL) override { return S_OK; }
};

}  // namespace kestor
