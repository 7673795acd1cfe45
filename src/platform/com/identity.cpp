#include <array>
#include <cstdio>

#include "com.h"

namespace {

// The pattern of an identity's text: x stands for a hexadecimal digit.
constexpr char kPattern[] = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
constexpr std::size_t kTextLength = sizeof kPattern - 1;

// Returns -1 when `c` is no hexadecimal digit.
int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string GuidText(const GUID& guid) {
  const std::uint8_t* d = guid.Data4;
  std::array<char, kTextLength + 1> text{};
  std::snprintf(text.data(), text.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1, guid.Data2,
                guid.Data3, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
  return text.data();
}

bool GuidFromText(const std::string& text, GUID* guid) {
  if (text.size() != kTextLength) return false;
  std::array<std::uint8_t, sizeof(GUID)> bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kTextLength; ++i) {
    if (kPattern[i] != 'x') {
      if (text[i] != kPattern[i]) return false;
      continue;
    }
    const int value = DigitValue(text[i]);
    if (value < 0) return false;
    std::uint8_t& byte = bytes[digits++ / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | value);
  }

  guid->Data1 = static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
                static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
  guid->Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  guid->Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  std::memcpy(guid->Data4, &bytes[8], sizeof guid->Data4);
  return true;
}
