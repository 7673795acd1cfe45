// Objects that keep the server process alive.
#pragma once

#include <utility>

#include "common/servidor.h"
#include "platform/com/object.h"

namespace kestor {

// One object's share of the count; also of an object whose construction fails.
class Presenca {
 public:
  explicit Presenca(Servidor& servidor) : servidor_(&servidor) { servidor_->Trava(); }
  ~Presenca() { Encerra(); }
  Presenca(const Presenca&) = delete;
  Presenca& operator=(const Presenca&) = delete;

  void Encerra() {
    if (servidor_ != nullptr) servidor_->Destrava();
    servidor_ = nullptr;
  }

 private:
  Servidor* servidor_;
};

// An object without an outer object and with an atomic reference count. The process stays up from its construction to
// its end.
template <typename Interface, const IID& kInterface>
class ObjetoContado : public com::CountedObject<Interface, kInterface> {
 public:
  // Makes an object of the class `Objeto` (constructor arguments `argumentos`) and asks it for an interface.
  template <typename Objeto, typename... Argumentos>
  static HRESULT Cria(REFIID iid, void** object, Argumentos&&... argumentos) {
    return com::CreateObject([&]() -> IUnknown& { return *new Objeto(std::forward<Argumentos>(argumentos)...); }, iid,
                             object);
  }

 protected:
  explicit ObjetoContado(Servidor& servidor) : presenca_(servidor) {}

 private:
  void Discard() final {
    this->AddRef();  // a reference taken and given back while it goes must not end it twice
    presenca_.Encerra();
    delete this;
  }

  Presenca presenca_;
};

// The same for an object that may be part of an outer object: then its interface is the outer object's as far as
// identity and lifetime go, and the outer object holds the part by an IUnknown of the part's own.
template <typename Interface, const IID& kInterface>
class ObjetoAgregavel : public com::ObjectBase<Interface, kInterface> {
 public:
  HRESULT QueryInterface(REFIID iid, void** object) final { return externo_->QueryInterface(iid, object); }
  ULONG AddRef() final { return externo_->AddRef(); }
  ULONG Release() final { return externo_->Release(); }

  // As ObjetoContado::Cria; with an outer object (which is not counted: it outlives its part) the interface asked for
  // must be IUnknown, and is that of the part.
  template <typename Objeto, typename... Argumentos>
  static HRESULT Cria(IUnknown* externo, REFIID iid, void** object, Argumentos&&... argumentos) {
    return com::CreateObject(
        [&]() -> IUnknown& { return (new Objeto(externo, std::forward<Argumentos>(argumentos)...))->interno_; }, iid,
        object);
  }

 protected:
  ObjetoAgregavel(IUnknown* externo, Servidor& servidor)
      : interno_(*this), externo_(externo != nullptr ? externo : &interno_), presenca_(servidor) {}
  virtual ~ObjetoAgregavel() = default;

 private:
  using Base = com::ObjectBase<Interface, kInterface>;
  using BaseInterno = com::CountedObject<IUnknown, IID_IUnknown>;

  class Interno final : public BaseInterno {
   public:
    explicit Interno(ObjetoAgregavel& objeto) : objeto_(objeto) {}

    HRESULT QueryInterface(REFIID iid, void** object) override {
      return iid == IID_IUnknown ? BaseInterno::QueryInterface(iid, object) : objeto_.Base::QueryInterface(iid, object);
    }

   private:
    void Discard() override {
      AddRef();
      objeto_.presenca_.Encerra();
      delete &objeto_;
    }

    ObjetoAgregavel& objeto_;
  };

  Interno interno_;
  IUnknown* const externo_;
  Presenca presenca_;
};

}  // namespace kestor
