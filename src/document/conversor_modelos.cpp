#include "document/conversor_modelos.h"

#include <string_view>
#include <utility>

#include "platform/text/text.h"

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
  std::string_view anterior;
  for (std::size_t i = 0; i < lista->nQtdeRelatorios; ++i) {
    const std::string_view nome = nomes.get()[i].szNomeRelatorio;
    // Files whose names differ after a dot are listed as one name, one after the other: the model of that name must
    // not be converted twice.
    if (i == 0 || !text::EqualNoCase(nome, anterior)) ConverteModelo(nome);
    anterior = nome;
  }
  return resultado;
}

}  // namespace kestor
