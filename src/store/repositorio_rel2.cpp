#include "store/repositorio_rel2.h"

#include <new>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "platform/files/files.h"

namespace kestor {

CRepositorioRel2::CRepositorioRel2(ContagemServidor& servidor, MigraModelos migra)
    : ObjetoContado(servidor), servidor_(servidor), migra_(migra) {}

HRESULT CRepositorioRel2::Inicializa(BSTR bsModulo, BSTR bsComponente) {
  const std::string modulo = TextoDeBstr(bsModulo);
  if (const auto falha = CCaminhosInstalacao::BuscaCaminhoRelatorios(caminhoRelatorios_)) return ServiceError(falha);
  if (const auto falha = CCaminhosInstalacao::BuscaCaminhoModulo(modulo, caminhoModulo_)) return ServiceError(falha);
  modulo_ = modulo;
  componente_ = TextoDeBstr(bsComponente);
  const std::string chave = modulo_ + componente_;
  const std::string padrao = CaminhoPadroes(caminhoRelatorios_);
  if (chave != chaveModulo_ || padrao != arquivoPadrao_) registroPadrao_ = 0;
  chaveModulo_ = chave;
  arquivoPadrao_ = padrao;
  arquivoExcluidos_ = CaminhoExcluidos(caminhoRelatorios_);
  return migra_ == nullptr ? S_OK : Migra();
}

HRESULT CRepositorioRel2::Migra() {
  // Both generations lie in one folder, and mostly nothing is to be migrated.
  const files::OneReading leitura;
  try {
    return migra_(servidor_, *this, modulo_, componente_, NomesExistentes());
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

// None when they cannot be listed.
std::vector<std::string> CRepositorioRel2::NomesExistentes() {
  REG_ARRAY_RELATORIO2* recebida = nullptr;
  if (FAILED(GetNomeRelatorios(&recebida)) || recebida == nullptr) return {};
  const TaskBlock<REG_ARRAY_RELATORIO2> lista(recebida);
  const TaskBlock<tagREG_NOME_RELATORIO2> entradas(lista->pregRelatorios);
  std::vector<std::string> nomes;
  for (std::size_t i = 0; i < lista->nQtdeRelatorios; ++i)
    nomes.emplace_back(entradas.get()[i].szNomeRelatorio);
  return nomes;
}

// What the path of every model of the store begins with.
std::string CRepositorioRel2::Prefixo() const {
  return caminhoRelatorios_ + chaveModulo_;
}

bool CRepositorioRel2::Inicializado() const {
  return !modulo_.empty() && !componente_.empty() && !caminhoRelatorios_.empty();
}

}  // namespace kestor
