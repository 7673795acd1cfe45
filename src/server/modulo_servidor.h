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

// Creates an object of a class for a client. Arguments and results as of IClassFactory::CreateInstance, which has
// checked the arguments.
using OperacaoCriacao = HRESULT (*)(CModuloServidor& modulo, IUnknown* outer, REFIID iid, void** object);

// One class that the server publishes.
struct LinhaClasse {
  CLSID classe;
  OperacaoCriacao criacao;
};

// One instance per process. Only the main thread uses it, except where noted.
class CModuloServidor final : public Servidor {
 public:
  // Constructed on the main thread, to which the shutdown monitor posts the quit message. `diario` and `historico`
  // (null: none) are not owned.
  explicit CModuloServidor(std::span<const LinhaClasse> classes, DWORD tempoOciosoMs = kTempoOciosoMs,
                           journal::Writer* diario = nullptr, history::Keeper* historico = nullptr);
  ~CModuloServidor();
  CModuloServidor(const CModuloServidor&) = delete;
  CModuloServidor& operator=(const CModuloServidor&) = delete;

  // The lock count: live objects of all classes and outstanding LockServer calls. Atomic. When it falls to 0, the
  // shutdown monitor starts to wait for the idle time.
  LONG Trava() override;
  LONG Destrava() override;
  LONG Travas() const { return travas_; }

  // Starts the shutdown monitor. Returns false when the system provides no event or no thread; the process then never
  // ends by itself.
  bool IniciaMonitor();

  // Publishes the class objects in the table's order and stops at the first failure.
  void RegistraClasses();
  // Withdraws them in the same order and stops at the first that is not published.
  void RetiraClasses();

 private:
  struct ClassePublicada {
    LinhaClasse linha;
    DWORD cookie = 0;
  };

  // Reports a change to the client and to the journal.
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
  std::unordered_set<std::string> ficaram_;  // models that stay, and why, already in the journal
  HANDLE eventoEncerramento_ = nullptr;
  HANDLE monitor_ = nullptr;
  std::vector<ClassePublicada> classes_;
};

}  // namespace kestor
