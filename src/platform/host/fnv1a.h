// A hash for the names of files and folders. Not for security.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

inline constexpr std::size_t kFnv1aDigits = 16;

// The 64-bit FNV-1a hash of the bytes as hexadecimal digits, in lower case.
inline std::string Fnv1a(std::string_view bytes) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : bytes)
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  std::string digits(kFnv1aDigits, '0');
  for (std::size_t i = kFnv1aDigits; i-- > 0; hash >>= 4)
    digits[i] = "0123456789abcdef"[hash & 0xF];
  return digits;
}

}  // namespace platform
