#include "server/modulo_servidor.h"

#include <exception>
#include <string_view>
#include <utility>

#include "server/fabrica_classe.h"
#include "server/monitor_encerramento.h"
#include "server/relato.h"

namespace kestor {

namespace {

// Thrown from the monitor's wait when the process no longer needs the monitor.
struct MonitorDispensado {};

}  // namespace

CModuloServidor::CModuloServidor(std::span<const LinhaClasse> classes, DWORD tempoOciosoMs, journal::Writer* diario,
                                 history::Keeper* historico)
    : threadPrincipal_(GetCurrentThreadId()), tempoOciosoMs_(tempoOciosoMs), diario_(diario), historico_(historico) {
  for (const LinhaClasse& linha : classes)
    classes_.push_back({linha});
}

CModuloServidor::~CModuloServidor() {
  EncerraMonitor();
}

LONG CModuloServidor::Trava() {
  return ++travas_;
}

LONG CModuloServidor::Destrava() {
  const LONG restantes = --travas_;
  if (restantes == 0) {
    atividade_ = true;
    SetEvent(eventoEncerramento_);
  }
  return restantes;
}

void CModuloServidor::Anota(const Mudanca& mudanca) {
  RelataAoCliente(mudanca, false);
  if (diario_ != nullptr && ENovidade(mudanca)) RelataAoDiario(mudanca, *diario_);
}

files::Keeper* CModuloServidor::IniciaGuarda(const Mudanca& operacao) noexcept {
  if (historico_ == nullptr) return nullptr;
  try {
    if (!historico_->IsWanted()) return nullptr;
    historico_->Begin({.user = UsuarioDoCliente(),
                       .method = operacao.metodo,
                       .module = std::string(operacao.modulo),
                       .component = std::string(operacao.componente),
                       .ofFirstGeneration = std::string_view(operacao.classe) == "ZNPL_Rel"});
    return historico_;
  } catch (const std::exception&) {
    return nullptr;  // without memory the operation fails as well
  }
}

void CModuloServidor::TerminaGuarda() noexcept {
  historico_->End();
}

std::string CModuloServidor::FaltaDaGuarda() {
  return historico_ != nullptr ? historico_->TakeTrouble() : std::string();
}

// Every initialisation finds the models that stay again. An entry each time would drive everything else out of the
// journal.
bool CModuloServidor::ENovidade(const Mudanca& mudanca) {
  constexpr std::size_t kLembradas = 10000;
  if (mudanca.destino != Destino::fica || mudanca.resultado != S_OK || mudanca.total == 0) return true;
  if (ficaram_.size() >= kLembradas) ficaram_.clear();
  std::string chave;
  for (const std::string_view parte :
       {mudanca.modulo, mudanca.componente, mudanca.modelo, std::string_view(mudanca.razao)})
    chave.append(parte) += '\0';
  return ficaram_.insert(std::move(chave)).second;
}

bool CModuloServidor::IniciaMonitor() {
  EncerraMonitor();
  eventoEncerramento_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  if (eventoEncerramento_ == nullptr) return false;
  monitor_ = CreateThread(nullptr, 0, ExecutaMonitor, this, 0, nullptr);
  return monitor_ != nullptr;
}

DWORD CModuloServidor::ExecutaMonitor(void* modulo) {
  auto& proprio = *static_cast<CModuloServidor*>(modulo);
  const auto espera = [&proprio](DWORD milissegundos) {
    const DWORD fim = WaitForSingleObject(proprio.eventoEncerramento_, milissegundos);
    if (proprio.dispensaMonitor_) throw MonitorDispensado{};
    return fim == WAIT_OBJECT_0;
  };
  try {
    AguardaOciosidade(espera, proprio.tempoOciosoMs_, proprio.atividade_, proprio.travas_);
    PostThreadMessageA(proprio.threadPrincipal_, WM_QUIT, 0, 0);
  } catch (const MonitorDispensado&) {
  }
  return 0;
}

// Ends the monitor, even when the process ends for another reason. Closes the event only when the monitor has ended and
// the main thread, which signals it, is here.
void CModuloServidor::EncerraMonitor() {
  dispensaMonitor_ = true;
  SetEvent(eventoEncerramento_);
  if (monitor_ != nullptr) WaitForSingleObject(monitor_, INFINITE);
  dispensaMonitor_ = false;
  CloseHandle(monitor_);
  CloseHandle(eventoEncerramento_);
  monitor_ = nullptr;
  eventoEncerramento_ = nullptr;
}

void CModuloServidor::RegistraClasses() {
  for (ClassePublicada& publicada : classes_) {
    ComPtr<IClassFactory> fabrica;
    if (FAILED(CFabricaClasse::Cria(*this, publicada.linha.criacao, fabrica.Out()))) return;
    if (FAILED(CoRegisterClassObject(publicada.linha.classe, fabrica.Get(), CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
                                     REGCLS_MULTIPLEUSE, &publicada.cookie))) {
      return;
    }
  }
}

void CModuloServidor::RetiraClasses() {
  for (const ClassePublicada& publicada : classes_) {
    if (FAILED(CoRevokeClassObject(publicada.cookie))) return;
  }
}

}  // namespace kestor
