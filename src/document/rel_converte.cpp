#include "document/rel_converte.h"

#include <new>

#include "common/texto_bstr.h"
#include "document/conversor_codigos.h"

namespace kestor {

CRelConverte::CRelConverte(ContagemServidor& servidor, CriaRepositorio criaRepositorio)
    : ObjetoContado(servidor), servidor_(servidor), criaRepositorio_(criaRepositorio) {}

HRESULT CRelConverte::AlteraCodigoCampos(BSTR modulo, BSTR componente, LONG nQtdeCampos,
                                         REL_CODIGO_CAMPOS_ALTERADOS* aCodigoAlterados) {
  if (nQtdeCampos > 0 && aCodigoAlterados == nullptr) return E_INVALIDARG;
  try {
    ComPtr<IZNPL_Relatorio2> repositorio;
    if (FAILED(criaRepositorio_(servidor_, IID_IZNPL_Relatorio2, repositorio.OutVoid()))) return E_OUTOFMEMORY;
    const HRESULT inicio = repositorio->Inicializa(modulo, componente);
    if (FAILED(inicio)) return inicio;
    CConversorCodigos conversor(*repositorio, TextoDeBstr(modulo), TextoDeBstr(componente), nQtdeCampos,
                                aCodigoAlterados);
    return conversor.Executa();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kestor
