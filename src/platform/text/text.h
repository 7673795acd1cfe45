// Text of the desktop platform: single bytes of code page 1252, and conversions to and from the encodings that the rest
// of the world uses. Nothing here depends on the process's locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace text {

// ---- Code page 1252 ------------------------------------------------------------------------------------------------
// The five bytes without a character of their own (0x81 0x8D 0x8F 0x90 0x9D) stand for the control characters of the
// same number, so that every byte converts to a character and back.

// Code page 1252 to UTF-8 and UTF-16. Never fails.
std::string ToUtf8(std::string_view ansi);
std::u16string ToUtf16(std::string_view ansi);

// UTF-16 to code page 1252. A character that the code page lacks becomes one '?', and so does each pair of surrogates
// and each unpaired one.
std::string FromUtf16(std::u16string_view wide);

// UTF-8 to code page 1252. A character that the code page lacks becomes '?', and so does each byte that is not UTF-8.
std::string FromUtf8(std::string_view utf8);

// The same, but all or nothing: returns false when `utf8` is malformed or has a character that code page 1252 lacks;
// `*ansi` is then unspecified.
bool FromUtf8Exactly(std::string_view utf8, std::string* ansi);

// UTF-16 to UTF-8 and back. Unpaired surrogates and malformed bytes become U+FFFD.
std::string Utf16ToUtf8(std::u16string_view wide);
std::u16string Utf8ToUtf16(std::string_view utf8);

bool IsValidUtf8(std::string_view utf8);

// Returns true for the characters that a terminal or browser obeys instead of showing them: controls, line separators,
// and marks that turn the direction of writing.
bool SteersOutput(char32_t character);

// Makes UTF-8 from elsewhere fit to be shown in a sentence. Characters that steer the output become their numbers
// (\u001B). Of a text of more than 200 UTF-16 units only the beginning and the end remain. Malformed bytes become
// U+FFFD.
std::string Presentable(std::string_view utf8);

// Replaces each character that steers the output with a blank. Malformed bytes become U+FFFD.
std::string Printable(std::string_view utf8);

// The number of characters of a UTF-8 text, and its first `count` characters.
std::size_t Characters(std::string_view utf8);
std::string_view FirstCharacters(std::string_view utf8, std::size_t count);

// ---- Letter case ---------------------------------------------------------------------------------------------------
// Letter case covers the whole code page: the accented letters, Š Œ Ž Ÿ and their small forms are letters; ƒ ß µ have
// only one case.

char UpperChar(char c);
char LowerChar(char c);
std::string Upper(std::string_view ansi);

bool EqualNoCase(std::string_view a, std::string_view b);
int CompareNoCase(std::string_view a, std::string_view b);  // negative, 0 or positive, by upper-case byte values

// True when `ansi` ends in `ending`, ignoring letter case.
bool EndsWithNoCase(std::string_view ansi, std::string_view ending);

// ---- Number texts --------------------------------------------------------------------------------------------------

// Parses a decimal integer in the standard way: leading white space and one sign are allowed, the digits end at the
// first other character, and no digits give 0. Values out of range saturate at 2147483647 and -2147483648.
inline std::int32_t ToInt(std::string_view ansi) {
  // Inline, because long catalogues consist of short numbers.
  constexpr std::int64_t kMax = 2147483647;
  const char* c = ansi.data();
  const char* const end = c + ansi.size();
  while (c != end && (*c == ' ' || (*c >= '\t' && *c <= '\r')))
    ++c;
  const bool negative = c != end && *c == '-';
  if (c != end && (*c == '-' || *c == '+')) ++c;
  std::int64_t value = 0;
  for (; c != end && *c >= '0' && *c <= '9'; ++c) {
    if (value <= kMax) value = value * 10 + (*c - '0');  // above kMax, further digits make no difference
  }
  if (negative) return static_cast<std::int32_t>(value <= kMax ? -value : -kMax - 1);
  return static_cast<std::int32_t>(value <= kMax ? value : kMax);
}

// Parses a decimal fraction in the standard way, with '.' as decimal point; 0 when the text has none.
double ToDouble(std::string_view ansi);

// Formats like "%f": six decimals, '.' as decimal point.
std::string FormatDouble(double value);

}  // namespace text

// The platform's own names, for callers that use them.
int lstrcmpiA(const char* a, const char* b);
inline const char* CharNextA(const char* position) {
  return *position == '\0' ? position : position + 1;
}
