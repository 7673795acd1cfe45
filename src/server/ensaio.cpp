#include "server/ensaio.h"

#include <new>
#include <string>

#include "common/texto_bstr.h"
#include "document/conversor_codigos.h"
#include "legacy/repositorio_rel.h"
#include "migration/conversor_rel.h"
#include "server/relato.h"
#include "store/repositorio_rel2.h"

namespace kestor {

namespace {

// Passes what the objects of a rehearsal report to the client alone. Counts no objects, because they live no longer
// than the call.
class ServidorDeEnsaio final : public Servidor {
 public:
  LONG Trava() override { return 1; }
  LONG Destrava() override { return 1; }

 private:
  void Anota(const Mudanca& mudanca) override {
    Mudanca contada = mudanca;
    if (contada.substitui) contada.destino = Destino::substituiria;
    RelataAoCliente(contada, true);
  }
};

HRESULT CriaLegadoDeEnsaio(Servidor& servidor, REFIID iid, void** object) {
  return CRepositorioRel::Cria<CRepositorioRel>(nullptr, iid, object, servidor);
}

// Runs `ensaio` on a store that writes nothing.
template <typename Ensaio>
HRESULT ComRepositorio(BSTR modulo, BSTR componente, const Ensaio& ensaio) {
  try {
    ServidorDeEnsaio servidor;
    ComPtr<IZNPL_Relatorio2> repositorio;
    const HRESULT criacao = CRepositorioRel2::Cria<CRepositorioRel2>(IID_IZNPL_Relatorio2, repositorio.OutVoid(),
                                                                     servidor, nullptr, CRepositorioRel2::Modo::ensaio);
    if (FAILED(criacao)) return criacao;
    const HRESULT inicio = repositorio->Inicializa(modulo, componente);
    if (FAILED(inicio)) return inicio;
    return ensaio(servidor, *repositorio, TextoDeBstr(modulo), TextoDeBstr(componente));
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT Migra(Servidor& servidor, IZNPL_Relatorio2& repositorio, const std::string& modulo,
              const std::string& componente) {
  CConversorRel conversor(repositorio, modulo, componente, servidor, CriaLegadoDeEnsaio, CConversorRel::Modo::ensaio);
  for (const std::string& nome : NomesDosModelos(repositorio))
    conversor.AdicionaNomeExistente(nome);
  return conversor.Executa();
}

}  // namespace

HRESULT EnsaiaMigracao(BSTR modulo, BSTR componente) {
  return ComRepositorio(modulo, componente, Migra);
}

HRESULT EnsaiaRenumeracao(BSTR modulo, BSTR componente, LONG quantidade, REL_CODIGO_CAMPOS_ALTERADOS* pares) {
  return ComRepositorio(modulo, componente,
                        [=](Servidor& servidor, IZNPL_Relatorio2& repositorio, const std::string& nomeModulo,
                            const std::string& nomeComponente) {
                          // The call initialises a store, which migrates first.
                          const HRESULT migracao = Migra(servidor, repositorio, nomeModulo, nomeComponente);
                          if (FAILED(migracao)) return migracao;
                          CConversorCodigos conversor(servidor, repositorio, nomeModulo, nomeComponente, quantidade,
                                                      pares);
                          conversor.RelataCodigosSemCampo();
                          return conversor.Executa();
                        });
}

}  // namespace kestor
