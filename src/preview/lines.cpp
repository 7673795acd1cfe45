#include "lines.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "contract/records.h"
#include "value.h"

namespace preview {

namespace {

// A sort key of more lines than this would hold no group together.
constexpr std::size_t kInnermostGroup = 4;
constexpr std::size_t kMostValues = 10'000'000;

std::string SampleText(const Field& field, std::size_t number) {
  const std::string& name = field.description.empty() ? field.alias : field.description;
  return (name.empty() ? "Texto" : name) + ' ' + std::to_string(number + 1);
}

std::string SampleOption(const Field& field, std::size_t number) {
  std::vector<std::string> codes;
  ForEachOption(field.options, [&](std::string_view code, std::string_view) {
    codes.emplace_back(code);
    return true;
  });
  return codes.empty() ? SampleText(field, number) : codes[number % codes.size()];
}

std::string TwoDigits(std::size_t number) {
  const std::string text = std::to_string(number);
  return number < 10 ? '0' + text : text;
}

// A value of the field's type that differs from number to number.
std::string SampleValue(const Field& field, std::size_t number) {
  // Multiples of a prime, so that neighbours do not look alike.
  const std::size_t mixed = (number + 1) * 7919 + std::size_t{field.code} * 131;
  switch (field.type) {
    case KESTOR_Numerico: {
      const std::size_t digits = static_cast<std::size_t>(std::clamp(field.width, 1, 5));
      constexpr std::array<std::size_t, 6> kBounds = {1, 10, 100, 1000, 10000, 100000};
      return std::to_string(mixed % kBounds[digits]);
    }
    case KESTOR_Valor:
      return std::to_string(mixed % 100000) + ',' + TwoDigits(mixed % 97);
    case KESTOR_Data:
      return TwoDigits(number % 28 + 1) + '/' + TwoDigits(mixed % 12 + 1) + "/2026";
    case KESTOR_MesAno:
      return TwoDigits(number % 12 + 1) + "/2026";
    case KESTOR_Conta:
      return std::to_string(mixed % 9 + 1) + '.' + std::to_string(number % 9 + 1) + '.' + TwoDigits(number % 99 + 1);
    case KESTOR_Opcoes:
      return SampleOption(field, number);
    default:
      return SampleText(field, number);
  }
}

}  // namespace

const Field& FieldOf(const Fields& fields, std::uint16_t code) {
  static const Field kUnknown;
  const auto field = std::find_if(fields.begin(), fields.end(), [code](const Field& f) { return f.code == code; });
  return field == fields.end() ? kUnknown : *field;
}

std::size_t PlaceOf(const Lines& lines, std::uint16_t code) {
  const auto place = std::find(lines.codes.begin(), lines.codes.end(), code);
  return place == lines.codes.end() ? kNowhere : static_cast<std::size_t>(place - lines.codes.begin());
}

std::vector<std::uint16_t> UsedCodes(const kestor::CDocRelatorio& document) {
  std::vector<std::uint16_t> codes;
  for (const auto& column : Meant(document.camposEscolhidos.campos)) {
    if (!column.fixo) codes.push_back(column.codigo);
  }
  for (const auto& key : Meant(document.ordenacao.campos))
    codes.push_back(key.codigo);
  for (const auto& total : Meant(document.ordenacao.totalizacoes))
    codes.push_back(total.codigo);
  for (const auto& condition : Meant(document.filtro.condicoes))
    codes.push_back(condition.codigo);
  std::sort(codes.begin(), codes.end());
  codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  return codes;
}

Lines SampleLines(const kestor::CDocRelatorio& document, const Fields& fields, std::size_t count) {
  Lines lines{UsedCodes(document), {}};
  if (lines.codes.empty()) lines.codes.push_back(0);  // a report of fixed columns has lines all the same
  count = std::min(count, kMostValues / lines.codes.size());
  const auto keys = Meant(document.ordenacao.campos);
  std::vector<std::size_t> groups(lines.codes.size(), 1);  // how many lines share a value
  std::size_t group = kInnermostGroup;
  for (auto key = keys.rbegin(); key != keys.rend(); ++key, group = std::min(group * 3, count + 1)) {
    const std::size_t place = PlaceOf(lines, key->codigo);
    groups[place] = std::max(groups[place], group);
  }
  std::vector<const Field*> known;
  for (const std::uint16_t code : lines.codes)
    known.push_back(&FieldOf(fields, code));
  for (std::size_t line = 0; line < count; ++line) {
    for (std::size_t place = 0; place < known.size(); ++place)
      lines.values.push_back(SampleValue(*known[place], line / groups[place]));
  }
  return lines;
}

void Sort(const kestor::CDocRelatorio& document, const Fields& fields, Lines* lines) {
  const std::size_t width = lines->codes.size();
  const std::size_t count = lines->Count();
  std::vector<std::size_t> order(count);
  std::iota(order.begin(), order.end(), std::size_t{0});
  // A key after the other, each among lines that are equal up to there.
  std::vector<std::size_t> ends = {count};  // of the runs of equal lines
  for (const auto& key : Meant(document.ordenacao.campos)) {
    const std::size_t place = PlaceOf(*lines, key.codigo);
    if (place == kNowhere) continue;
    const char type = FieldOf(fields, key.codigo).type;
    std::vector<Key> values(count);
    for (std::size_t line = 0; line < count; ++line)
      values[line] = KeyOf(type, lines->values[line * width + place]);
    std::vector<std::size_t> runs;
    std::size_t start = 0;
    for (const std::size_t end : ends) {
      const auto at = [&](std::size_t line) { return order.begin() + static_cast<std::ptrdiff_t>(line); };
      std::stable_sort(at(start), at(end), [&](std::size_t a, std::size_t b) { return values[a] < values[b]; });
      for (std::size_t i = start + 1; i < end; ++i) {
        if (values[order[i]] != values[order[i - 1]]) runs.push_back(i);
      }
      runs.push_back(end);
      start = end;
    }
    ends = std::move(runs);
  }
  std::vector<std::string> sorted;
  sorted.reserve(lines->values.size());
  for (const std::size_t line : order) {
    for (std::size_t place = 0; place < width; ++place)
      sorted.push_back(std::move(lines->values[line * width + place]));
  }
  lines->values = std::move(sorted);
}

}  // namespace preview
