#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "text.h"

namespace text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// The characters of the bytes 0x80 to 0x9F; every other byte is its own character.
constexpr std::array<char16_t, 32> kSpecial = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                               0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                               0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                               0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char16_t CharacterOf(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 && byte < 0xA0 ? kSpecial[byte - 0x80U] : byte;
}

// False when the code page lacks the character.
bool ByteOf(char32_t character, char* byte) {
  if (character < 0x80 || (character >= 0xA0 && character <= 0xFF)) {
    *byte = static_cast<char>(character);
    return true;
  }
  for (std::size_t i = 0; i < kSpecial.size(); ++i) {
    if (kSpecial[i] == character) {
      *byte = static_cast<char>(0x80 + i);
      return true;
    }
  }
  return false;
}

// Returns how many bytes at the start of `bytes` are ASCII.
std::size_t AsciiRun(std::string_view bytes) {
  std::size_t length = 0;
  for (; length + 8 <= bytes.size(); length += 8) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, bytes.data() + length, 8);
    if ((eight & 0x8080808080808080U) != 0) break;
  }
  while (length < bytes.size() && static_cast<unsigned char>(bytes[length]) < 0x80)
    ++length;
  return length;
}

struct Decoded {
  char32_t character = kReplacement;
  std::size_t length = 0;  // 0: the bytes are not UTF-8
};

Decoded DecodeUtf8(std::string_view bytes) {
  const auto byteAt = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned char lead = byteAt(0);
  if (lead < 0x80) return {lead, 1};
  if (lead < 0xC2 || lead > 0xF4) return {};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (bytes.size() < length) return {};
  char32_t character = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byteAt(i) & 0xC0U) != 0x80) return {};
    character = character << 6U | (byteAt(i) & 0x3FU);
  }
  const bool overlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  if (overlong || surrogate || character > 0x10FFFF) return {};
  return {character, length};
}

// Never fails: an unpaired surrogate is one unit long and stands for the replacement character.
Decoded DecodeUtf16(std::u16string_view units) {
  const char32_t first = units[0];
  if (first < 0xD800 || first > 0xDFFF) return {first, 1};
  const char32_t second = units.size() > 1 ? units[1] : 0;
  if (first > 0xDBFF || second < 0xDC00 || second > 0xDFFF) return {kReplacement, 1};
  return {0x10000 + ((first - 0xD800) << 10U) + (second - 0xDC00), 2};
}

void AppendUtf8(char32_t character, std::string* out) {
  const auto trail = [character](unsigned shift) { return static_cast<char>(0x80 | (character >> shift & 0x3F)); };
  if (character < 0x80) {
    *out += static_cast<char>(character);
  } else if (character < 0x800) {
    *out += {static_cast<char>(0xC0 | character >> 6U), trail(0)};
  } else if (character < 0x10000) {
    *out += {static_cast<char>(0xE0 | character >> 12U), trail(6), trail(0)};
  } else {
    *out += {static_cast<char>(0xF0 | character >> 18U), trail(12), trail(6), trail(0)};
  }
}

void AppendUtf16(char32_t character, std::u16string* out) {
  if (character < 0x10000) {
    *out += static_cast<char16_t>(character);
    return;
  }
  *out += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10U));
  *out += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
}

bool IsFirstByte(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
}

}  // namespace

std::string ToUtf8(std::string_view ansi) {
  std::string utf8;
  utf8.reserve(ansi.size());
  while (true) {
    const std::size_t run = AsciiRun(ansi);
    utf8.append(ansi.substr(0, run));
    if (run == ansi.size()) return utf8;
    AppendUtf8(CharacterOf(ansi[run]), &utf8);
    ansi.remove_prefix(run + 1);
  }
}

std::u16string ToUtf16(std::string_view ansi) {
  std::u16string wide(ansi.size(), u'\0');
  for (std::size_t i = 0; i < ansi.size(); ++i)
    wide[i] = CharacterOf(ansi[i]);
  return wide;
}

std::string FromUtf16(std::u16string_view wide) {
  std::string ansi;
  ansi.reserve(wide.size());
  while (!wide.empty()) {
    const Decoded next = DecodeUtf16(wide);
    char byte = '?';
    ByteOf(next.character, &byte);
    ansi += byte;
    wide.remove_prefix(next.length);
  }
  return ansi;
}

std::string FromUtf8(std::string_view utf8) {
  std::string ansi;
  ansi.reserve(utf8.size());
  while (true) {
    const std::size_t run = AsciiRun(utf8);
    ansi.append(utf8.substr(0, run));
    utf8.remove_prefix(run);
    if (utf8.empty()) return ansi;
    const Decoded next = DecodeUtf8(utf8);
    char byte = '?';
    ByteOf(next.character, &byte);
    ansi += byte;
    utf8.remove_prefix(next.length == 0 ? 1 : next.length);
  }
}

bool FromUtf8Exactly(std::string_view utf8, std::string* ansi) {
  ansi->clear();
  ansi->reserve(utf8.size());
  while (true) {
    const std::size_t run = AsciiRun(utf8);
    ansi->append(utf8.substr(0, run));
    utf8.remove_prefix(run);
    if (utf8.empty()) return true;
    const Decoded next = DecodeUtf8(utf8);
    char byte = 0;
    if (next.length == 0 || !ByteOf(next.character, &byte)) return false;
    *ansi += byte;
    utf8.remove_prefix(next.length);
  }
}

std::string Utf16ToUtf8(std::u16string_view wide) {
  std::string utf8;
  utf8.reserve(wide.size());
  while (!wide.empty()) {
    const Decoded next = DecodeUtf16(wide);
    AppendUtf8(next.character, &utf8);
    wide.remove_prefix(next.length);
  }
  return utf8;
}

std::u16string Utf8ToUtf16(std::string_view utf8) {
  std::u16string wide;
  wide.reserve(utf8.size());
  while (!utf8.empty()) {
    const Decoded next = DecodeUtf8(utf8);
    AppendUtf16(next.character, &wide);
    utf8.remove_prefix(next.length == 0 ? 1 : next.length);
  }
  return wide;
}

std::string Printable(std::string_view utf8) {
  std::string printable;
  printable.reserve(utf8.size());
  while (true) {
    std::size_t run = 0;
    while (run < utf8.size() && utf8[run] >= ' ' && utf8[run] < 0x7F)
      ++run;
    printable.append(utf8.substr(0, run));
    utf8.remove_prefix(run);
    if (utf8.empty()) return printable;
    const Decoded next = DecodeUtf8(utf8);
    AppendUtf8(SteersOutput(next.character) ? U' ' : next.character, &printable);
    utf8.remove_prefix(next.length == 0 ? 1 : next.length);
  }
}

bool IsValidUtf8(std::string_view utf8) {
  while (true) {
    utf8.remove_prefix(AsciiRun(utf8));
    if (utf8.empty()) return true;
    const Decoded next = DecodeUtf8(utf8);
    if (next.length == 0) return false;
    utf8.remove_prefix(next.length);
  }
}

std::size_t Characters(std::string_view utf8) {
  return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), IsFirstByte));
}

std::string_view FirstCharacters(std::string_view utf8, std::size_t count) {
  if (utf8.size() <= count) return utf8;
  std::size_t end = 0;
  for (std::size_t begun = 0; end < utf8.size(); ++end) {
    if (IsFirstByte(utf8[end]) && ++begun > count) break;
  }
  return utf8.substr(0, end);
}

}  // namespace text
