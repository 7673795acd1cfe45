// Values of a report: numbers that add up exactly, dates, texts, and their order.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace preview {

// An exact decimal fraction. A parsed value has at most 18 digits before the decimal sign and 10 after it, so that a
// sum of ten thousand million values still fits.
class Decimal {
 public:
  Decimal() = default;

  // Parses a number as the desktop writes it: "1.234,56", "-12,5", "12,5-", "1234.56". Dots followed by groups of three
  // digits separate thousands. Returns nothing for any other text, or if there are more digits.
  static std::optional<Decimal> Parse(std::string_view text);
  static Decimal Of(std::int64_t whole) { return Decimal(whole * kOne); }

  Decimal& operator+=(Decimal other) {
    scaled_ += other.scaled_;
    return *this;
  }
  std::strong_ordering operator<=>(const Decimal& other) const { return scaled_ <=> other.scaled_; }
  bool operator==(const Decimal&) const = default;

  // Prints the number with a decimal comma and all its decimals, at least `decimals`. If `decimals` is negative, rounds
  // to a whole number, halves away from zero.
  std::string Print(int decimals, bool thousands) const;

 private:
  __extension__ using Integer = __int128;
  static constexpr int kDecimals = 10;
  static constexpr Integer kOne = 10'000'000'000;

  explicit Decimal(Integer scaled) : scaled_(scaled) {}

  Integer scaled_ = 0;
};

// What values are compared by. Empty values come first, then values that fit their type, then any other text.
struct Key {
  enum class Kind { empty, typed, text };

  Kind kind = Kind::empty;
  Decimal number;    // the number; for a date, its year, month and day as one number
  std::string text;  // without letter case and accents

  std::strong_ordering operator<=>(const Key& other) const {
    return std::tie(kind, number, text) <=> std::tie(other.kind, other.number, other.text);
  }
  bool operator==(const Key&) const = default;
};

// `type` is a letter of KESTOR2_TipoDado.
bool IsNumber(char type);
Key KeyOf(char type, std::string_view value);

// Returns the value as a page shows it. `format` is a FormatoValor. A value that does not fit its type is shown
// unchanged.
std::string Show(char type, std::int32_t format, const std::string& value, const std::string& options);
std::string Show(char type, std::int32_t format, Decimal value);

// Calls `visit` for each option of "1=Lucro real;2=Simples" with its code and its text, until it returns false.
template <typename Visit>
void ForEachOption(std::string_view options, const Visit& visit) {
  while (!options.empty()) {
    const std::string_view option = options.substr(0, options.find(';'));
    options.remove_prefix(option.size() == options.size() ? option.size() : option.size() + 1);
    const std::size_t sign = option.find('=');
    if (sign != std::string_view::npos && !visit(option.substr(0, sign), option.substr(sign + 1))) return;
  }
}

}  // namespace preview
