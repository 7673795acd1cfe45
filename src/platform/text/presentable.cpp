#include <cstddef>

#include "text.h"

namespace text {

bool SteersOutput(char32_t character) {
  const auto isIn = [character](char32_t first, char32_t last) { return character >= first && character <= last; };
  const bool isControl = character < 0x20 || isIn(0x7F, 0x9F);
  const bool turns = character == 0x061C || isIn(0x200E, 0x200F) || isIn(0x202A, 0x202E) || isIn(0x2066, 0x2069);
  return isControl || turns || isIn(0x2028, 0x2029) || character == 0xFEFF;
}

namespace {

std::u16string Escaped(std::u16string_view wide) {
  constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  std::u16string escaped;
  for (const char16_t c : wide) {
    if (SteersOutput(c)) {
      escaped += {u'\\', u'u', kDigits[c >> 12], kDigits[c >> 8 & 15], kDigits[c >> 4 & 15], kDigits[c & 15]};
    } else {
      escaped += c;
    }
  }
  return escaped;
}

bool IsSecondOfPair(char16_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}

}  // namespace

std::string Presentable(std::string_view utf8) {
  constexpr std::size_t kLongest = 200;
  constexpr std::size_t kHalf = (kLongest - 1) / 2;
  const std::u16string wide = Utf8ToUtf16(utf8);
  const std::u16string_view all = wide;
  if (all.size() <= kLongest) return Utf16ToUtf8(Escaped(all));
  // No cut splits a surrogate pair.
  const std::size_t head = IsSecondOfPair(all[kHalf]) ? kHalf - 1 : kHalf;
  const std::size_t tail = IsSecondOfPair(all[all.size() - kHalf]) ? kHalf - 1 : kHalf;
  return Utf16ToUtf8(Escaped(all.substr(0, head)) + u'…' + Escaped(all.substr(all.size() - tail)));
}

}  // namespace text
