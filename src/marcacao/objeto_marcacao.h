// What the component's objects have in common. Each object is used on one thread.
#pragma once

#include "platform/com/object.h"

namespace kestor {

// Base of the component's objects. They do not keep the server process alive.
template <typename Interface, const IID& kInterface>
using ObjetoMarcacao = com::CountedObject<Interface, kInterface>;

// The class object of one of the component's classes, whose objects Objeto::Novo makes; lives as long as the component.
template <typename Objeto>
class FabricaMarcacao final : public com::UncountedObject<IClassFactory, IID_IClassFactory> {
 public:
  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    return com::CreateObject([]() -> IUnknown& { return *Objeto::Novo(); }, iid, object);
  }
  HRESULT LockServer(BOOL) override { return S_OK; }
};

}  // namespace kestor
