#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <system_error>

#include "text.h"

namespace text {
namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string_view SkipWhiteSpace(std::string_view ansi) {
  const auto isWhite = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  while (!ansi.empty() && isWhite(ansi.front()))
    ansi.remove_prefix(1);
  return ansi;
}

// Removes a sign from the start of `*number`; true for a minus.
bool TakeSign(std::string_view* number) {
  if (number->empty() || (number->front() != '-' && number->front() != '+')) return false;
  const bool negative = number->front() == '-';
  number->remove_prefix(1);
  return negative;
}

bool StartsAsDecimal(std::string_view number) {
  if (!number.empty() && number.front() == '.') number.remove_prefix(1);
  return !number.empty() && IsDigit(number.front());
}

// For an unsigned decimal number that does not fit into a double: true when it is too large, false when it is too close
// to zero. Judges by the place of its first non-zero digit, shifted by its exponent.
bool IsTooLarge(std::string_view number) {
  constexpr std::int64_t kLimit = std::int64_t{1} << 40;
  std::int64_t magnitude = 0;
  bool counts = false;
  bool fraction = false;
  std::size_t i = 0;
  for (; i < number.size() && (IsDigit(number[i]) || (number[i] == '.' && !fraction)); ++i) {
    if (number[i] == '.') {
      fraction = true;
      continue;
    }
    counts = counts || number[i] != '0';
    if (counts && !fraction) ++magnitude;
    if (!counts && fraction) --magnitude;
  }
  if (i < number.size() && (number[i] == 'e' || number[i] == 'E')) {
    std::string_view digits = number.substr(i + 1);
    const bool negative = TakeSign(&digits);
    std::int64_t exponent = 0;
    for (std::size_t d = 0; d < digits.size() && IsDigit(digits[d]); ++d) {
      exponent = std::min(kLimit, exponent * 10 + (digits[d] - '0'));
    }
    magnitude += negative ? -exponent : exponent;
  }
  return magnitude > 0;
}

}  // namespace

double ToDouble(std::string_view ansi) {
  std::string_view number = SkipWhiteSpace(ansi);
  const bool negative = TakeSign(&number);
  if (!StartsAsDecimal(number)) return 0;
  double value = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  if (result.ec == std::errc::result_out_of_range) value = IsTooLarge(number) ? HUGE_VAL : 0;
  return negative ? -value : value;
}

std::string FormatDouble(double value) {
  // The sign, every digit of the largest double, the point and the decimals.
  std::array<char, std::numeric_limits<double>::max_exponent10 + 16> digits{};
  const auto result = std::to_chars(digits.begin(), digits.end(), value, std::chars_format::fixed, 6);
  return {digits.begin(), result.ptr};
}

}  // namespace text
