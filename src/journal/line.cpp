#include "line.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace journal {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";     // U+2026

struct Character {
  char32_t code = 0;
  std::size_t bytes = 0;  // 0: the text does not begin with a well-formed character
};

// Returns the first character of a text, which must not be empty.
Character First(std::string_view utf8) {
  const auto byte = [utf8](std::size_t i) { return static_cast<unsigned char>(utf8[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || utf8.size() < bytes) return {};
  char32_t code = lead & (0x7FU >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {};
    code = code << 6 | (byte(i) & 0x3F);
  }
  constexpr char32_t kLeast[] = {0x80, 0x800, 0x10000};  // of 2, 3 and 4 bytes
  const bool isSurrogate = code >= 0xD800 && code < 0xE000;
  if (code < kLeast[bytes - 2] || code > 0x10FFFF || isSurrogate) return {};
  return {code, bytes};
}

// Controls would change what a terminal or an editor shows; the two separators end a line for some readers.
bool IsEscaped(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029;
}

void AppendEscaped(char32_t code, std::string* line) {
  *line += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4)
    *line += "0123456789abcdef"[code >> shift & 0xF];
}

// If the text has more than kLongestText characters, returns where the last one that fits begins; otherwise npos.
std::size_t FindCut(std::string_view text) {
  std::size_t at = 0;
  std::size_t cut = std::string_view::npos;
  for (std::size_t i = 0; at < text.size(); ++i) {
    if (i == kLongestText) return cut;
    if (i == kLongestText - 1) cut = at;
    at += std::max(First(text.substr(at)).bytes, std::size_t{1});
  }
  return std::string_view::npos;
}

void AppendCharacters(std::string_view text, std::string* line) {
  while (!text.empty()) {
    const auto [code, bytes] = First(text);
    if (bytes == 0) {
      *line += kReplacement;
    } else if (IsEscaped(code)) {
      AppendEscaped(code, line);
    } else {
      if (code == '"' || code == '\\') *line += '\\';
      *line += text.substr(0, bytes);
    }
    text.remove_prefix(std::max(bytes, std::size_t{1}));
  }
}

void AppendText(std::string_view member, std::string_view text, std::string* line) {
  if (text.empty()) return;
  *line += ",\"";
  *line += member;
  *line += "\":\"";
  const std::size_t cut = FindCut(text);
  AppendCharacters(text.substr(0, cut), line);
  if (cut != std::string_view::npos) *line += kEllipsis;
  *line += '"';
}

template <typename Number>
void AppendNumber(std::string_view member, Number number, std::string* line) {
  char digits[20];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  *line += ",\"";
  *line += member;
  *line += "\":";
  line->append(digits, end);
}

void AppendDigits(unsigned number, std::size_t width, std::string* line) {
  const std::size_t start = line->size();
  line->append(width, '0');
  for (std::size_t i = width; i-- > 0; number /= 10)
    (*line)[start + i] = static_cast<char>('0' + number % 10);
}

// 2026-11-26T17:30:12.123Z. Clamps the year to four digits, because longer ones would not sort; no clock shows them.
void AppendTime(std::chrono::system_clock::time_point time, std::string* line) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::milliseconds>(time - day));
  AppendDigits(static_cast<unsigned>(std::clamp(static_cast<int>(date.year()), 0, 9999)), 4, line);
  *line += '-';
  AppendDigits(static_cast<unsigned>(date.month()), 2, line);
  *line += '-';
  AppendDigits(static_cast<unsigned>(date.day()), 2, line);
  *line += 'T';
  AppendDigits(static_cast<unsigned>(clock.hours().count()), 2, line);
  *line += ':';
  AppendDigits(static_cast<unsigned>(clock.minutes().count()), 2, line);
  *line += ':';
  AppendDigits(static_cast<unsigned>(clock.seconds().count()), 2, line);
  *line += '.';
  AppendDigits(static_cast<unsigned>(clock.subseconds().count()), 3, line);
  *line += 'Z';
}

void AppendResult(std::int32_t result, std::string* line) {
  *line += R"(,"result":"0x)";
  for (int shift = 28; shift >= 0; shift -= 4)
    *line += "0123456789ABCDEF"[static_cast<std::uint32_t>(result) >> shift & 0xF];
  *line += '"';
}

}  // namespace

void AppendEntry(const Entry& entry, std::string* line) {
  *line += kLineStart;
  AppendTime(entry.time, line);
  *line += '"';
  AppendNumber("user", entry.user, line);
  AppendNumber("process", entry.process, line);
  AppendText("class", entry.className, line);
  AppendText("method", entry.method, line);
  AppendText("module", entry.module, line);
  AppendText("component", entry.component, line);
  AppendText("model", entry.model, line);
  AppendText("outcome", entry.outcome, line);
  AppendResult(entry.result, line);
  if (entry.bytes) AppendNumber("bytes", *entry.bytes, line);
  AppendText("reason", entry.reason, line);
  *line += '}';
}

}  // namespace journal
