// Texts of the markup: names, values as they stand in a document, and documents while they are being built.
//
// Line ends and tabs in a value are character references, because a reader would make blanks of them. The control
// characters that XML cannot hold (1 to 31 but for those) stand as the private-use character U+E000 plus their number.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestor {

// Appends a name. False, nothing being appended, for one that neither elements nor attributes can have: a name is a
// letter or '_', then letters, digits, '_', '-' and '.'; ASCII.
bool AcrescentaNome(const char* nome, std::string& marca);

// Appends a value as it stands between double quotes.
void AcrescentaValor(const char* valor, std::string& marca);

// The value of an attribute, given as it stands between the quotes of what was appended, in `espaco`.
const char* ValorDe(std::string_view escrito, std::string& espaco);

// A name or value as the parser gives it (UTF-8), in code page 1252; in `espaco` where that differs from it. U+0080 to
// U+009F are the bytes of that number: programs of the code page are known to call it ISO-8859-1.
const char* TextoLido(const char* utf8, std::string& espaco);

}  // namespace kestor
