// Base classes of objects with one interface besides IUnknown. They implement QueryInterface and count references, so
// that a class only names its interface.
#pragma once

#include <new>

#include "platform/com/com.h"

namespace com {

// Implements QueryInterface for IUnknown and `kInterface`.
template <typename Interface, const IID& kInterface>
class ObjectBase : public Interface {
 public:
  ObjectBase() = default;
  ObjectBase(const ObjectBase&) = delete;
  ObjectBase& operator=(const ObjectBase&) = delete;

  HRESULT QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!(iid == kInterface) && !(iid == IID_IUnknown)) return E_NOINTERFACE;
    *object = static_cast<Interface*>(this);
    this->AddRef();
    return S_OK;
  }

 protected:
  ~ObjectBase() = default;
};

// An object without a reference count. Its creator owns it, and a callee must not keep it beyond the call.
template <typename Interface, const IID& kInterface>
class UncountedObject : public ObjectBase<Interface, kInterface> {
 public:
  ULONG AddRef() override { return 1; }
  ULONG Release() override { return 1; }

 protected:
  ~UncountedObject() = default;
};

// An object with an atomic reference count, which starts at 0.
template <typename Interface, const IID& kInterface>
class CountedObject : public ObjectBase<Interface, kInterface> {
 public:
  ULONG AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references_)); }
  ULONG Release() override {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) Discard();
    return static_cast<ULONG>(left);
  }

 protected:
  virtual ~CountedObject() = default;

 private:
  // Called when the last reference is released.
  virtual void Discard() { delete this; }

  LONG volatile references_ = 0;
};

// Creates an object with `make`, which returns it without a reference, and asks it for an interface. Destroys an object
// that lacks the interface. Returns E_OUTOFMEMORY when `make` throws std::bad_alloc.
template <typename Make>
HRESULT CreateObject(const Make& make, REFIID iid, void** object) {
  try {
    IUnknown& made = make();
    const HRESULT result = made.QueryInterface(iid, object);
    if (FAILED(result)) {
      made.AddRef();
      made.Release();
    }
    return result;  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the client's reference holds it
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace com
