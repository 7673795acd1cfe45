#include "server/entrada.h"

#include <unistd.h>

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "common/nomes_arquivos.h"
#include "contract/interfaces.h"
#include "document/rel_converte.h"
#include "legacy/repositorio_rel.h"
#include "marcacao/componente_marcacao.h"
#include "marshal/marshal.h"
#include "migration/conversor_rel.h"
#include "platform/home/home.h"
#include "registration.h"
#include "server/ensaio.h"
#include "server/linha_comando.h"
#include "server/modulo_servidor.h"
#include "store/repositorio_rel2.h"

namespace kestor {

namespace {

static_assert(kMaxConteudo <= marshal::kContentBytes, "a call carries the largest content");

constexpr DWORD kAutenticacaoNenhuma = 1;
constexpr DWORD kPersonificacao = 3;

HRESULT CriaRel(CModuloServidor& modulo, IUnknown* outer, REFIID iid, void** object) {
  return CRepositorioRel::Cria<CRepositorioRel>(outer, iid, object, modulo);
}

HRESULT CriaRepositorioRel(Servidor& servidor, REFIID iid, void** object) {
  return CRepositorioRel::Cria<CRepositorioRel>(nullptr, iid, object, servidor);
}

HRESULT MigraParaRepositorio(Servidor& servidor, IZNPL_Relatorio2& repositorio, const std::string& modulo,
                             const std::string& componente, const std::vector<std::string>& existentes) {
  CConversorRel conversor(repositorio, modulo, componente, servidor, CriaRepositorioRel);
  for (const std::string& nome : existentes)
    conversor.AdicionaNomeExistente(nome);
  return conversor.Executa();
}

HRESULT CriaRepositorioRel2(Servidor& servidor, REFIID iid, void** object) {
  return CRepositorioRel2::Cria<CRepositorioRel2>(iid, object, servidor, MigraParaRepositorio);
}

HRESULT CriaRelatorio2(CModuloServidor& modulo, IUnknown* outer, REFIID iid, void** object) {
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  return CriaRepositorioRel2(modulo, iid, object);
}

HRESULT CriaRelConverte(CModuloServidor& modulo, IUnknown* outer, REFIID iid, void** object) {
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  return CRelConverte::Cria<CRelConverte>(iid, object, modulo, CriaRepositorioRel2);
}

constexpr std::array<LinhaClasse, 3> kClasses = {{
    {CLSID_ZNPL_Rel, CriaRel},
    {CLSID_ZNPL_Relatorio2, CriaRelatorio2},
    {CLSID_ZNPL_RelConverte, CriaRelConverte},
}};

// Makes file names without a folder end up in a folder of the home, never in the one from which the server was started.
void EntraNaPastaDeTrabalho() {
  platform::Home::Current().MakeOnFirstUse();
  const std::filesystem::path pasta = platform::Home::Current().Work();
  std::error_code falha;
  std::filesystem::create_directories(pasta, falha);
  std::filesystem::current_path(pasta, falha);
  if (falha) std::filesystem::current_path("/", falha);
}

// Makes a process of root the owner's: root does not serve the home of another user, because the files are that user's.
bool PassaAoDonoDaCasa() {
  const std::optional<platform::Identity> dono = platform::Home::Current().ServingIdentity();
  return !dono || platform::Become(*dono);
}

void AtendeMensagens() {
  MSG mensagem{};
  while (GetMessageA(&mensagem, nullptr, 0, 0) != FALSE)
    DispatchMessageA(&mensagem);
}

}  // namespace

void AtendeClientes(CModuloServidor& modulo, DWORD pausaFinalMs) {
  modulo.IniciaMonitor();
  modulo.RegistraClasses();
  // Keeps serving a client whose object was created between the monitor's decision and its message: the client already
  // has its answer and could not be sent to another server.
  for (AtendeMensagens(); modulo.Travas() != 0; AtendeMensagens())
    modulo.IniciaMonitor();
  modulo.RetiraClasses();
  Sleep(pausaFinalMs);
}

int ExecutaServidor() {
  const char* linha = GetCommandLineA();
  CoInitialize(nullptr);
  CoInitializeSecurity(nullptr, -1, nullptr, nullptr, kAutenticacaoNenhuma, kPersonificacao, nullptr, 0, nullptr);
  HRESULT resultado = S_OK;
  {
    journal::Writer diario(platform::Home::Current());
    history::Keeper historico;
    CModuloServidor modulo(kClasses, kTempoOciosoMs, &diario, &historico);
    switch (ExaminaLinhaComando(linha)) {
      case Chamada::cancelamento:
        resultado = DesregistraServidor(platform::ExecutablePath());
        break;
      case Chamada::registro:
        resultado = RegistraServidor(platform::ExecutablePath());
        break;
      case Chamada::servidor: {
        if (!PassaAoDonoDaCasa()) {
          resultado = E_ACCESSDENIED;
          break;
        }
        marshal::RegisterInterfaces();
        marshal::RegisterRehearsals({EnsaiaMigracao, EnsaiaRenumeracao});
        const ComponenteMarcacao marcacao;
        EntraNaPastaDeTrabalho();
        AtendeClientes(modulo);
        break;
      }
    }
  }
  CoUninitialize();
  return resultado;
}

}  // namespace kestor
