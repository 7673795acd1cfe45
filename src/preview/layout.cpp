// Lays out the pages of a report.
#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "contract/records.h"
#include "lines.h"
#include "platform/text/text.h"
#include "value.h"

namespace preview {

namespace {

using kestor::CDocRelatorio;

// ---- Measures ------------------------------------------------------------------------------------------------------

constexpr double kPointsInCentimetre = 72 / 2.54;
constexpr double kShortSide = 595.28;  // of A4
constexpr double kLongSide = 841.89;
constexpr double kLeastMargin = 1 * kPointsInCentimetre;  // on the right and at the bottom
constexpr double kLogoWidth = 3 * kPointsInCentimetre;
constexpr double kLogoHeight = 1.5 * kPointsInCentimetre;
// Widths are counted in characters; this is the width of a digit in a sans-serif font of size 1.
constexpr double kDigit = 0.556;
constexpr double kLeading = 1.2;
constexpr int kLeastSize = 4;
constexpr int kMostSize = 48;  // so that a page always has room for a title and a line
constexpr int kUsualSize = 10;
constexpr std::size_t kGap = 1;  // characters between columns
constexpr std::size_t kMostTitleLines = 3;
constexpr std::size_t kMostTextLines = 50;       // in one value
constexpr std::size_t kMostCharacters = 10'000;  // in one text

double Clamped(double value, double most) {
  return std::isfinite(value) ? std::clamp(value, 0.0, most) : 0.0;
}

int SizeOf(std::int32_t size) {
  return size <= 0 ? kUsualSize : std::clamp<int>(size, kLeastSize, kMostSize);
}

// Returns as much of the text as a page shows at most.
std::string Utf8(std::string_view ansi) {
  return text::ToUtf8(ansi.substr(0, kMostCharacters));
}

// Breaks a text into at most `most` lines of this width, at blanks if possible.
void Wrap(std::string_view text, std::size_t width, std::size_t most, std::vector<std::string_view>* lines) {
  lines->clear();
  text = text::FirstCharacters(text.substr(0, 4 * kMostCharacters), kMostCharacters);
  while (!text.empty() && lines->size() < most) {
    const std::size_t newline = text.find('\n');
    const std::string_view paragraph = text.substr(0, newline);
    std::size_t end = text::FirstCharacters(paragraph, width).size();
    std::size_t next = end;
    if (end < paragraph.size()) {
      const std::size_t blank = paragraph.rfind(' ', end);
      if (blank != std::string_view::npos && blank != 0) next = (end = blank) + 1;
    } else if (newline != std::string_view::npos) {
      next = newline + 1;
    }
    lines->push_back(paragraph.substr(0, end - (end != 0 && paragraph[end - 1] == '\r' ? 1 : 0)));
    text.remove_prefix(next);
  }
}

std::vector<std::string_view> Wrapped(std::string_view text, std::size_t width, std::size_t most) {
  std::vector<std::string_view> lines;
  Wrap(text, width, most, &lines);
  return lines;
}

Align AlignOf(char letter) {
  switch (letter) {
    case KESTOR_Direita:
      return Align::right;
    case KESTOR_Centro:
      return Align::centre;
    default:
      return Align::left;
  }
}

// ---- Columns -------------------------------------------------------------------------------------------------------

struct Column {
  const kestor::CampoEscolhido* field;
  const Field* catalogued;
  char type;          // type to show its values as
  std::size_t value;  // its place in a line; kNowhere: the content is fixed or unknown
  std::size_t row;    // index among the rows that a line of the report takes
  std::size_t start;  // in characters from the margin
  std::size_t width;  // characters
};

std::string TitleOf(const CDocRelatorio& document, const Fields& fields, std::uint16_t code) {
  for (const kestor::CampoEscolhido& column : Meant(document.camposEscolhidos.campos)) {
    if (!column.fixo && column.codigo == code && !column.cabecalho.empty()) return Utf8(column.cabecalho);
  }
  const Field& field = FieldOf(fields, code);
  if (!field.description.empty()) return field.description;
  return field.alias.empty() ? "Campo " + std::to_string(code) : field.alias;
}

// A level of groups. A group is a run of lines with the same values of the sort keys up to this one.
struct Group {
  std::size_t value = kNowhere;
  char type = 'A';
  std::int32_t separator = 0;
  std::string title;
  std::string options;
};

struct Total {
  std::size_t value = kNowhere;
  const Column* column = nullptr;  // null: the field has none
  std::string title;
  char type = 'V';
  bool atBreaks = false;
  bool atEnd = false;
};

class Layout {
 public:
  Layout(const CDocRelatorio& document, const Fields& fields, const Lines& lines, const LayoutOptions& options,
         const std::function<bool(const Page&)>& sink, std::vector<std::string>* notes)
      : document_(document), lines_(lines), options_(options), sink_(sink), notes_(notes) {
    Measure();
    PlaceColumns(fields);
    PrepareGroups(fields);
    PrepareTotals(fields);
    PrepareMargins(fields);
  }

  void Run() {
    Begin();
    const std::size_t count = lines_.Count();
    for (std::size_t line = 0; line < count && goesOn_; ++line) {
      if (line != 0) Break(line);
      Add(line);
      if (!document_.ordenacao.somenteTotais) PlaceLine(line);
    }
    if (!goesOn_) return;
    if (count != 0) {
      CloseGroups(0, count - 1);
      PlaceTotals(groups_.size(), "Total geral");
    }
    const std::string closing = Utf8(document_.impressao.detalhe.textoFinal);
    if (!closing.empty()) Space();
    for (const std::string_view text : Wrapped(closing, LineCharacters(kDetail), kMostCharacters))
      PlaceBodyText(text, kDetail, Align::left);
    if (goesOn_) Finish();
  }

 private:
  enum FontPlace : std::size_t { kHeader, kHeaderBold, kTitles, kDetail, kTotals, kFooter, kFonts };
  struct MarginText {
    std::string text;
    FontPlace font;
    Align align;
  };
  using MarginLine = std::vector<MarginText>;  // next to each other

  // ---- Preparation

  void Measure() {
    const auto& print = document_.impressao;
    const bool isPlain = options_.lineWidth != 0;
    const auto font = [&](FontPlace place, const std::string& family, std::int32_t size, bool bold) {
      fonts_[place] = {text::Printable(text::ToUtf8(family.substr(0, 100))),
                       static_cast<double>(isPlain ? kUsualSize : SizeOf(size)), bold};
    };
    font(kHeader, print.cabecalho.fonte, print.cabecalho.tamanhoFonte, false);
    font(kHeaderBold, print.cabecalho.fonte, print.cabecalho.tamanhoFonte, true);
    font(kTitles, print.detalhe.fonteColuna, print.detalhe.tamanhoFonteColuna, true);
    font(kDetail, print.detalhe.fonteDetalhe, print.detalhe.tamanhoFonteDetalhe, false);
    font(kTotals, print.detalhe.fonteDetalhe, print.detalhe.tamanhoFonteDetalhe, true);
    font(kFooter, print.rodape.fonte, print.rodape.tamanhoFonte, false);
    const bool isLandscape = print.orientacao == kestor::orientacaoPaisagem;
    width_ = isLandscape ? kLongSide : kShortSide;
    height_ = isLandscape ? kShortSide : kLongSide;
    left_ = Clamped(print.margemEsquerda * kPointsInCentimetre, width_ / 2);
    top_ = Clamped(print.margemSuperior * kPointsInCentimetre, height_ / 5);
    right_ = width_ - kLeastMargin;
    character_ = fonts_[kDetail].size * kDigit;
    if (isPlain) {
      const double narrow = static_cast<double>(options_.lineWidth) * character_;
      right_ = std::min(right_ - left_, narrow);
      width_ = right_;
      left_ = top_ = 0;
    }
  }

  std::size_t LineCharacters(FontPlace font) const {
    return std::max<std::size_t>(1, static_cast<std::size_t>((right_ - left_) / (fonts_[font].size * kDigit) + 0.01));
  }

  void PlaceColumns(const Fields& fields) {
    const auto& all = document_.camposEscolhidos.campos;
    const std::size_t room = LineCharacters(kDetail);
    std::size_t row = 0;
    std::size_t start = 0;
    std::size_t withoutWidth = 0;
    std::size_t cut = 0;
    for (const kestor::CampoEscolhido& field : Meant(all)) {
      if (field.tamanho <= 0) {
        ++withoutWidth;
        continue;
      }
      std::size_t width = std::min<std::size_t>(static_cast<std::size_t>(field.tamanho), room);
      if (Truncates()) {
        if (start + width > room) ++cut;
        if (start >= room) continue;
        width = std::min(width, room - start);
      } else if (start != 0 && start + width > room) {
        ++row;
        start = 0;
      }
      const Field* const catalogued = field.fixo ? nullptr : &FieldOf(fields, field.codigo);
      const bool isNumber = catalogued != nullptr && IsNumber(catalogued->type) && !IsNumber(field.tipoDado);
      columns_.push_back({&field, catalogued, isNumber ? catalogued->type : field.tipoDado,
                          field.fixo ? kNowhere : PlaceOf(lines_, field.codigo), row, start, width});
      start += width + kGap;
    }
    for (const Column& column : columns_)
      titles_.push_back(Utf8(column.field->cabecalho));
    if (withoutWidth != 0) Note("columns without a width are not drawn: " + std::to_string(withoutWidth));
    if (cut != 0) Note("columns that the page has no room for, or not all of it: " + std::to_string(cut));
    NoteBeginning(all, "columns");
    NoteBeginning(document_.ordenacao.campos, "sort keys");
    NoteBeginning(document_.ordenacao.totalizacoes, "totals");
    NoteBeginning(document_.filtro.condicoes, "conditions");
  }

  void Note(std::string note) {
    if (notes_ != nullptr) notes_->push_back(std::move(note));
  }

  template <typename Entry>
  void NoteBeginning(const std::vector<Entry>& list, const char* ofWhat) {
    if (Meant(list).size() < list.size())
      Note("only the first " + std::to_string(Meant(list).size()) + " of " + std::to_string(list.size()) + ' ' +
           ofWhat + " count");
  }

  void PrepareGroups(const Fields& fields) {
    for (const kestor::CampoOrdenacao& key : Meant(document_.ordenacao.campos)) {
      const Field& field = FieldOf(fields, key.codigo);
      groups_.push_back({PlaceOf(lines_, key.codigo), field.type, key.separador, TitleOf(document_, fields, key.codigo),
                         field.options});
    }
  }

  void PrepareTotals(const Fields& fields) {
    for (const kestor::CampoTotalizacao& total : Meant(document_.ordenacao.totalizacoes)) {
      const auto column = std::find_if(columns_.begin(), columns_.end(), [&](const Column& c) {
        return !c.field->fixo && c.field->codigo == total.codigo;
      });
      totals_.push_back({PlaceOf(lines_, total.codigo), column == columns_.end() ? nullptr : &*column,
                         TitleOf(document_, fields, total.codigo), FieldOf(fields, total.codigo).type, total.naQuebra,
                         total.geral});
    }
    sums_.assign(groups_.size() + 1, std::vector<Decimal>(totals_.size()));
  }

  std::string Conditions(const Fields& fields) const {
    constexpr std::array kSigns = {"=", "≠", ">", "≥", "<", "≤"};
    std::string text;
    for (const kestor::CondicaoFiltro& condition : Meant(document_.filtro.condicoes)) {
      text += text.empty() ? "Condições: " : condition.comparador == kestor::comparadorOu ? " ou " : " e ";
      const auto place = static_cast<std::size_t>(condition.operador);
      text += TitleOf(document_, fields, condition.codigo) + ' ' + (place < kSigns.size() ? kSigns[place] : "?") + ' ' +
              Utf8(condition.valorComparar);
    }
    return text;
  }

  // Prepares the header and the footer, which are on each page, and limits each to a part of the page.
  void PrepareMargins(const Fields& fields) {
    const auto& header = document_.impressao.cabecalho;
    std::string second = header.dataEmissao ? "Emissão: " + options_.issueDate : "";
    if (header.periodo) {
      second += (second.empty() ? "" : "   ") + std::string("Período: ") + std::to_string(document_.dataInicial) +
                " a " + std::to_string(document_.dataFinal);
    }
    // The page number stands next to the first line if that leaves room for a few characters, otherwise above it.
    constexpr std::size_t kNumber = 16;
    constexpr std::size_t kFew = 8;
    const std::size_t full = LineCharacters(kHeader);
    const std::size_t logo =
        header.logotipo ? static_cast<std::size_t>(kLogoWidth / (fonts_[kHeader].size * kDigit)) + 2 : 0;
    const bool isBeside = full >= kNumber + logo + kFew;
    const std::size_t room = isBeside ? full - kNumber - logo : std::max<std::size_t>(1, full - std::min(full, logo));
    std::vector<std::string_view> below = Wrapped(second, room, 2);
    const std::string conditions = options_.isSample ? Conditions(fields) : "";
    for (const std::string_view text : Wrapped(conditions, room, 3))
      below.push_back(text);
    const std::size_t most = LinesIn(height_ / 4, kHeader);
    const std::size_t free = std::max<std::size_t>(1, most - std::min(most, below.size()));
    const std::string title = Utf8(header.texto);
    const std::string additional = Utf8(header.cabecalhoAdicional);
    bool hasAll = Fill(Wrapped(title, room, kMostTextLines), kHeaderBold, free, &header_);
    hasAll = Fill(Wrapped(additional, room, kMostTextLines), kHeader, free, &header_) && hasAll;
    hasAll = Fill(below, kHeader, most, &header_) && hasAll;
    if (!hasAll) Note("the page has no room for all lines of the header");
    if (header_.empty() || !isBeside) header_.emplace(header_.begin());
    header_.front().push_back({"", kHeader, Align::right});
    headerHeight_ = static_cast<double>(header_.size()) * fonts_[kHeader].size * kLeading;
    if (header.logotipo && options_.lineWidth == 0) headerHeight_ = std::max(headerHeight_, kLogoHeight + 4);

    const auto& footer = document_.impressao.rodape;
    const std::string first = Utf8(footer.texto);
    const std::string last = Utf8(footer.texto2);
    const std::size_t mostBelow = LinesIn(height_ / 6, kFooter);
    const std::vector<std::string_view> lastLines = Wrapped(last, LineCharacters(kFooter), kMostTextLines);
    const std::size_t kept = std::min(lastLines.size(), mostBelow / 2);
    hasAll = Fill(Wrapped(first, LineCharacters(kFooter), kMostTextLines), kFooter, mostBelow - kept, &footer_);
    hasAll = Fill(lastLines, kFooter, mostBelow, &footer_) && hasAll;
    if (!hasAll) Note("the page has no room for all lines of the footers");
    const double footerHeight = static_cast<double>(footer_.size()) * fonts_[kFooter].size * kLeading;
    bottom_ = height_ - kLeastMargin - footerHeight - (footer_.empty() ? 0 : 6);
  }

  std::size_t LinesIn(double height, FontPlace font) const {
    return static_cast<std::size_t>(height / (fonts_[font].size * kLeading));
  }

  // Returns false if there is no room for all texts.
  bool Fill(const std::vector<std::string_view>& texts, FontPlace font, std::size_t most,
            std::vector<MarginLine>* lines) const {
    for (const std::string_view text : texts) {
      if (lines->size() == most) return false;
      lines->push_back({{std::string(text), font, Align::left}});
    }
    return true;
  }

  bool Truncates() const { return document_.impressao.truncarColunas; }

  // ---- Pages

  void Begin() {
    page_.texts.clear();
    page_.rules.clear();
    page_.width = width_;
    page_.height = height_;
    page_.characterWidth = character_;
    page_.fonts.assign(fonts_.begin(), fonts_.end());
    y_ = top_;
    const auto& print = document_.impressao;
    double left = left_;
    if (print.cabecalho.logotipo && options_.lineWidth == 0) {
      page_.logo = Box{left_, top_, std::min(kLogoWidth, (right_ - left_) / 3), kLogoHeight};
      left += page_.logo->width + 2 * character_;
    }
    const bool bySheet = print.tipoNumeracao == kestor::numeracaoFolha;
    const std::int64_t number = print.paginaInicial + static_cast<std::int64_t>(bySheet ? pages_ / 2 : pages_);
    header_.front().back().text = (bySheet ? "Folha " : "Página ") + std::to_string(number);
    for (const MarginLine& line : header_)
      PlaceMargin(line, left);
    y_ = top_ + headerHeight_;
    PlaceRule();
    PlaceTitles();
    bodyTop_ = y_;
    ++pages_;
  }

  void PlaceMargin(const MarginLine& line, double left) {
    double height = 0;
    for (const MarginText& text : line)
      height = std::max(height, fonts_[text.font].size * kLeading);
    for (const MarginText& text : line)
      Place(left, right_ - left, text.align, text.font, text.text);
    y_ += height;
  }

  void PlaceTitles() {
    if (columns_.empty()) return;
    const double most = y_ + (bottom_ - y_) / 2;
    PlaceCells(titles_, kTitles, Truncates() ? 1 : kMostTitleLines, most, &wrappedTitles_);
    PlaceRule();
  }

  void Finish() {
    y_ = bottom_ + 6;
    if (!footer_.empty()) page_.rules.push_back({left_, bottom_ + 3, right_ - left_});
    for (const MarginLine& line : footer_)
      PlaceMargin(line, left_);
    goesOn_ = sink_(page_);
  }

  void NewPage() {
    if (!goesOn_) return;
    Finish();
    if (goesOn_) Begin();
  }

  // Begins a new page if the body of this one has no room for the height. An empty body takes anything.
  void Need(double height) {
    if (y_ + height > bottom_ && y_ > bodyTop_) NewPage();
  }

  void Space() {
    if (y_ > bodyTop_) y_ += fonts_[kDetail].size * kLeading / 2;
  }

  void Place(double x, double width, Align align, FontPlace font, std::string_view text) {
    if (!text.empty()) page_.texts.push_back({x, y_ + fonts_[font].size, width, align, font, text::Printable(text)});
  }

  void PlaceRule() {
    page_.rules.push_back({left_, y_ + 2, right_ - left_});
    y_ += 4;
  }

  void PlaceBodyText(std::string_view text, FontPlace font, Align align) {
    if (!goesOn_) return;
    const double height = fonts_[font].size * kLeading;
    Need(height);
    if (!goesOn_) return;
    Place(left_, right_ - left_, align, font, text);
    y_ += height;
  }

  // Places a text for each column, on as many lines as needed. Omits lines below `limit`. If `limit` is 0, begins new
  // pages instead; their titles are placed meanwhile, so they need a `wrapped` of their own.
  void PlaceCells(const std::vector<std::string>& cells, FontPlace font, std::size_t mostLines, double limit,
                  std::vector<std::vector<std::string_view>>* wrapped) {
    const double height = fonts_[font].size * kLeading;
    wrapped->resize(columns_.size());
    for (std::size_t first = 0, end = 0; first < columns_.size(); first = end) {
      std::size_t lines = 0;
      for (end = first; end < columns_.size() && columns_[end].row == columns_[first].row; ++end) {
        Wrap(cells[end], columns_[end].width, mostLines, &(*wrapped)[end]);
        lines = std::max(lines, (*wrapped)[end].size());
      }
      if (lines == 0 && font == kTotals) continue;
      for (std::size_t line = 0; line < std::max<std::size_t>(lines, 1) && goesOn_; ++line) {
        if (limit != 0 && y_ + height > limit && line + first != 0) return;
        if (limit == 0) Need(height);
        if (!goesOn_) return;
        for (std::size_t i = first; i < end; ++i) {
          const Column& column = columns_[i];
          if (line < (*wrapped)[i].size()) {
            Place(left_ + static_cast<double>(column.start) * character_,
                  static_cast<double>(column.width) * character_, AlignOf(column.field->alinhamento), font,
                  (*wrapped)[i][line]);
          }
        }
        y_ += height;
      }
    }
  }

  // ---- Lines and groups

  void PlaceLine(std::size_t line) {
    cells_.assign(columns_.size(), {});
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const Column& column = columns_[i];
      const kestor::CampoEscolhido& field = *column.field;
      if (field.fixo) {
        cells_[i] = Utf8(field.conteudo);
      } else if (column.value != kNowhere) {
        cells_[i] = Show(column.type, field.formatoValor, ValueOf(line, column.value), column.catalogued->options);
        // A number that is cut off would be read as another one.
        if (IsNumber(column.type) && text::Characters(cells_[i]) > column.width) cells_[i].assign(column.width, '#');
      }
    }
    PlaceCells(cells_, kDetail, Truncates() ? 1 : kMostTextLines, 0, &wrapped_);
  }

  const std::string& ValueOf(std::size_t line, std::size_t place) const {
    return lines_.values[line * lines_.codes.size() + place];
  }

  // Returns whether the line begins a new group of this level, if the levels above it stay the same.
  bool BeginsGroup(std::size_t level, std::size_t line) const {
    const Group& group = groups_[level];
    if (group.value == kNowhere) return false;
    const std::string& value = ValueOf(line, group.value);
    const std::string& previous = ValueOf(line - 1, group.value);
    return value != previous && KeyOf(group.type, value) != KeyOf(group.type, previous);
  }

  void Break(std::size_t line) {
    std::size_t level = 0;
    while (level < groups_.size() && !BeginsGroup(level, line))
      ++level;
    if (level == groups_.size()) return;
    CloseGroups(level, line - 1);
    std::int32_t separator = kestor::separadorNenhum;
    for (std::size_t ended = level; ended < groups_.size(); ++ended)
      separator = std::max(separator, groups_[ended].separator);
    if (!goesOn_ || separator == kestor::separadorNenhum) return;
    if (separator == kestor::separadorPagina) {
      if (y_ > bodyTop_) NewPage();
    } else {
      Need(4);
      if (goesOn_) PlaceRule();
    }
  }

  // Places the totals of the groups that end with the line, the innermost group first.
  void CloseGroups(std::size_t level, std::size_t line) {
    for (std::size_t ended = groups_.size(); ended-- > level;) {
      const Group& group = groups_[ended];
      const std::string value =
          group.value == kNowhere ? ""
                                  : Show(group.type, kestor::formatoNenhum, ValueOf(line, group.value), group.options);
      PlaceTotals(ended, "Total de " + group.title + ": " + value);
      std::vector<Decimal>& outer = sums_[ended == 0 ? groups_.size() : ended - 1];
      for (std::size_t i = 0; i < totals_.size(); ++i)
        outer[i] += std::exchange(sums_[ended][i], Decimal());
    }
  }

  // Adds the line's numbers to the sums of the innermost group. CloseGroups carries them to the outer groups.
  void Add(std::size_t line) {
    std::vector<Decimal>& sums = sums_[groups_.empty() ? 0 : groups_.size() - 1];
    for (std::size_t i = 0; i < totals_.size(); ++i) {
      if (totals_[i].value == kNowhere) continue;
      if (const auto number = Decimal::Parse(ValueOf(line, totals_[i].value))) sums[i] += *number;
    }
  }

  // Places the sums of a level; the number of groups stands for the whole report. A sum without a column, or wider than
  // its column, gets a line of its own.
  void PlaceTotals(std::size_t level, const std::string& label) {
    const bool isEnd = level == groups_.size();
    std::vector<std::string> cells(columns_.size());
    std::vector<std::string> others;
    bool isWanted = false;
    for (std::size_t i = 0; i < totals_.size(); ++i) {
      const Total& total = totals_[i];
      if (isEnd ? !total.atEnd : !total.atBreaks) continue;
      isWanted = true;
      const bool hasColumn = total.column != nullptr;
      std::string sum = hasColumn ? Show(total.column->type, total.column->field->formatoValor, sums_[level][i])
                                  : Show(total.type, kestor::formatoNenhum, sums_[level][i]);
      if (!hasColumn || text::Characters(sum) > total.column->width) {
        others.push_back(total.title + ": " + sum);
      } else {
        cells[static_cast<std::size_t>(total.column - columns_.data())] = std::move(sum);
      }
    }
    if (!isWanted) return;
    const std::string shown = text::Printable(label);
    std::vector<std::string_view> lines = Wrapped(shown, LineCharacters(kTotals), kMostTextLines);
    const std::string_view last = lines.back();
    lines.pop_back();
    for (const std::string_view line : lines)
      PlaceBodyText(line, kTotals, Align::left);
    PlaceLabel(last, cells);
    PlaceCells(cells, kTotals, 1, 0, &wrapped_);
    for (const std::string& other : others)
      PlaceBodyText(other, kTotals, Align::left);
  }

  // Places the label in front of the first sum if there is room, otherwise above it.
  void PlaceLabel(std::string_view label, const std::vector<std::string>& cells) {
    const auto first = std::find_if(cells.begin(), cells.end(), [](const std::string& cell) { return !cell.empty(); });
    const bool fits = first != cells.end() &&
                      text::Characters(label) + kGap < columns_[static_cast<std::size_t>(first - cells.begin())].start;
    Need(fonts_[kTotals].size * kLeading * (fits ? 1 : 2));
    if (!goesOn_) return;
    if (!fits) {
      PlaceBodyText(label, kTotals, Align::left);
    } else {
      Place(left_, right_ - left_, Align::left, kTotals, label);
    }
  }

  const CDocRelatorio& document_;
  const Lines& lines_;
  const LayoutOptions& options_;
  const std::function<bool(const Page&)>& sink_;
  std::vector<std::string>* const notes_;

  std::array<Font, kFonts> fonts_;
  double width_ = 0;
  double height_ = 0;
  double left_ = 0;
  double top_ = 0;
  double right_ = 0;
  double bottom_ = 0;     // of the body
  double character_ = 0;  // width of a character
  std::vector<Column> columns_;
  std::vector<Group> groups_;
  std::vector<Total> totals_;
  std::vector<std::vector<Decimal>> sums_;  // one for each level of groups, and one for the whole report
  std::vector<MarginLine> header_;
  std::vector<MarginLine> footer_;
  double headerHeight_ = 0;

  Page page_;
  double y_ = 0;
  double bodyTop_ = 0;
  std::size_t pages_ = 0;
  bool goesOn_ = true;
  std::vector<std::string> titles_;
  std::vector<std::vector<std::string_view>> wrappedTitles_;
  // Of the line being placed.
  std::vector<std::string> cells_;
  std::vector<std::vector<std::string_view>> wrapped_;
};

}  // namespace

void LayOut(const CDocRelatorio& document, const Fields& fields, const Lines& lines, const LayoutOptions& options,
            const std::function<bool(const Page&)>& page, std::vector<std::string>* notes) {
  Layout(document, fields, lines, options, page, notes).Run();
}

// ---- Plain text ----------------------------------------------------------------------------------------------------

std::string PlainText(const Page& page) {
  const auto characters = [&](double width) {
    return static_cast<std::size_t>(std::max(0.0, width / page.characterWidth + 0.01));
  };
  std::string all;
  auto text = page.texts.begin();
  auto rule = page.rules.begin();
  while (text != page.texts.end() || rule != page.rules.end()) {
    if (text == page.texts.end() || (rule != page.rules.end() && rule->y < text->baseline)) {
      for (std::size_t i = characters(rule->width); i > 0; --i)
        all += "─";
      ++rule;
    } else {
      std::size_t used = 0;
      for (const double baseline = text->baseline; text != page.texts.end() && text->baseline == baseline; ++text) {
        const std::size_t width = characters(text->width);
        const std::size_t size = text::Characters(text->text);
        const std::size_t free = width - std::min(width, size);
        std::size_t start = characters(text->x);
        if (text->align == Align::right) start += free;
        if (text->align == Align::centre) start += free / 2;
        if (used != 0) start = std::max(start, used + 1);
        all.append(start - used, ' ').append(text->text);
        used = start + size;
      }
    }
    all += '\n';
  }
  return all;
}

}  // namespace preview
