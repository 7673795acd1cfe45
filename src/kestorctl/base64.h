// Bytes as text, for documents that hold text only.
#pragma once

#include <string>
#include <string_view>

namespace kestorctl {

// With padding, without line ends.
std::string Base64(std::string_view bytes);

}  // namespace kestorctl
