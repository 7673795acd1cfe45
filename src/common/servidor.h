// What the objects see of the process that serves them: they keep it alive, and they report to it what they change.
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

// What became of one model in a call that processes many. The numbers are those of the protocol.
enum class Destino : std::uint16_t {
  nenhum = 0,         // the call is about one model
  convertido = 1,     // migration: its document is stored
  descartado = 2,     // migration: deleted, because its document existed already
  fica = 3,           // migration and first-generation deletion: left as it is
  renumerado = 4,     // renumbering
  inalterado = 5,     // renumbering: nothing in it changes; deletion: there is no file
  ignorado = 6,       // renumbering: skipped
  substituiria = 7,   // rehearsed renumbering: would overwrite another model
  codigoSemCampo = 8  // rehearsed renumbering: a new code, in place of the name, that no field has
};

// A change that an object has made or refused. Names are code page 1252; `razao` and `falta` are UTF-8.
struct Mudanca {
  const char* classe = "";
  const char* metodo = "";
  std::string_view modulo = {};
  std::string_view componente = {};
  std::string_view modelo = {};
  HRESULT resultado = S_OK;
  std::string razao = {};
  std::string falta = {};                 // why the history lacks the content before the change
  std::optional<std::size_t> bytes = {};  // of the content that was to be written

  // For one model among many: how many of all models the call has finished, including this one, and the model's content
  // before and after.
  Destino destino = Destino::nenhum;
  std::size_t feitos = 0;
  std::size_t total = 0;
  std::string_view antes = {};
  std::string_view depois = {};
  bool substitui = false;  // it overwrites another model, whose name its document bears
};

// Used on the main thread, except Trava and Destrava.
class Servidor {
 public:
  virtual LONG Trava() = 0;     // one live object more; the new count
  virtual LONG Destrava() = 0;  // one less; the new count

  // Reports a change, with the recorded reason (razao.h) if `mudanca` has none. Does nothing while a Silencio lives. A
  // report that fails changes no result.
  void Relata(Mudanca mudanca) noexcept;

  // While one lives, the files that the thread replaces or removes are kept, if the server keeps a history. The
  // destructor records (razao.h) why a file could not be kept. A nested one does nothing.
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

  // Runs a method that changes the model `nome` or refuses to, and reports it. Returns the method's result, or
  // E_OUTOFMEMORY if it throws std::bad_alloc. A method that takes the Mudanca can add to the report.
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

  // While one lives, changes are not reported: a call that processes many models reports each model itself, and not the
  // methods that it calls for it.
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

  // Returns the keeper of the files that an operation changes; null if nothing is kept.
  virtual files::Keeper* IniciaGuarda(const Mudanca& /*operacao*/) noexcept { return nullptr; }
  virtual void TerminaGuarda() noexcept {}
  // Returns for people why files could not be kept since the last call; empty if all were kept.
  virtual std::string FaltaDaGuarda() { return {}; }

  int silencios_ = 0;
  std::string falta_;  // why a file could not be kept in this operation; the first reason
};

}  // namespace kestor
