// Objects that keep the server process alive.
#pragma once

#include <utility>

#include "common/servidor.h"
#include "platform/com/object.h"

namespace kestor {

// Counts one live object of the server, and takes it off the count even if the object's construction fails.
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

// An object that cannot be aggregated, with an atomic reference count. It keeps the process alive from its construction
// to its last Release.
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
    this->AddRef();  // a reference taken and released during destruction must not destroy the object twice
    presenca_.Encerra();
    delete this;
  }

  Presenca presenca_;
};

// The same for an object that may be aggregated. Its interface then leaves identity and lifetime to the outer object,
// which holds the part through the part's own IUnknown.
template <typename Interface, const IID& kInterface>
class ObjetoAgregavel : public com::ObjectBase<Interface, kInterface> {
 public:
  HRESULT QueryInterface(REFIID iid, void** object) final { return externo_->QueryInterface(iid, object); }
  ULONG AddRef() final { return externo_->AddRef(); }
  ULONG Release() final { return externo_->Release(); }

  // Works like ObjetoContado::Cria. With an outer object, `iid` must be IUnknown, and the result is the part's own. The
  // part holds no reference to the outer object, which outlives it.
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
