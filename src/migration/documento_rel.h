// A first-generation model as a report document.
#pragma once

#include <string>

#include "document/mem_stream.h"
#include "markup/interfaces_marcacao.h"
#include "migration/conteudo_rel.h"

namespace kestor {

// Writes the root element with everything below it. Uses `atributos` for all elements. Stops and returns false if the
// writer refuses an element: the document is useless then. Leaves out columns of which nothing is known. Throws
// ZN::CException and std::bad_alloc if memory runs out.
bool EscreveDocumento(const CConteudoRel& conteudo, const std::string& nome, IEscritorMarcacao& escritor,
                      IAtributosMarcacao& atributos);

// Writes the whole document. Returns false if the markup component is missing or refuses a part. Throws as above.
bool GeraDocumento(const CConteudoRel& conteudo, const std::string& nome, CMemStream& saida);

}  // namespace kestor
