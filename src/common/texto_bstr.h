// Texts at the component boundary.
#pragma once

#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace kestor {

// A client's text as code page 1252, up to its first NUL. Null counts as empty.
std::string TextoDeBstr(BSTR texto);

// Every character of a client's text; none of null.
std::u16string_view VisaoDeBstr(BSTR texto);

// A new BSTR, of a text of code page 1252 or as it is. Throws std::bad_alloc.
OwnedBstr NovoBstr(std::string_view texto);
OwnedBstr NovoBstr(std::u16string_view texto);

}  // namespace kestor
