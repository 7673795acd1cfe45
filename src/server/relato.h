// Where the changes that objects tell of go.
#pragma once

#include <sys/types.h>

#include "common/servidor.h"
#include "journal/journal.h"

namespace kestor {

// Tells the client whose call is served what became of a model. `comConteudo`: with its content before and after.
void RelataAoCliente(const Mudanca& mudanca, bool comConteudo);

// The user of the client that is served; this process's where none is.
uid_t UsuarioDoCliente();

// Appends a change to the journal, with the client whose call is served.
void RelataAoDiario(const Mudanca& mudanca, journal::Writer& diario);

}  // namespace kestor
