// The fields that reports of a module and component can use.

#include <limits>
#include <new>

#include "common/nomes_arquivos.h"
#include "contract/results.h"
#include "legacy/catalogo_campos.h"
#include "store/repositorio_rel2.h"

namespace kestor {

HRESULT CRepositorioRel2::GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** ppregCamposDisponiveis) {
  if (ppregCamposDisponiveis == nullptr) return E_POINTER;
  *ppregCamposDisponiveis = nullptr;
  if (modulo_.empty() || componente_.empty()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  try {
    CCatalogoCampos catalogo;
    const HRESULT leitura = catalogo.Le(CaminhoCatalogo(caminhoModulo_, modulo_, componente_));
    if (leitura != S_OK) return leitura;
    const std::size_t quantidade = catalogo.Quantidade(std::numeric_limits<USHORT>::max());
    auto registro = NewTaskBlock<REG_CAMPOS_DISPONIVEIS2>(sizeof(REG_CAMPOS_DISPONIVEIS2));
    auto campos = NewTaskBlock<tagREG_CAMPOS_RELATORIO2>(quantidade * sizeof(tagREG_CAMPOS_RELATORIO2));
    catalogo.Preenche(campos.get(), quantidade);
    registro->nQtdeCampos = static_cast<USHORT>(quantidade);
    registro->pregCampos = campos.release();
    *ppregCamposDisponiveis = registro.release();
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kestor
