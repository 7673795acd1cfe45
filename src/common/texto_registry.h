// Texts in the registry.
#pragma once

#include <string>

#include "platform/registry/registry.h"

namespace kestor {

// Reads the data of a value, whatever its type, as text up to its first NUL. Returns false if the value is missing or
// cannot be read.
bool LeTexto(HKEY chave, const char* valor, std::string* texto);

}  // namespace kestor
