// A first-generation model as a report document.
#pragma once

#include <string>

#include "markup/interfaces_marcacao.h"
#include "migration/conteudo_rel.h"

namespace kestor {

// Writes the root element with everything below it; `atributos` serves all elements. Stops where the writer refuses an
// element, which then refuses the whole document. Columns of which nothing is known are left out. Throws ZN::CException
// and std::bad_alloc when memory runs out.
void EscreveDocumento(const CConteudoRel& conteudo, const std::string& nome, IEscritorMarcacao& escritor,
                      IAtributosMarcacao& atributos);

}  // namespace kestor
