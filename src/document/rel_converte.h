// The object of the class ZNPL_RelConverte.
#pragma once

#include "common/objeto_contado.h"
#include "contract/interfaces.h"

namespace kestor {

// Makes a report store in this process. Returns what IClassFactory::CreateInstance would.
using CriaRepositorio = HRESULT (*)(Servidor& servidor, REFIID iid, void** object);

// Keeps nothing between calls. All calls come on the server's main thread.
class CRelConverte final : public ObjetoContado<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
 public:
  CRelConverte(Servidor& servidor, CriaRepositorio criaRepositorio);

  // Initialises a store for the module and component, and renumbers field codes in all its models. Returns the result
  // of initialising or listing, whatever happens to each model; E_OUTOFMEMORY if no store can be made or memory runs
  // out; E_INVALIDARG if pairs are announced and not given. If it fails, nothing is renumbered.
  HRESULT AlteraCodigoCampos(BSTR modulo, BSTR componente, LONG nQtdeCampos,
                             REL_CODIGO_CAMPOS_ALTERADOS* aCodigoAlterados) override;

 private:
  Servidor& servidor_;
  const CriaRepositorio criaRepositorio_;
};

}  // namespace kestor
