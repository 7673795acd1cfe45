#include "lines.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "contract/records.h"
#include "platform/text/text.h"
#include "value.h"

namespace preview {

namespace {

// Number of lines that share a value of the innermost sort key.
constexpr std::size_t kInnermostGroup = 4;
constexpr std::size_t kMostValues = 10'000'000;

std::string Cut(const std::string& text, std::int32_t width) {
  return width <= 0 ? text : std::string(text::FirstCharacters(text, static_cast<std::size_t>(width)));
}

// Every third text is about as long as the field may be.
std::string SampleText(const Field& field, std::size_t number) {
  constexpr std::size_t kLong = 3;
  constexpr std::int32_t kLongest = 60;
  const std::string& name = field.description.empty() ? field.alias : field.description;
  std::string text = (name.empty() ? "Texto" : name) + ' ' + std::to_string(number + 1);
  while (number % kLong == kLong - 1 && text.size() < static_cast<std::size_t>(std::clamp(field.width, 0, kLongest)))
    text += " e complemento";
  return Cut(text, field.width);
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

// Returns a number that leaves room in the width for thousands separators and for the digits of a sum.
std::size_t SampleNumber(std::size_t mixed, std::int32_t width) {
  constexpr std::array<std::size_t, 6> kBounds = {1, 10, 100, 1000, 10000, 100000};
  constexpr std::int32_t kForSum = 2;
  const std::int32_t room = width - (width > kForSum + 1 ? kForSum : 0);
  return mixed % kBounds[static_cast<std::size_t>(std::clamp(room - room / 4, 1, 5))];
}

// Returns a value of the field's type for a column of this width. It varies with `number`.
std::string SampleValue(const Field& field, std::int32_t width, std::size_t number) {
  constexpr std::int32_t kDecimals = 3;
  // Multiples of a prime, so that neighbouring values do not look alike.
  const std::size_t mixed = (number + 1) * 7919 + std::size_t{field.code} * 131;
  switch (field.type) {
    case KESTOR_Numerico:
      return std::to_string(SampleNumber(mixed, width));
    case KESTOR_Valor:
      return std::to_string(SampleNumber(mixed, width - kDecimals)) + ',' + TwoDigits(mixed % 97);
    case KESTOR_Data:
      return TwoDigits(number % 28 + 1) + '/' + TwoDigits(mixed % 12 + 1) + "/2026";
    case KESTOR_MesAno:
      return TwoDigits(number % 12 + 1) + "/2026";
    case KESTOR_Conta:
      return Cut(
          std::to_string(mixed % 9 + 1) + '.' + std::to_string(number % 9 + 1) + '.' + TwoDigits(number % 99 + 1),
          width);
    case KESTOR_Opcoes:
      return SampleOption(field, number);
    default:
      return SampleText(field, number);
  }
}

// Returns the width of the field's narrowest column, or the catalogue's width if the field has no column.
std::int32_t WidthOf(const kestor::CDocRelatorio& document, const Field& field) {
  std::int32_t width = 0;
  for (const auto& column : Meant(document.camposEscolhidos.campos)) {
    const bool isNarrower =
        !column.fixo && column.codigo == field.code && column.tamanho > 0 && (width == 0 || column.tamanho < width);
    if (isNarrower) width = column.tamanho;
  }
  return width != 0 ? width : field.width;
}

}  // namespace

const Field& FieldOf(const Fields& fields, std::uint16_t code) {
  static const Field kUnknown;
  const auto field = std::find_if(fields.begin(), fields.end(), [code](const Field& f) { return f.code == code; });
  return field == fields.end() ? kUnknown : *field;
}

std::string NameOf(const Field& field) {
  return std::to_string(field.code) + (field.alias.empty() ? "" : " (" + field.alias + ")");
}

Field FieldWithout(const kestor::CDocRelatorio& document, std::uint16_t code) {
  Field field;
  field.code = code;
  for (const auto& column : Meant(document.camposEscolhidos.campos)) {
    if (column.fixo || column.codigo != code) continue;
    field.type = column.tipoDado;
    field.width = column.tamanho;
    break;
  }
  return field;
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
  if (lines.codes.empty()) lines.codes.push_back(0);  // a report of fixed columns also has lines
  count = std::min(count, kMostValues / lines.codes.size());
  const auto keys = Meant(document.ordenacao.campos);
  std::vector<std::size_t> groups(lines.codes.size(), 1);  // how many consecutive lines share a value
  std::size_t group = kInnermostGroup;
  for (auto key = keys.rbegin(); key != keys.rend(); ++key, group = std::min(group * 3, count + 1)) {
    const std::size_t place = PlaceOf(lines, key->codigo);
    groups[place] = std::max(groups[place], group);
  }
  std::vector<const Field*> known;
  std::vector<std::int32_t> widths;
  for (const std::uint16_t code : lines.codes) {
    known.push_back(&FieldOf(fields, code));
    widths.push_back(WidthOf(document, *known.back()));
  }
  for (std::size_t line = 0; line < count; ++line) {
    for (std::size_t place = 0; place < known.size(); ++place)
      lines.values.push_back(SampleValue(*known[place], widths[place], line / groups[place]));
  }
  return lines;
}

void Sort(const kestor::CDocRelatorio& document, const Fields& fields, Lines* lines) {
  const std::size_t width = lines->codes.size();
  const std::size_t count = lines->Count();
  std::vector<std::size_t> order(count);
  std::iota(order.begin(), order.end(), std::size_t{0});
  // Sorts by one key after the other, each within the runs of lines that are equal so far.
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
