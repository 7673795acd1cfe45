// Passes on the changes that objects report.
#pragma once

#include <sys/types.h>

#include "common/servidor.h"
#include "journal/journal.h"

namespace kestor {

// Tells the client whose call is served what became of a model. `comConteudo` adds the content before and after.
void RelataAoCliente(const Mudanca& mudanca, bool comConteudo);

// Returns the user of the client whose call is served, or of this process when there is none.
uid_t UsuarioDoCliente();

// Appends a change to the journal, together with the client whose call is served.
void RelataAoDiario(const Mudanca& mudanca, journal::Writer& diario);

}  // namespace kestor
