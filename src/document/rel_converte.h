// The object of the class ZNPL_RelConverte.
#pragma once

#include "common/objeto_contado.h"
#include "contract/interfaces.h"

namespace kestor {

// Makes a report store in this process; results as IClassFactory::CreateInstance gives them.
using CriaRepositorio = HRESULT (*)(Servidor& servidor, REFIID iid, void** object);

// Keeps nothing between calls. All calls come on the server's main thread.
class CRelConverte final : public ObjetoContado<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
 public:
  CRelConverte(Servidor& servidor, CriaRepositorio criaRepositorio);

  // Renumbers field codes in all models of a module and component, which are initialised for that first. What happens
  // to each model does not show in the result, which is that of initialising or listing. E_OUTOFMEMORY without a store
  // or catalogue; E_INVALIDARG when pairs are promised and not given. Nothing is renumbered in these cases.
  HRESULT AlteraCodigoCampos(BSTR modulo, BSTR componente, LONG nQtdeCampos,
                             REL_CODIGO_CAMPOS_ALTERADOS* aCodigoAlterados) override;

 private:
  Servidor& servidor_;
  const CriaRepositorio criaRepositorio_;
};

}  // namespace kestor
