#include "document/conversor_modelos.h"

#include <string_view>
#include <utility>

namespace kestor {

CConversorModelos::CConversorModelos(IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente)
    : modulo_(std::move(modulo)), componente_(std::move(componente)) {
  repositorio.AddRef();
  *repositorio_.Out() = &repositorio;
}

HRESULT CConversorModelos::Executa() {
  REG_ARRAY_RELATORIO2* recebida = nullptr;
  const HRESULT resultado = repositorio_->GetNomeRelatorios(&recebida);
  if (FAILED(resultado) || recebida == nullptr) return resultado;
  const TaskBlock<REG_ARRAY_RELATORIO2> lista(recebida);
  const TaskBlock<tagREG_NOME_RELATORIO2> nomes(lista->pregRelatorios);
  for (std::size_t i = 0; i < lista->nQtdeRelatorios; ++i)
    ConverteModelo(nomes.get()[i].szNomeRelatorio);
  return resultado;
}

}  // namespace kestor
