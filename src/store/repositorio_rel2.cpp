#include "store/repositorio_rel2.h"

#include "common/caminhos_instalacao.h"
#include "common/texto_bstr.h"
#include "contract/results.h"

namespace kestor {

CRepositorioRel2::CRepositorioRel2(ContagemServidor& servidor) : ObjetoContado(IID_IZNPL_Relatorio2, servidor) {}

HRESULT CRepositorioRel2::Inicializa(BSTR bsModulo, BSTR bsComponente) {
  const std::string modulo = TextoDeBstr(bsModulo);
  if (const auto falha = CCaminhosInstalacao::BuscaCaminhoRelatorios(caminhoRelatorios_)) return ServiceError(falha);
  if (const auto falha = CCaminhosInstalacao::BuscaCaminhoModulo(modulo, caminhoModulo_)) return ServiceError(falha);
  modulo_ = modulo;
  componente_ = TextoDeBstr(bsComponente);
  const std::string chave = modulo_ + componente_;
  const std::string padrao = caminhoRelatorios_ + "ZNRELPAD.DAT";
  if (chave != chaveModulo_ || padrao != arquivoPadrao_) registroPadrao_ = 0;
  chaveModulo_ = chave;
  arquivoPadrao_ = padrao;
  arquivoExcluidos_ = caminhoRelatorios_ + "ZNRELDEL.DAT";
  return S_OK;
}

bool CRepositorioRel2::Inicializado() const {
  return !modulo_.empty() && !componente_.empty() && !caminhoRelatorios_.empty();
}

}  // namespace kestor
