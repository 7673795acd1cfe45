// Contents of fixed columns, as they are printed.
#pragma once

#include <string>
#include <string_view>

namespace kestor {

// The text as an amount with "." between groups of thousands and "," in front of the decimals, of which it keeps as
// many as it has: "1,234.56" and "1.234,56" give "1.234,56". The last separator of the text is the decimal one.
std::string FormataValor(std::string_view texto);

// The digits of the text, nothing else.
std::string SomenteDigitos(std::string_view texto);

}  // namespace kestor
