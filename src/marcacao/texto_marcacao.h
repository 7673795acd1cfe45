// Texts of the markup: values of code page 1252 as they stand in a document, and names.
//
// Line ends and tabs in a value are character references, because a reader would make blanks of them. The control
// characters that XML cannot hold (1 to 31 but for those) stand as the private-use character U+E000 plus their number.
#pragma once

#include <string>
#include <string_view>

namespace kestor {

// Appends a value, ready to stand between double quotes.
void AcrescentaValor(std::string_view valor, std::string& documento);

// A name or value as the parser gives it (UTF-8), in code page 1252; in `espaco` where that differs from it.
const char* TextoLido(const char* utf8, std::string& espaco);

// A name that elements and attributes can have: a letter or '_', then letters, digits, '_', '-' and '.'; ASCII.
bool NomeValido(std::string_view nome);

}  // namespace kestor
