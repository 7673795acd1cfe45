#include "value.h"

#include <algorithm>
#include <array>

#include "contract/records.h"
#include "document/doc_relatorio.h"
#include "platform/text/text.h"

namespace preview {

namespace {

constexpr std::size_t kMostWholeDigits = 18;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool AreDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ')
    text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ')
    text.remove_suffix(1);
  return text;
}

// Returns whether the text consists of digits, with dots, if any, only between thousands.
bool AreThousands(std::string_view text) {
  const std::size_t first = text.find('.');
  if (first == std::string_view::npos) return AreDigits(text);
  if (first == 0 || first > 3 || !AreDigits(text.substr(0, first))) return false;
  for (text.remove_prefix(first); !text.empty(); text.remove_prefix(4)) {
    if (text.size() < 4 || text.front() != '.' || !AreDigits(text.substr(1, 3))) return false;
  }
  return true;
}

// Returns a character of code page 1252 in upper case and without its accent.
char Folded(char ansi) {
  constexpr std::string_view kFrom =
      "\xC0\xC1\xC2\xC3\xC4\xC5\xC7\xC8\xC9\xCA\xCB\xCC\xCD\xCE\xCF\xD1\xD2\xD3\xD4\xD5\xD6"
      "\xD9\xDA\xDB\xDC\xDD\x8A\x8E\x9F";
  constexpr std::string_view kTo = "AAAAAACEEEEIIIINOOOOOUUUUYSZY";
  static_assert(kFrom.size() == kTo.size());
  const char upper = text::UpperChar(ansi);
  const std::size_t place = kFrom.find(upper);
  return place == std::string_view::npos ? upper : kTo[place];
}

std::string FoldedText(std::string_view utf8) {
  std::string ansi;
  if (!text::FromUtf8Exactly(utf8, &ansi)) return std::string(utf8);
  std::transform(ansi.begin(), ansi.end(), ansi.begin(), Folded);
  return ansi;
}

// The digits between separators, at most three parts; none if the text has another form.
struct Parts {
  std::array<std::string_view, 3> part;
  std::size_t count = 0;
};
Parts Split(std::string_view text) {
  Parts parts;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    const char c = i < text.size() ? text[i] : '/';
    if (IsDigit(c)) continue;
    const bool isSeparator = c == '/' || c == '-' || c == '.';
    if (!isSeparator || i == start || i - start > 4 || parts.count == parts.part.size()) return {};
    parts.part[parts.count++] = text.substr(start, i - start);
    start = i + 1;
  }
  return parts;
}

struct Date {
  int year = 0;
  int month = 0;
  int day = 0;  // 0: only a month and a year
};

// Parses "31/12/2026" and "2026-12-31", or without a day "12/2026" and "2026-12".
std::optional<Date> ParseDate(std::string_view text, bool withDay) {
  const Parts parts = Split(text);
  if (parts.count != (withDay ? 3U : 2U)) return {};
  if (parts.part[0].size() != 4 && parts.part[parts.count - 1].size() != 4) return {};
  std::array<int, 3> numbers{};
  for (std::size_t i = 0; i < parts.count; ++i)
    numbers[i] = text::ToInt(parts.part[i]);
  if (parts.part[0].size() != 4)
    std::reverse(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(parts.count));
  const Date date{numbers[0], numbers[1], numbers[2]};
  constexpr std::array kDays = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (date.month < 1 || date.month > 12) return {};
  if (withDay && (date.day < 1 || date.day > kDays[static_cast<std::size_t>(date.month) - 1])) return {};
  const bool isLeap = date.year % 4 == 0 && (date.year % 100 != 0 || date.year % 400 == 0);
  if (date.month == 2 && date.day == 29 && !isLeap) return {};
  return date;
}

std::string Print(const Date& date) {
  std::string text = "00/00/0000";
  const auto put = [&](std::size_t place, int number) {
    for (; number != 0; number /= 10)
      text[place--] = static_cast<char>('0' + number % 10);
  };
  put(1, date.day);
  put(4, date.month);
  put(9, date.year);
  return date.day != 0 ? text : text.substr(3);
}

bool IsDate(char type) {
  return type == KESTOR_Data || type == KESTOR_MesAno;
}

}  // namespace

std::optional<Decimal> Decimal::Parse(std::string_view text) {
  text = Trimmed(text);
  bool isNegative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    isNegative = text.front() == '-';
    text.remove_prefix(1);
  } else if (!text.empty() && text.back() == '-') {
    isNegative = true;
    text.remove_suffix(1);
  }
  const std::size_t comma = text.find(',');
  std::string_view whole = text.substr(0, comma);
  std::string_view decimals = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
  if (!AreThousands(whole)) {
    const std::size_t dot = whole.find('.');
    if (comma != std::string_view::npos || dot == std::string_view::npos) return {};
    decimals = whole.substr(dot + 1);
    whole = whole.substr(0, dot);
    if (!AreDigits(whole)) return {};
  }
  if ((comma != std::string_view::npos || !decimals.empty()) && !AreDigits(decimals)) return {};
  while (!decimals.empty() && decimals.back() == '0')
    decimals.remove_suffix(1);
  if (decimals.size() > kDecimals) return {};
  std::uint64_t units = 0;
  std::size_t digits = 0;
  for (const char c : whole) {
    if (!IsDigit(c) || (units == 0 && c == '0')) continue;
    if (++digits > kMostWholeDigits) return {};
    units = units * 10 + static_cast<unsigned>(c - '0');
  }
  std::uint64_t fraction = 0;
  for (std::size_t i = 0; i < kDecimals; ++i)
    fraction = fraction * 10 + (i < decimals.size() ? static_cast<unsigned>(decimals[i] - '0') : 0);
  const Integer scaled = Integer{units} * kOne + fraction;
  return Decimal(isNegative ? -scaled : scaled);
}

std::string Decimal::Print(int decimals, bool thousands) const {
  Integer scaled = scaled_ < 0 ? -scaled_ : scaled_;
  if (decimals < 0) scaled = (scaled + kOne / 2) / kOne * kOne;
  const Integer units = scaled / kOne;
  constexpr std::uint64_t kPart = 1'000'000'000'000'000'000;
  const auto high = static_cast<std::uint64_t>(units / kPart);  // other than 0 only for sums of large values
  std::string whole = std::to_string(static_cast<std::uint64_t>(units % kPart));
  if (high != 0) whole = std::to_string(high) + std::string(kMostWholeDigits - whole.size(), '0') + whole;
  std::string fraction = std::to_string(static_cast<std::uint64_t>(scaled % kOne));
  fraction.insert(0, kDecimals - fraction.size(), '0');
  while (fraction.size() > static_cast<std::size_t>(std::max(decimals, 0)) && fraction.back() == '0')
    fraction.pop_back();
  std::string text = scaled_ < 0 && scaled != 0 ? "-" : "";
  for (std::size_t i = 0; i < whole.size(); ++i) {
    if (thousands && i != 0 && (whole.size() - i) % 3 == 0) text += '.';
    text += whole[i];
  }
  return fraction.empty() ? text : text + ',' + fraction;
}

bool IsNumber(char type) {
  return type == KESTOR_Numerico || type == KESTOR_Valor;
}

Key KeyOf(char type, std::string_view value) {
  value = Trimmed(value);
  if (value.empty()) return {};
  if (IsNumber(type)) {
    if (const std::optional<Decimal> number = Decimal::Parse(value)) return {Key::Kind::typed, *number, {}};
  } else if (IsDate(type)) {
    if (const std::optional<Date> date = ParseDate(value, type == KESTOR_Data))
      return {Key::Kind::typed, Decimal::Of((date->year * 100 + date->month) * 100 + date->day), {}};
  }
  return {Key::Kind::text, {}, FoldedText(value)};
}

std::string Show(char type, std::int32_t format, Decimal value) {
  switch (format) {
    case kestor::formatoMilhar:
      return value.Print(-1, true);
    case kestor::formatoMilharComDecimal:
      return value.Print(2, true);
    default:
      return value.Print(type == KESTOR_Valor ? 2 : 0, false);
  }
}

std::string Show(char type, std::int32_t format, const std::string& value, const std::string& options) {
  const std::string_view trimmed = Trimmed(value);
  if (IsNumber(type)) {
    const std::optional<Decimal> number = Decimal::Parse(trimmed);
    return number ? Show(type, format, *number) : value;
  }
  if (IsDate(type)) {
    const std::optional<Date> date = ParseDate(trimmed, type == KESTOR_Data);
    if (!date) return value;
    return Print(*date);
  }
  std::string shown = value;
  if (type == KESTOR_Opcoes) {
    ForEachOption(options, [&](std::string_view code, std::string_view meaning) {
      if (code != trimmed) return true;
      shown = meaning;
      return false;
    });
  }
  return shown;
}

}  // namespace preview
