#include "base64.h"

#include <cstdint>

namespace kestorctl {

std::string Base64(std::string_view bytes) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::string_view group = bytes.substr(i, 3);
    std::uint32_t bits = 0;
    for (std::size_t k = 0; k < 3; ++k)
      bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0);
    for (std::size_t k = 0; k < 4; ++k)
      text += k <= group.size() ? kDigits[bits >> (18 - 6 * k) & 0x3F] : '=';
  }
  return text;
}

}  // namespace kestorctl
