#include <cstddef>

#include "text.h"

namespace text {
namespace {

bool SteersOutput(char16_t c) {
  const bool isControl = c < 0x20 || (c >= 0x7F && c < 0xA0);
  const bool turns =
      c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
  const bool breaksLine = c == 0x2028 || c == 0x2029;
  return isControl || turns || breaksLine || c == 0xFEFF;
}

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

}  // namespace

std::string Presentable(std::string_view utf8) {
  constexpr std::size_t kLongest = 200;
  constexpr std::size_t kHalf = (kLongest - 1) / 2;
  const std::u16string wide = Utf8ToUtf16(utf8);
  const std::u16string_view all = wide;
  if (all.size() <= kLongest) return Utf16ToUtf8(Escaped(all));
  return Utf16ToUtf8(Escaped(all.substr(0, kHalf)) + u'…' + Escaped(all.substr(all.size() - kHalf)));
}

}  // namespace text
