// Texts at the component boundary.
#pragma once

#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace kestor {

// Return a client's text up to its first NUL: in code page 1252, and as it is. Null counts as empty.
std::string TextoDeBstr(BSTR texto);
std::u16string_view VisaoDeBstr(BSTR texto);

// Return a new BSTR with a text that is code page 1252 or UTF-16. Throw std::bad_alloc.
OwnedBstr NovoBstr(std::string_view texto);
OwnedBstr NovoBstr(std::u16string_view texto);

}  // namespace kestor
