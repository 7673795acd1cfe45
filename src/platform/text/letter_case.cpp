#include <algorithm>
#include <array>
#include <cstddef>

#include "text.h"

namespace text {
namespace {

using CaseTable = std::array<unsigned char, 256>;

struct CaseTables {
  CaseTable upper{};
  CaseTable lower{};
};

constexpr CaseTables MakeTables() {
  CaseTables tables;
  for (unsigned i = 0; i < 256; ++i)
    tables.upper[i] = tables.lower[i] = static_cast<unsigned char>(i);
  const auto pair = [&tables](unsigned upper, unsigned lower) {
    tables.upper[lower] = static_cast<unsigned char>(upper);
    tables.lower[upper] = static_cast<unsigned char>(lower);
  };
  for (unsigned c = 'A'; c <= 'Z'; ++c)
    pair(c, c + 0x20);
  for (unsigned c = 0xC0; c <= 0xDE; ++c) {
    if (c != 0xD7) pair(c, c + 0x20);  // the multiplication and division signs are not letters
  }
  for (const unsigned c : {0x8AU, 0x8CU, 0x8EU})
    pair(c, c + 0x10);  // Š Œ Ž
  pair(0x9F, 0xFF);     // Ÿ
  return tables;
}

constexpr CaseTables kTables = MakeTables();

unsigned char UpperByte(char c) {
  return kTables.upper[static_cast<unsigned char>(c)];
}

}  // namespace

char UpperChar(char c) {
  return static_cast<char>(UpperByte(c));
}

char LowerChar(char c) {
  return static_cast<char>(kTables.lower[static_cast<unsigned char>(c)]);
}

std::string Upper(std::string_view ansi) {
  std::string upper(ansi);
  for (char& c : upper)
    c = UpperChar(c);
  return upper;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char left, char right) { return UpperByte(left) == UpperByte(right); });
}

int CompareNoCase(std::string_view a, std::string_view b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    const int difference = UpperByte(a[i]) - UpperByte(b[i]);
    if (difference != 0) return difference;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

bool EndsWithNoCase(std::string_view ansi, std::string_view ending) {
  return ansi.size() >= ending.size() && EqualNoCase(ansi.substr(ansi.size() - ending.size()), ending);
}

}  // namespace text

int lstrcmpiA(const char* a, const char* b) {
  // The platform's own order: a null pointer comes before every text.
  if (a == nullptr || b == nullptr) return (a != nullptr ? 1 : 0) - (b != nullptr ? 1 : 0);
  return text::CompareNoCase(a, b);
}
