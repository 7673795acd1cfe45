// Bytes as text, for documents that hold text only.
#pragma once

#include <string>
#include <string_view>

namespace kestorctl {

// Encodes with padding and without line breaks.
std::string Base64(std::string_view bytes);

}  // namespace kestorctl
