// Contents of fixed columns, as they are printed.
#pragma once

#include <string>
#include <string_view>

namespace kestor {

// Returns the text as an amount with "." between groups of thousands and "," before the decimals, all of which it
// keeps: "1,234.56" and "1.234,56" give "1.234,56". The last separator of the text is the decimal one.
std::string FormataValor(std::string_view texto);

// Returns only the digits of the text.
std::string SomenteDigitos(std::string_view texto);

}  // namespace kestor
