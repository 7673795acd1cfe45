// What the objects know of the process that serves them: they keep it up, and they tell it what they change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/com/com.h"
#include "platform/files/keeping.h"

namespace kestor {

// What became of one model in a call that goes over many. The numbers are those of the protocol.
enum class Destino : std::uint16_t {
  nenhum = 0,         // the call is about one model
  convertido = 1,     // migration: its document is stored
  descartado = 2,     // migration: it had a document already and is deleted
  fica = 3,           // migration, and deletion of the first generation: stays as it is
  renumerado = 4,     // renumbering
  inalterado = 5,     // renumbering: nothing in it is to be renumbered; deletion: nothing is there
  ignorado = 6,       // renumbering: passed over
  substituiria = 7,   // rehearsed renumbering: would be stored over another model
  codigoSemCampo = 8  // rehearsed renumbering: a new code, in the place of the name, that no field has
};

// A change that an object has made or refused. Texts are code page 1252, the reason is UTF-8.
struct Mudanca {
  const char* classe = "";
  const char* metodo = "";
  std::string_view modulo = {};
  std::string_view componente = {};
  std::string_view modelo = {};
  HRESULT resultado = S_OK;
  std::string razao = {};
  std::string falta = {};                 // why the history lacks what was there before
  std::optional<std::size_t> bytes = {};  // of the content that was to be written

  // Of one model among many: how many the call is done with, this one included, and its content before and after.
  Destino destino = Destino::nenhum;
  std::size_t feitos = 0;
  std::size_t total = 0;
  std::string_view antes = {};
  std::string_view depois = {};
  bool substitui = false;  // it is stored over another model, whose name its document bears
};

// Used on the main thread, but for the count.
class Servidor {
 public:
  virtual LONG Trava() = 0;     // one live object more; the new count
  virtual LONG Destrava() = 0;  // one less; the new count

  // Tells of a change, with what has been said why (razao.h) where `mudanca` does not say it. Nothing while a Silencio
  // lives. Throws nothing: what is told changes no result.
  void Relata(Mudanca mudanca) noexcept;

  // While one lives, what the thread replaces or removes is kept, where the server keeps anything. What could not be
  // kept is said (razao.h) at its end. One within another does nothing.
  class Guarda {
   public:
    Guarda(Servidor& servidor, const Mudanca& mudanca)
        : servidor_(servidor),
          guarda_(files::Keeping::Current() == nullptr ? servidor.IniciaGuarda(mudanca) : nullptr) {}
    ~Guarda() {
      if (!guarda_.IsOutermost()) return;
      servidor_.DizFaltaDaGuarda();
      servidor_.TerminaGuarda();
    }
    Guarda(const Guarda&) = delete;
    Guarda& operator=(const Guarda&) = delete;

   private:
    Servidor& servidor_;
    const files::Keeping guarda_;
  };

  // Runs a method that changes the model `nome`, or refuses to, and tells of it. The method's result; E_OUTOFMEMORY
  // when it throws std::bad_alloc. A method that takes the Mudanca tells more of it.
  template <typename Metodo>
  HRESULT Executa(Mudanca mudanca, BSTR nome, const Metodo& metodo) {
    const Guarda guarda(*this, mudanca);
    try {
      if constexpr (std::is_invocable_v<const Metodo&, Mudanca&>) {
        mudanca.resultado = metodo(mudanca);
      } else {
        mudanca.resultado = metodo();
      }
    } catch (const std::bad_alloc&) {
      mudanca.resultado = E_OUTOFMEMORY;
    }
    RelataModelo(mudanca, nome);
    return mudanca.resultado;
  }

  // While one lives, changes are not told: what goes over many models tells of each in its own words, and not of the
  // methods that it calls for that.
  class Silencio {
   public:
    explicit Silencio(Servidor& servidor) : servidor_(servidor) { ++servidor_.silencios_; }
    ~Silencio() { --servidor_.silencios_; }
    Silencio(const Silencio&) = delete;
    Silencio& operator=(const Silencio&) = delete;

   private:
    Servidor& servidor_;
  };

 protected:
  ~Servidor() = default;

 private:
  void RelataModelo(const Mudanca& mudanca, BSTR nome) noexcept;
  void DizFaltaDaGuarda() noexcept;
  virtual void Anota(const Mudanca& /*mudanca*/) {}

  // What keeps the files that an operation changes; null: nothing does.
  virtual files::Keeper* IniciaGuarda(const Mudanca& /*operacao*/) noexcept { return nullptr; }
  virtual void TerminaGuarda() noexcept {}
  // Why some could not be kept since this was asked last, for people; empty when all were.
  virtual std::string FaltaDaGuarda() { return {}; }

  int silencios_ = 0;
  std::string falta_;  // the first thing in this operation that could not be kept
};

}  // namespace kestor
