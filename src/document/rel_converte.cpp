#include "document/rel_converte.h"

#include <new>

#include "common/texto_bstr.h"
#include "document/conversor_codigos.h"

namespace kestor {

CRelConverte::CRelConverte(Servidor& servidor, CriaRepositorio criaRepositorio)
    : ObjetoContado(servidor), servidor_(servidor), criaRepositorio_(criaRepositorio) {}

HRESULT CRelConverte::AlteraCodigoCampos(BSTR modulo, BSTR componente, LONG nQtdeCampos,
                                         REL_CODIGO_CAMPOS_ALTERADOS* aCodigoAlterados) {
  if (nQtdeCampos > 0 && aCodigoAlterados == nullptr) return E_INVALIDARG;
  try {
    const std::string nomeModulo = TextoDeBstr(modulo);
    const std::string nomeComponente = TextoDeBstr(componente);
    ComPtr<IZNPL_Relatorio2> repositorio;
    HRESULT resultado = criaRepositorio_(servidor_, IID_IZNPL_Relatorio2, repositorio.OutVoid());
    if (FAILED(resultado)) return E_OUTOFMEMORY;
    resultado = repositorio->Inicializa(modulo, componente);
    if (SUCCEEDED(resultado)) {
      CConversorCodigos conversor(servidor_, *repositorio, nomeModulo, nomeComponente, nQtdeCampos, aCodigoAlterados);
      resultado = conversor.Executa();
    }
    // What became of each model has been told.
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
