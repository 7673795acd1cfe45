// Values of a report: numbers that are added exactly, dates, texts, and their order.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace preview {

// A decimal fraction, exact. A value has at most 18 digits in front of the decimal sign and 10 behind it, so that a sum
// of ten thousand million of them still fits.
class Decimal {
 public:
  Decimal() = default;

  // As the desktop writes numbers: "1.234,56", "-12,5", "12,5-", "1234.56". A dot in front of groups of three digits
  // separates thousands. Nothing for another text, and for one of more digits.
  static std::optional<Decimal> Parse(std::string_view text);
  static Decimal Of(std::int64_t whole) { return Decimal(whole * kOne); }

  Decimal& operator+=(Decimal other) {
    scaled_ += other.scaled_;
    return *this;
  }
  std::strong_ordering operator<=>(const Decimal& other) const { return scaled_ <=> other.scaled_; }
  bool operator==(const Decimal&) const = default;

  // With a comma, as many decimals as it has but at least so many; `decimals` below 0: rounded to a whole number,
  // halves away from zero.
  std::string Print(int decimals, bool thousands) const;

 private:
  __extension__ using Integer = __int128;
  static constexpr int kDecimals = 10;
  static constexpr Integer kOne = 10'000'000'000;

  explicit Decimal(Integer scaled) : scaled_(scaled) {}

  Integer scaled_ = 0;
};

// What a value is compared by: nothing, then what its type asks for, then any other text.
struct Key {
  enum class Kind { empty, typed, text };

  Kind kind = Kind::empty;
  Decimal number;    // of a number; of a date its year, month and day as one number
  std::string text;  // without letter case and accents

  std::strong_ordering operator<=>(const Key& other) const {
    return std::tie(kind, number, text) <=> std::tie(other.kind, other.number, other.text);
  }
  bool operator==(const Key&) const = default;
};

// `type` is a letter of KESTOR2_TipoDado.
bool IsNumber(char type);
Key KeyOf(char type, std::string_view value);

// The value as a page shows it. `format` is a FormatoValor. A value that is not what its type asks for is shown as it
// is.
std::string Show(char type, std::int32_t format, const std::string& value, const std::string& options);
std::string Show(char type, std::int32_t format, Decimal value);

// Calls for each option of "1=Lucro real;2=Simples" with its code and its text, until that returns false.
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
