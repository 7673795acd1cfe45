#pragma once

#include <string>
#include <string_view>

namespace bundle {

// Returns the SHA-256 of the bytes as 64 hexadecimal digits.
std::string Sha256(std::string_view bytes);

}  // namespace bundle
