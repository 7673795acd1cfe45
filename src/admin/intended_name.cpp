// Names that come from other systems.
#include <algorithm>
#include <array>
#include <string_view>

#include "check.h"
#include "platform/text/text.h"

namespace admin {
namespace {

// A combining mark, the letters that it may follow, and the composed letter for each.
struct Mark {
  char16_t mark;
  std::u16string_view letters;
  std::u16string_view composed;
};
constexpr Mark kMarks[] = {
    {u'\u0300', u"AEIOUaeiou", u"ÀÈÌÒÙàèìòù"},
    {u'\u0301', u"AEIOUYaeiouy", u"ÁÉÍÓÚÝáéíóúý"},
    {u'\u0302', u"AEIOUaeiou", u"ÂÊÎÔÛâêîôû"},
    {u'\u0303', u"ANOano", u"ÃÑÕãñõ"},
    {u'\u0308', u"AEIOUYaeiouy", u"ÄËÏÖÜŸäëïöüÿ"},
    {u'\u030A', u"Aa", u"Åå"},
    {u'\u030C', u"SZsz", u"ŠŽšž"},
    {u'\u0327', u"Cc", u"Çç"},
};

char16_t Composed(char16_t letter, char16_t mark) {
  for (const Mark& one : kMarks) {
    if (one.mark != mark) continue;
    const std::size_t at = one.letters.find(letter);
    return at == one.letters.npos ? u'\0' : one.composed[at];
  }
  return u'\0';
}

std::u16string Compose(std::u16string_view name) {
  std::u16string composed;
  for (const char16_t character : name) {
    const char16_t one = composed.empty() ? u'\0' : Composed(composed.back(), character);
    if (one != u'\0') {
      composed.back() = one;
    } else {
      composed += character;
    }
  }
  return composed;
}

// The letters of code page 850 from 0x80 on; 0 if the character is no letter.
constexpr std::array<char16_t, 0x26> kLowLetters850 = {
    u'Ç', u'ü', u'é', u'â', u'ä', u'à', u'å', u'ç', u'ê', u'ë', u'è', u'ï', u'î', u'ì', u'Ä', u'Å', u'É', u'æ', u'Æ',
    u'ô', u'ö', u'ò', u'û', u'ù', u'ÿ', u'Ö', u'Ü', u'ø', 0,    u'Ø', 0,    0,    u'á', u'í', u'ó', u'ú', u'ñ', u'Ñ'};

char16_t Letter850(unsigned char byte) {
  constexpr unsigned char kFirst = 0x80;
  if (byte < kFirst) return byte;
  if (byte - kFirst < static_cast<int>(kLowLetters850.size())) return kLowLetters850[byte - kFirst];
  constexpr std::pair<unsigned char, char16_t> kOthers[] = {
      {0xA6, u'ª'}, {0xA7, u'º'}, {0xB5, u'Á'}, {0xB6, u'Â'}, {0xB7, u'À'}, {0xC6, u'ã'}, {0xC7, u'Ã'}, {0xD2, u'Ê'},
      {0xD3, u'Ë'}, {0xD4, u'È'}, {0xD6, u'Í'}, {0xD7, u'Î'}, {0xD8, u'Ï'}, {0xDE, u'Ì'}, {0xE0, u'Ó'}, {0xE2, u'Ô'},
      {0xE3, u'Ò'}, {0xE4, u'õ'}, {0xE5, u'Õ'}, {0xE9, u'Ú'}, {0xEA, u'Û'}, {0xEB, u'Ù'}, {0xEC, u'ý'}, {0xED, u'Ý'}};
  for (const auto& [other, letter] : kOthers) {
    if (other == byte) return letter;
  }
  return u'\0';
}

bool IsWordByte(std::string_view bytes, std::size_t at) {
  if (at >= bytes.size()) return false;  // including `at` - 1 of the first byte, which wraps around
  const auto byte = static_cast<unsigned char>(bytes[at]);
  return byte >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

// Returns whether a byte is a sign of code page 1252 that names use: the degree sign and the apostrophe, which is a
// capital in code page 850; the euro sign, dashes and quotation marks, unless they are within a word.
bool IsSign1252(std::string_view bytes, std::size_t at) {
  const bool afterWord = IsWordByte(bytes, at - 1);
  const bool beforeWord = IsWordByte(bytes, at + 1);
  switch (static_cast<unsigned char>(bytes[at])) {
    case 0xB0:
    case 0x92:
      return true;
    case 0x80:
    case 0x96:
    case 0x97:
      return !afterWord || !beforeWord;
    case 0x91:
    case 0x93:
      return !afterWord;
    case 0x94:
      return !beforeWord && bytes.substr(0, at).find('\x93') != bytes.npos;
    default:
      return false;
  }
}

bool IsIn1252(std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    const bool isLetter = byte < 0x80 || byte >= 0xC0 || byte == 0xAA || byte == 0xBA;
    if (!isLetter && !IsSign1252(bytes, i)) return false;
  }
  return true;
}

// Letters of code page 1252 lie from 0xC0 on; the letters of code page 850 that file names need lie mostly below 0xA8.
// Returns an empty string if neither page decodes every byte.
std::u16string Decoded(std::string_view bytes) {
  if (IsIn1252(bytes)) return text::ToUtf16(bytes);
  std::u16string name;
  for (const char byte : bytes) {
    const char16_t letter = Letter850(static_cast<unsigned char>(byte));
    if (letter == u'\0') return {};
    name += letter;
  }
  return name;
}

}  // namespace

std::string IntendedName(const std::string& name) {
  const bool isUtf8 = text::IsValidUtf8(name);
  const std::string intended = text::Utf16ToUtf8(Compose(isUtf8 ? text::Utf8ToUtf16(name) : Decoded(name)));
  std::string ansi;
  return intended != name && text::FromUtf8Exactly(intended, &ansi) ? intended : std::string();
}

}  // namespace admin
