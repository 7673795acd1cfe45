#include "document/rel_converte.h"

#include <new>

#include "common/texto_bstr.h"
#include "document/conversor_codigos.h"

namespace kestor {

CRelConverte::CRelConverte(Servidor& servidor, CriaRepositorio criaRepositorio)
    : ObjetoContado(servidor), servidor_(servidor), criaRepositorio_(criaRepositorio) {}

HRESULT CRelConverte::AlteraCodigoCampos(BSTR modulo, BSTR componente, LONG nQtdeCampos,
                                         REL_CODIGO_CAMPOS_ALTERADOS* aCodigoAlterados) {
  try {
    const std::string nomeModulo = TextoDeBstr(modulo);
    const std::string nomeComponente = TextoDeBstr(componente);
    const HRESULT resultado = [&]() -> HRESULT {
      if (nQtdeCampos > 0 && aCodigoAlterados == nullptr) return E_INVALIDARG;
      ComPtr<IZNPL_Relatorio2> repositorio;
      if (FAILED(criaRepositorio_(servidor_, IID_IZNPL_Relatorio2, repositorio.OutVoid()))) return E_OUTOFMEMORY;
      const HRESULT inicio = repositorio->Inicializa(modulo, componente);
      if (FAILED(inicio)) return inicio;
      return CConversorCodigos(servidor_, *repositorio, nomeModulo, nomeComponente, nQtdeCampos, aCodigoAlterados)
          .Executa();
    }();
    // Otherwise each model has been reported.
    if (FAILED(resultado)) {
      servidor_.Relata({.classe = "ZNPL_RelConverte",
                        .metodo = "AlteraCodigoCampos",
                        .modulo = nomeModulo,
                        .componente = nomeComponente,
                        .resultado = resultado});
    }
    return resultado;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kestor
