// Rehearsals: what a migration or a renumbering would do. They write nothing, and initialising their store migrates
// nothing.
#pragma once

#include "contract/interfaces.h"

namespace kestor {

// Each tells the client whose call is served what would become of each model, in the order of conversion. A renumbering
// starts with the migration, as the call does, but does not cover the documents that the migration would make. Results
// as those of the rehearsed calls.
HRESULT EnsaiaMigracao(BSTR modulo, BSTR componente);
HRESULT EnsaiaRenumeracao(BSTR modulo, BSTR componente, LONG quantidade, REL_CODIGO_CAMPOS_ALTERADOS* pares);

}  // namespace kestor
