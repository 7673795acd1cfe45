#include "document_page.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

#include "field_table.h"
#include "platform/text/text.h"
#include "text_table.h"

namespace kestorctl {

namespace {

using namespace kestor;
using Json = nlohmann::ordered_json;
using text::ToUtf8;

// ---- Words ---------------------------------------------------------------------------------------------------------

// Returns the word for a value, or the number when there is none.
template <std::size_t N>
std::string Word(const std::array<const char*, N>& words, std::int32_t value) {
  return value >= 0 && static_cast<std::size_t>(value) < N ? words[static_cast<std::size_t>(value)]
                                                           : std::to_string(value);
}

constexpr std::array kOrientations = {"portrait", "landscape"};
constexpr std::array kNumberings = {"by page", "by sheet"};
constexpr std::array kFormats = {"", "thousands", "thousands and decimals"};
constexpr std::array kSeparators = {"nothing", "a line", "a new page"};
constexpr std::array kOperators = {"is", "is not", "is above", "is at least", "is below", "is at most"};
constexpr std::array kConnectors = {"and", "or"};
constexpr std::array kItemTypes = {"text", "number"};

// Returns the shortest digits that parse to the same value.
std::string Decimal(float value) {
  std::array<char, 64> digits{};
  return {digits.data(),
          std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed).ptr};
}

// Returns the number that is written with the same digits.
double Number(float value) {
  return text::ToDouble(Decimal(value));
}

std::string Quoted(const std::string& ansi) {
  return '"' + text::Printable(ToUtf8(ansi)) + '"';
}

std::string Font(const std::string& name, std::int32_t size) {
  return text::Printable(ToUtf8(name)) + " " + std::to_string(size);
}

// ---- The page ------------------------------------------------------------------------------------------------------

// Returns a line of a label and its value; nothing when the value is empty.
std::string Line(const char* label, const std::string& value) {
  constexpr std::size_t kLabelWidth = 12;
  if (value.empty()) return {};
  std::string line(label);
  line.resize(kLabelWidth, ' ');
  return line + value + '\n';
}

std::string Text(const char* label, const std::string& ansi) {
  return ansi.empty() ? std::string() : Line(label, Quoted(ansi));
}

std::string Heading(const std::string& text) {
  return '\n' + text + '\n';
}

// Field codes with the titles of their columns, by which people know them.
class FieldNames {
 public:
  explicit FieldNames(const CDocRelatorio& document) {
    for (const CampoEscolhido& column : document.camposEscolhidos.campos) {
      if (!column.fixo) titles_.emplace(column.codigo, text::Printable(ToUtf8(column.cabecalho)));
    }
  }

  std::string Of(std::uint16_t code) const {
    const auto title = titles_.find(code);
    return std::to_string(code) + (title == titles_.end() ? "" : " (" + title->second + ")");
  }

 private:
  std::map<std::uint16_t, std::string> titles_;  // of a code's first column
};

std::string Columns(const CDocRelatorio& document) {
  std::vector<TableRow> rows;
  for (const CampoEscolhido& c : document.camposEscolhidos.campos) {
    rows.push_back({std::to_string(c.codigo), ToUtf8(c.cabecalho), TypeInWords(Letter(c.tipoDado)),
                    AlignmentInWords(Letter(c.alinhamento)), std::to_string(c.tamanho), c.fixo ? "fixed" : "",
                    ToUtf8(c.conteudo), Word(kFormats, c.formatoValor)});
  }
  if (rows.empty()) return Heading("No columns");
  return Heading("Columns") +
         TextTable(
             {{"CODE", true}, {"TITLE"}, {"TYPE"}, {"ALIGNED"}, {"WIDTH", true}, {"FIXED"}, {"CONTENT"}, {"FORMAT"}},
             rows);
}

std::string Sorting(const CDocRelatorio& document, const FieldNames& names) {
  std::string lines;
  for (const CampoOrdenacao& key : document.ordenacao.campos)
    lines += "  by " + names.Of(key.codigo) + ", between groups " + Word(kSeparators, key.separador) + '\n';
  if (!lines.empty()) lines = Heading("Sorted") + lines;
  return document.ordenacao.somenteTotais ? lines + Heading("Totals only") : lines;
}

std::string Totals(const CDocRelatorio& document, const FieldNames& names) {
  std::string lines;
  for (const CampoTotalizacao& total : document.ordenacao.totalizacoes) {
    std::string where = total.naQuebra ? "at each break" : "";
    if (total.geral) where += where.empty() ? "at the end" : " and at the end";
    lines += "  " + names.Of(total.codigo) + (where.empty() ? "" : " " + where) + '\n';
  }
  return lines.empty() ? lines : Heading("Totals") + lines;
}

std::string Filter(const CDocRelatorio& document, const FieldNames& names) {
  std::string lines;
  for (const CondicaoFiltro& condition : document.filtro.condicoes) {
    const std::string connector = lines.empty() ? "" : Word(kConnectors, condition.comparador) + " ";
    lines += "  " + connector + names.Of(condition.codigo) + " " + Word(kOperators, condition.operador) + " " +
             Quoted(condition.valorComparar) + '\n';
  }
  return lines.empty() ? lines : Heading("Lines where") + lines;
}

std::string Prints(const CImpressaoCabecalho& header) {
  std::string parts;
  for (const auto& [printed, part] :
       {std::pair(header.dataEmissao, "date of issue"), {header.periodo, "period"}, {header.logotipo, "logo"}}) {
    if (printed) parts += (parts.empty() ? "" : ", ") + std::string(part);
  }
  return parts;
}

std::string PageSetUp(const CSecaoImpressao& page) {
  return Heading("Page") + Line("  paper", Word(kOrientations, page.orientacao)) +
         Line("  margins", "left " + Decimal(page.margemEsquerda) + ", top " + Decimal(page.margemSuperior)) +
         Line("  numbers", Word(kNumberings, page.tipoNumeracao) + ", from " + std::to_string(page.paginaInicial)) +
         Line("  columns", page.truncarColunas ? "cut where they do not fit" : "") +
         Text("  header", page.cabecalho.texto) + Text("  more", page.cabecalho.cabecalhoAdicional) +
         Line("  prints", Prints(page.cabecalho)) +
         Line("  fonts", "header " + Font(page.cabecalho.fonte, page.cabecalho.tamanhoFonte) + ", titles " +
                             Font(page.detalhe.fonteColuna, page.detalhe.tamanhoFonteColuna) + ", lines " +
                             Font(page.detalhe.fonteDetalhe, page.detalhe.tamanhoFonteDetalhe) + ", footer " +
                             Font(page.rodape.fonte, page.rodape.tamanhoFonte)) +
         Text("  closing", page.detalhe.textoFinal) + Text("  footer", page.rodape.texto) +
         Text("  footer 2", page.rodape.texto2);
}

std::string ExportLine(const char* label, const CItemExportacao& item) {
  if (item.descricao.empty()) return {};
  return Line(label,
              Quoted(item.descricao) + ", width " + std::to_string(item.tamanho) + ", " + Word(kItemTypes, item.tipo));
}

std::string Export(const CSecaoExportacao& lines) {
  const std::string told = ExportLine("  header", lines.cabecalho) + ExportLine("  footer", lines.rodape);
  return told.empty() ? told : Heading("Export file") + told;
}

// ---- The object ----------------------------------------------------------------------------------------------------

Json PageObject(const CSecaoImpressao& page) {
  return {{"leftMargin", Number(page.margemEsquerda)},
          {"topMargin", Number(page.margemSuperior)},
          {"firstPage", page.paginaInicial},
          {"truncateColumns", page.truncarColunas},
          {"numbering", Word(kNumberings, page.tipoNumeracao)},
          {"orientation", Word(kOrientations, page.orientacao)},
          {"header",
           {{"text", ToUtf8(page.cabecalho.texto)},
            {"additionalText", ToUtf8(page.cabecalho.cabecalhoAdicional)},
            {"font", ToUtf8(page.cabecalho.fonte)},
            {"fontSize", page.cabecalho.tamanhoFonte},
            {"issueDate", page.cabecalho.dataEmissao},
            {"period", page.cabecalho.periodo},
            {"logo", page.cabecalho.logotipo}}},
          {"body",
           {{"titleFont", ToUtf8(page.detalhe.fonteColuna)},
            {"titleFontSize", page.detalhe.tamanhoFonteColuna},
            {"lineFont", ToUtf8(page.detalhe.fonteDetalhe)},
            {"lineFontSize", page.detalhe.tamanhoFonteDetalhe},
            {"closingText", ToUtf8(page.detalhe.textoFinal)}}},
          {"footer",
           {{"text", ToUtf8(page.rodape.texto)},
            {"secondText", ToUtf8(page.rodape.texto2)},
            {"font", ToUtf8(page.rodape.fonte)},
            {"fontSize", page.rodape.tamanhoFonte}}}};
}

Json ItemObject(const CItemExportacao& item) {
  return {{"text", ToUtf8(item.descricao)}, {"width", item.tamanho}, {"type", Word(kItemTypes, item.tipo)}};
}

template <typename Record, typename Convert>
Json List(const std::vector<Record>& records, const Convert& convert) {
  Json list = Json::array();
  for (const Record& record : records)
    list.push_back(convert(record));
  return list;
}

}  // namespace

std::string DocumentPage(const CDocRelatorio& document) {
  const bool hasPeriod = document.dataInicial != 0 || document.dataFinal != 0;
  const std::string period = std::to_string(document.dataInicial) + " to " + std::to_string(document.dataFinal);
  const FieldNames names(document);
  return Line("report", text::Printable(ToUtf8(document.nome))) + Line("period", hasPeriod ? period : "") +
         Columns(document) + Sorting(document, names) + Totals(document, names) + Filter(document, names) +
         PageSetUp(document.impressao) + Export(document.exportacao);
}

Json DocumentObject(const CDocRelatorio& document) {
  return {
      {"name", ToUtf8(document.nome)},
      {"period", {{"from", document.dataInicial}, {"to", document.dataFinal}}},
      {"page", PageObject(document.impressao)},
      {"columns", List(document.camposEscolhidos.campos,
                       [](const CampoEscolhido& c) -> Json {
                         return {{"code", c.codigo},
                                 {"title", ToUtf8(c.cabecalho)},
                                 {"content", ToUtf8(c.conteudo)},
                                 {"width", c.tamanho},
                                 {"alignment", Letter(c.alinhamento)},
                                 {"type", Letter(c.tipoDado)},
                                 {"fixed", c.fixo},
                                 {"format", Word(kFormats, c.formatoValor)}};
                       })},
      {"sortKeys", List(document.ordenacao.campos,
                        [](const CampoOrdenacao& key) -> Json {
                          return {{"code", key.codigo}, {"separator", Word(kSeparators, key.separador)}};
                        })},
      {"totalsOnly", document.ordenacao.somenteTotais},
      {"totals", List(document.ordenacao.totalizacoes,
                      [](const CampoTotalizacao& total) -> Json {
                        return {{"code", total.codigo}, {"atBreaks", total.naQuebra}, {"grand", total.geral}};
                      })},
      {"filter", List(document.filtro.condicoes,
                      [](const CondicaoFiltro& condition) -> Json {
                        return {{"code", condition.codigo},
                                {"operator", Word(kOperators, condition.operador)},
                                {"value", ToUtf8(condition.valorComparar)},
                                {"connector", Word(kConnectors, condition.comparador)}};
                      })},
      {"export",
       {{"header", ItemObject(document.exportacao.cabecalho)}, {"footer", ItemObject(document.exportacao.rodape)}}}};
}

}  // namespace kestorctl
