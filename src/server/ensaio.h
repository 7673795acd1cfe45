// Rehearsals: what a migration or a renumbering would do. Nothing is written, and no store is initialised as for a
// client.
#pragma once

#include "contract/interfaces.h"

namespace kestor {

// Each tells the client whose call is served what would become of each model, in the order in which they would be
// converted; a renumbering begins with the migration, as the call does. The documents that a migration would make are
// not there to be renumbered. Results as those of the calls that are rehearsed.
HRESULT EnsaiaMigracao(BSTR modulo, BSTR componente);
HRESULT EnsaiaRenumeracao(BSTR modulo, BSTR componente, LONG quantidade, REL_CODIGO_CAMPOS_ALTERADOS* pares);

}  // namespace kestor
