// Text of the desktop platform: single bytes of code page 1252, and its conversions to and from the encodings that the
// rest of the world uses. Nothing here depends on the process's locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace text {

// ---- Code page 1252 ------------------------------------------------------------------------------------------------
// The five bytes without a character of their own (0x81 0x8D 0x8F 0x90 0x9D) stand for the control characters of the
// same number, so that every byte has a character and comes back as itself.

// Code page 1252 to UTF-8 and UTF-16. Never fails.
std::string ToUtf8(std::string_view ansi);
std::u16string ToUtf16(std::string_view ansi);

// UTF-16 to code page 1252: a character that it lacks becomes one '?' (also a pair of surrogates, and each unpaired
// one).
std::string FromUtf16(std::u16string_view wide);

// UTF-8 to code page 1252: a character that it lacks becomes '?', so does each byte that is no UTF-8.
std::string FromUtf8(std::string_view utf8);

// The same, but all or nothing: false when `utf8` is malformed or holds a character that code page 1252 lacks; `*ansi`
// is then unspecified.
bool FromUtf8Exactly(std::string_view utf8, std::string* ansi);

// UTF-16 to UTF-8 and back. Unpaired surrogates and malformed bytes become U+FFFD.
std::string Utf16ToUtf8(std::u16string_view wide);
std::u16string Utf8ToUtf16(std::string_view utf8);

bool IsValidUtf8(std::string_view utf8);

// UTF-8 from elsewhere as it may stand in a sentence for people: what breaks a line, turns the direction of writing or
// steers a terminal is written as its number (\u001B), and of a text of more than 200 characters only the beginning and
// the end are there. Malformed bytes become U+FFFD.
std::string Presentable(std::string_view utf8);

// UTF-8 in which no character moves, hides or turns around what follows: a blank in the place of each control character
// and of each mark that ends a line or sets a direction of writing.
std::string Printable(std::string_view utf8);

// How many characters a text has, and its beginning of so many; of UTF-8.
std::size_t Characters(std::string_view utf8);
std::string_view FirstCharacters(std::string_view utf8, std::size_t count);

// ---- Letter case ---------------------------------------------------------------------------------------------------
// Over the whole code page: the accented letters, Š Œ Ž Ÿ and their small forms are letters; ƒ ß µ have one case only.

char UpperChar(char c);
char LowerChar(char c);
std::string Upper(std::string_view ansi);

bool EqualNoCase(std::string_view a, std::string_view b);
int CompareNoCase(std::string_view a, std::string_view b);  // below, at or above 0, by upper-case byte values

// True when `ansi` ends in `ending`, letter case aside.
bool EndsWithNoCase(std::string_view ansi, std::string_view ending);

// ---- Number texts --------------------------------------------------------------------------------------------------

// The text read as a decimal integer in the standard way: leading white space and one sign allowed, digits up to the
// first other character, 0 when there is none. Too large a value saturates at 2147483647 and -2147483648.
inline std::int32_t ToInt(std::string_view ansi) {
  // Here, because long catalogues consist of short numbers.
  constexpr std::int64_t kMax = 2147483647;
  const char* c = ansi.data();
  const char* const end = c + ansi.size();
  while (c != end && (*c == ' ' || (*c >= '\t' && *c <= '\r')))
    ++c;
  const bool negative = c != end && *c == '-';
  if (c != end && (*c == '-' || *c == '+')) ++c;
  std::int64_t value = 0;
  for (; c != end && *c >= '0' && *c <= '9'; ++c) {
    if (value <= kMax) value = value * 10 + (*c - '0');  // beyond, no further digit makes it less
  }
  if (negative) return static_cast<std::int32_t>(value <= kMax ? -value : -kMax - 1);
  return static_cast<std::int32_t>(value <= kMax ? value : kMax);
}

// The text read as a decimal fraction in the standard way, with '.' as decimal point; 0 when it is none.
double ToDouble(std::string_view ansi);

// As the format "%f": six decimals, '.' as decimal point.
std::string FormatDouble(double value);

}  // namespace text

// The platform's own names for what its callers use by name.
int lstrcmpiA(const char* a, const char* b);
inline const char* CharNextA(const char* position) {
  return *position == '\0' ? position : position + 1;
}
