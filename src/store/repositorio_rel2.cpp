#include "store/repositorio_rel2.h"

#include <new>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "platform/files/files.h"

namespace kestor {

CRepositorioRel2::CRepositorioRel2(Servidor& servidor, MigraModelos migra, Modo modo)
    : ObjetoContado(servidor), servidor_(servidor), migra_(migra), modo_(modo) {}

HRESULT CRepositorioRel2::Inicializa(BSTR bsModulo, BSTR bsComponente) {
  const std::string modulo = TextoDeBstr(bsModulo);
  std::uint32_t falha = CCaminhosInstalacao::BuscaCaminhoRelatorios(caminhoRelatorios_);
  if (falha == 0) falha = CCaminhosInstalacao::BuscaCaminhoModulo(modulo, caminhoModulo_);
  if (falha != 0) {
    DizRazao(CCaminhosInstalacao::PorQueFalta(modulo));
    return ServiceError(falha);
  }
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
  // Both generations share one folder, and mostly there is nothing to migrate: the folder is read once.
  const files::OneReading leitura;
  try {
    return migra_(servidor_, *this, modulo_, componente_, NomesDosModelos(*this));
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

std::vector<std::string> NomesDosModelos(IZNPL_Relatorio2& repositorio) {
  REG_ARRAY_RELATORIO2* recebida = nullptr;
  if (FAILED(repositorio.GetNomeRelatorios(&recebida)) || recebida == nullptr) return {};
  const TaskBlock<REG_ARRAY_RELATORIO2> lista(recebida);
  const TaskBlock<tagREG_NOME_RELATORIO2> entradas(lista->pregRelatorios);
  std::vector<std::string> nomes;
  for (std::size_t i = 0; i < lista->nQtdeRelatorios; ++i)
    nomes.emplace_back(entradas.get()[i].szNomeRelatorio);
  return nomes;
}

// Returns what the path of every model of the store begins with.
std::string CRepositorioRel2::Prefixo() const {
  return caminhoRelatorios_ + chaveModulo_;
}

Mudanca CRepositorioRel2::MudancaDe(const char* metodo) const {
  return {.classe = "ZNPL_Relatorio2", .metodo = metodo, .modulo = modulo_, .componente = componente_};
}

bool CRepositorioRel2::Inicializado() const {
  return !modulo_.empty() && !componente_.empty() && !caminhoRelatorios_.empty();
}

}  // namespace kestor
