// Texts at the component boundary.
#pragma once

#include <string>

#include "platform/com/com.h"

namespace kestor {

// A client's text as code page 1252, up to its first NUL. Null counts as empty.
std::string TextoDeBstr(BSTR texto);

}  // namespace kestor
