// Objects that keep the server process alive.
#pragma once

#include <new>
#include <utility>

#include "platform/com/com.h"

namespace kestor {

// What counts the live objects of the process, and ends it some time after the last one is gone.
class ContagemServidor {
 public:
  virtual LONG Trava() = 0;     // one more; the new count
  virtual LONG Destrava() = 0;  // one less; the new count

 protected:
  ~ContagemServidor() = default;
};

// One object's share of the count; also of an object whose construction fails.
class Presenca {
 public:
  explicit Presenca(ContagemServidor& servidor) : servidor_(&servidor) { servidor_->Trava(); }
  ~Presenca() { Encerra(); }
  Presenca(const Presenca&) = delete;
  Presenca& operator=(const Presenca&) = delete;

  void Encerra() {
    if (servidor_ != nullptr) servidor_->Destrava();
    servidor_ = nullptr;
  }

 private:
  ContagemServidor* servidor_;
};

// An object with one interface besides IUnknown, no outer object and an atomic reference count, which starts at 0. The
// process stays up from its construction to its end.
template <typename Interface>
class ObjetoContado : public Interface {
 public:
  ObjetoContado(const ObjetoContado&) = delete;
  ObjetoContado& operator=(const ObjetoContado&) = delete;

  HRESULT QueryInterface(REFIID iid, void** object) final {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!(iid == IID_IUnknown) && !(iid == iid_)) return E_NOINTERFACE;
    *object = static_cast<Interface*>(this);
    AddRef();
    return S_OK;
  }

  ULONG AddRef() final { return static_cast<ULONG>(InterlockedIncrement(&referencias_)); }

  ULONG Release() final {
    const LONG restantes = InterlockedDecrement(&referencias_);
    if (restantes == 0) Destroi();
    return static_cast<ULONG>(restantes);
  }

  // Makes an object of the class `Objeto` (constructor arguments `argumentos`) and asks it for an interface, the way in
  // which a class object makes one: E_OUTOFMEMORY, or the failure of the question, with nothing left.
  template <typename Objeto, typename... Argumentos>
  static HRESULT Cria(REFIID iid, void** object, Argumentos&&... argumentos) {
    Objeto* novo = nullptr;
    try {
      novo = new Objeto(std::forward<Argumentos>(argumentos)...);
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    }
    const HRESULT resultado = novo->QueryInterface(iid, object);
    if (FAILED(resultado)) novo->Destroi();
    return resultado;
  }

 protected:
  ObjetoContado(REFIID iid, ContagemServidor& servidor) : iid_(iid), presenca_(servidor) {}
  virtual ~ObjetoContado() = default;

 private:
  void Destroi() {
    referencias_ = 1;  // a reference taken and given back while it goes must not end it twice
    presenca_.Encerra();
    delete this;
  }

  const IID iid_;
  Presenca presenca_;
  LONG volatile referencias_ = 0;
};

// The same for an object that may be part of an outer object: then its interface is the outer object's as far as
// identity and lifetime go, and the outer object holds the part by an IUnknown of the part's own. The reference count
// is plain: all calls come on the main thread.
template <typename Interface>
class ObjetoAgregavel : public Interface {
 public:
  ObjetoAgregavel(const ObjetoAgregavel&) = delete;
  ObjetoAgregavel& operator=(const ObjetoAgregavel&) = delete;

  HRESULT QueryInterface(REFIID iid, void** object) final { return externo_->QueryInterface(iid, object); }
  ULONG AddRef() final { return externo_->AddRef(); }
  ULONG Release() final { return externo_->Release(); }

  // As ObjetoContado::Cria; with an outer object (which is not counted: it outlives its part) the interface asked for
  // must be IUnknown, and is that of the part.
  template <typename Objeto, typename... Argumentos>
  static HRESULT Cria(IUnknown* externo, REFIID iid, void** object, Argumentos&&... argumentos) {
    Objeto* novo = nullptr;
    try {
      novo = new Objeto(externo, std::forward<Argumentos>(argumentos)...);
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    }
    const HRESULT resultado = novo->interno_.QueryInterface(iid, object);
    if (FAILED(resultado)) novo->Destroi();
    return resultado;  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): it is the client's reference that holds it
  }

 protected:
  ObjetoAgregavel(REFIID iid, IUnknown* externo, ContagemServidor& servidor)
      : iid_(iid), interno_(*this), externo_(externo != nullptr ? externo : &interno_), presenca_(servidor) {}
  virtual ~ObjetoAgregavel() = default;

 private:
  class Interno final : public IUnknown {
   public:
    explicit Interno(ObjetoAgregavel& objeto) : objeto_(objeto) {}

    HRESULT QueryInterface(REFIID iid, void** object) override {
      if (object == nullptr) return E_POINTER;
      *object = nullptr;
      if (iid == IID_IUnknown) {
        *object = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
      }
      if (!(iid == objeto_.iid_)) return E_NOINTERFACE;
      *object = static_cast<Interface*>(&objeto_);
      objeto_.AddRef();
      return S_OK;
    }

    ULONG AddRef() override { return static_cast<ULONG>(++objeto_.referencias_); }

    ULONG Release() override {
      const LONG restantes = --objeto_.referencias_;
      if (restantes == 0) objeto_.Destroi();
      return static_cast<ULONG>(restantes);
    }

   private:
    ObjetoAgregavel& objeto_;
  };

  void Destroi() {
    referencias_ = 1;
    presenca_.Encerra();
    delete this;
  }

  const IID iid_;
  Interno interno_;
  IUnknown* const externo_;
  Presenca presenca_;
  LONG referencias_ = 0;
};

}  // namespace kestor
