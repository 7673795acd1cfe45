// Bases of objects with one interface besides IUnknown: they answer for the interface and count references, so that a
// class only says which interface it has.
#pragma once

#include <new>

#include "platform/com/com.h"

namespace com {

// Answers for IUnknown and `kInterface`.
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

// An object without a reference count. What makes it owns it, and nothing may keep it beyond the call in which it was
// handed over.
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
  // The last reference is gone.
  virtual void Discard() { delete this; }

  LONG volatile references_ = 0;
};

// Asks the object that `make` makes, without a reference, for an interface. An object without that interface goes
// again. The way in which a class object makes one: E_OUTOFMEMORY when `make` throws std::bad_alloc.
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
