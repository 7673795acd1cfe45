// UTF-16 as the desktop keeps it in files and in the data of values: two bytes per unit, the low byte first.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace registry {

inline std::string Utf16Bytes(std::u16string_view units) {
  std::string bytes;
  bytes.reserve(units.size() * 2);
  for (const char16_t unit : units) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

// Ignores an odd byte at the end.
inline std::u16string Utf16Units(std::string_view bytes) {
  std::u16string units(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < units.size(); ++i) {
    const auto low = static_cast<unsigned char>(bytes[2 * i]);
    const auto high = static_cast<unsigned char>(bytes[2 * i + 1]);
    units[i] = static_cast<char16_t>(high << 8 | low);
  }
  return units;
}

}  // namespace registry
