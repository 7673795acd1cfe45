// Bases of objects with one interface besides IUnknown: they answer for the interface and count references, so that a
// class only says which interface it has.
#pragma once

#include <atomic>
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

// An object with a reference count, which starts at 0. `Count` is ULONG for an object whose references are taken and
// given back on one thread only.
template <typename Interface, const IID& kInterface, typename Count = std::atomic<ULONG>>
class CountedObject : public ObjectBase<Interface, kInterface> {
 public:
  ULONG AddRef() override { return ++references_; }
  ULONG Release() override {
    const ULONG left = --references_;
    if (left == 0) Discard();
    return left;
  }

 protected:
  virtual ~CountedObject() = default;

 private:
  // The last reference is gone.
  virtual void Discard() { delete this; }

  Count references_{0};
};

// Asks the object that `make` makes, without a reference, for an interface. An object without that interface goes
// again. The way in which a class object makes one: E_OUTOFMEMORY when `make` throws std::bad_alloc.
template <typename Make>
HRESULT CreateObject(const Make& make, REFIID iid, void** object) {
  try {
    IUnknown& made = make();
    made.AddRef();
    const HRESULT result = made.QueryInterface(iid, object);
    made.Release();
    return result;  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the client's reference holds it
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace com
