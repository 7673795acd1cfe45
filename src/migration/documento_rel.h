// A first-generation model as a report document.
#pragma once

#include <string>

#include "document/mem_stream.h"
#include "markup/interfaces_marcacao.h"
#include "migration/conteudo_rel.h"

namespace kestor {

// Writes the root element with everything below it; `atributos` serves all elements. Stops, and returns false, where
// the writer refuses an element: the document is of no use then. Columns of which nothing is known are left out. Throws
// ZN::CException and std::bad_alloc when memory runs out.
bool EscreveDocumento(const CConteudoRel& conteudo, const std::string& nome, IEscritorMarcacao& escritor,
                      IAtributosMarcacao& atributos);

// Writes the whole document. False when the markup component is not to be had, or refuses a part. Throws as above.
bool GeraDocumento(const CConteudoRel& conteudo, const std::string& nome, CMemStream& saida);

}  // namespace kestor
