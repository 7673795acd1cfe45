// The server process as a whole: what it serves, what keeps it alive and how it ends.
#pragma once

#include <atomic>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "common/objeto_contado.h"
#include "history/history.h"
#include "journal/journal.h"
#include "platform/com/com.h"

namespace kestor {

class CModuloServidor;

// How long the process stays up without any object.
inline constexpr DWORD kTempoOciosoMs = 5000;

// Makes an object of a class for a client: arguments and results of IClassFactory::CreateInstance, whose checks are
// done.
using OperacaoCriacao = HRESULT (*)(CModuloServidor& modulo, IUnknown* outer, REFIID iid, void** object);

// One class that the server publishes.
struct LinhaClasse {
  CLSID classe;
  OperacaoCriacao criacao;
};

// One instance per process; used on the main thread but for what says otherwise.
class CModuloServidor final : public Servidor {
 public:
  // Made on the main thread, to which the shutdown monitor posts the quit message. `diario` and `historico` (null:
  // none) are not owned.
  explicit CModuloServidor(std::span<const LinhaClasse> classes, DWORD tempoOciosoMs = kTempoOciosoMs,
                           journal::Writer* diario = nullptr, history::Keeper* historico = nullptr);
  ~CModuloServidor();
  CModuloServidor(const CModuloServidor&) = delete;
  CModuloServidor& operator=(const CModuloServidor&) = delete;

  // The lock count: live objects of all classes and outstanding LockServer calls. Atomic. When it falls to 0 the
  // shutdown monitor begins to wait for the idle time.
  LONG Trava() override;
  LONG Destrava() override;
  LONG Travas() const { return travas_; }

  // Starts the shutdown monitor. False when the system gives no event or no thread; the process then never ends by
  // itself.
  bool IniciaMonitor();

  // Publishes the class objects in the table's order and stops at the first that cannot be.
  void RegistraClasses();
  // Withdraws them in the same order and stops at the first that is not published.
  void RetiraClasses();

 private:
  struct ClassePublicada {
    LinhaClasse linha;
    DWORD cookie = 0;
  };

  // Tells the client and the journal of a change.
  void Anota(const Mudanca& mudanca) override;
  files::Keeper* IniciaGuarda(const Mudanca& operacao) noexcept override;
  void TerminaGuarda() noexcept override;
  std::string FaltaDaGuarda() override;
  bool ENovidade(const Mudanca& mudanca);

  static DWORD ExecutaMonitor(void* modulo);
  void EncerraMonitor();

  std::atomic<LONG> travas_{0};
  std::atomic<bool> atividade_{false};
  std::atomic<bool> dispensaMonitor_{false};
  const DWORD threadPrincipal_;
  const DWORD tempoOciosoMs_;
  journal::Writer* const diario_;
  history::Keeper* const historico_;
  std::unordered_set<std::string> ficaram_;  // models that stay, and why, as the journal has them
  HANDLE eventoEncerramento_ = nullptr;
  HANDLE monitor_ = nullptr;
  std::vector<ClassePublicada> classes_;
};

}  // namespace kestor
