// A report on a file of lines, compared with the bare reading and sorting of that file; and the book of all reports,
// compared with the drawing of their pages.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <fstream>
#include <memory>
#include <random>

#include "admin/admin.h"
#include "bench.h"
#include "contract/records.h"
#include "document/doc_relatorio.h"
#include "marcacao/componente_marcacao.h"
#include "preview/preview.h"
#include "report_fields.h"
#include "support/support.h"

namespace {

// ---- A report over a file ------------------------------------------------------------------------------------------

const preview::Fields kFields = {{1, "Conta", "", KESTOR_Conta, 12, ""},
                                 {2, "Data", "", KESTOR_Data, 10, ""},
                                 {3, "Historico", "", KESTOR_Alfanumerico, 40, ""},
                                 {4, "Debito", "", KESTOR_Valor, 14, ""},
                                 {5, "Credito", "", KESTOR_Valor, 14, ""}};

// Fills a document with groups of accounts and of days, and both kinds of totals.
void FillIn(kestor::CDocRelatorio* document) {
  for (const preview::Field& field : kFields) {
    kestor::CampoEscolhido column;
    column.codigo = field.code;
    column.cabecalho = field.alias;
    column.tipoDado = field.type;
    column.tamanho = field.width;
    document->camposEscolhidos.campos.push_back(column);
  }
  document->ordenacao.campos = {{1, kestor::separadorLinha}, {2, kestor::separadorNenhum}};
  document->ordenacao.totalizacoes = {{4, true, true}, {5, true, true}};
}

// Makes a file of as many lines as a crowd has files.
const std::string& DataFile() {
  static const support::TempFolder folder;
  static const std::string file = (folder.Path() / "lancamentos.csv").string();
  if (std::filesystem::exists(file)) return file;
  std::mt19937 random(1);
  const auto below = [&](unsigned bound) { return std::to_string(random() % bound); };
  std::ofstream lines(file);
  lines << "Conta;Data;Historico;Debito;Credito\n";
  for (int i = 0; i < bench::CrowdFiles(); ++i) {
    lines << "1." << below(9) << '.' << below(99) << ';' << 10 + random() % 19 << '/' << 10 + random() % 3 << "/2026;"
          << "Pagamento conforme nota " << below(100'000) << ';' << below(100'000) << ',' << 10 + random() % 90 << ';'
          << below(100'000) << ',' << 10 + random() % 90 << '\n';
  }
  return file;
}

void BareLines(benchmark::State& state) {
  using Line = std::array<std::string, 5>;
  const std::string& file = DataFile();
  for ([[maybe_unused]] auto _ : state) {
    std::ifstream input(file);
    std::vector<Line> lines;
    std::string text;
    std::getline(input, text);
    while (std::getline(input, text)) {
      Line& line = lines.emplace_back();
      std::size_t start = 0;
      for (std::string& value : line) {
        const std::size_t end = std::min(text.find(';', start), text.size());
        value = text.substr(start, end - start);
        start = end + 1;
      }
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& a, const Line& b) { return a[0] != b[0] ? a[0] < b[0] : a[1] < b[1]; });
    if (lines.size() != static_cast<std::size_t>(bench::CrowdFiles())) state.SkipWithError("not all lines are read");
  }
}
BENCHMARK(BareLines)->UseRealTime();

void ReportOfLines(benchmark::State& state) {
  kestor::CDocRelatorio document;
  FillIn(&document);
  const std::string& file = DataFile();
  for ([[maybe_unused]] auto _ : state) {
    std::vector<std::string> notes;
    preview::Lines lines = preview::ReadCsv(file, document, kFields, static_cast<std::size_t>(-1), &notes);
    preview::Sort(document, kFields, &lines);
    std::size_t bytes = 0;
    preview::LayOut(
        document, kFields, lines, {"", false, 100},
        [&](const preview::Page& page) {
          bytes += preview::PlainText(page).size();
          return true;
        },
        &notes);
    if (!notes.empty()) state.SkipWithError(notes.front().c_str());
    if (lines.Count() != static_cast<std::size_t>(bench::CrowdFiles())) state.SkipWithError("not all lines are read");
    state.counters["bytes"] = static_cast<double>(bytes);
  }
}
BENCHMARK(ReportOfLines)->UseRealTime();

// ---- The book ------------------------------------------------------------------------------------------------------

std::unique_ptr<support::Installation> installation;

// Makes an installation with a hundredth of the crowd as models, and returns their number.
std::size_t Models() {
  const int models = bench::CrowdFiles() / 100;
  if (!installation) {
    installation = std::make_unique<support::Installation>();
    const std::string content = std::string("\1\0", 2) + bench::Content(12);
    for (int i = 0; i < models; ++i)
      support::WriteFile(installation->Reports() / ("CT01Modelo " + std::to_string(i) + ".RXL"), content);
  }
  bench::Enter(*installation);
  return static_cast<std::size_t>(models);
}

void BareDrawing(benchmark::State& state) {
  const kestor::ComponenteMarcacao markup;
  const std::size_t models = Models();
  for ([[maybe_unused]] auto _ : state) {
    const admin::Inventory inventory = admin::TakeInventory("CT", "01");
    admin::Reader reader(inventory);
    std::size_t drawn = 0;
    for (const admin::Model& model : inventory.models) {
      kestor::CDocRelatorio document;
      if (!kestorctl::ReadReport(reader, model, document).empty()) state.SkipWithError("a document is not read");
      std::vector<std::string> notes;
      const preview::Fields fields = kestorctl::FieldsOf(reader.CatalogueOf(0), document, &notes);
      preview::Lines lines = preview::SampleLines(document, fields, 16);
      preview::Sort(document, fields, &lines);
      preview::LayOut(
          document, fields, lines, {"", true, 0},
          [&](const preview::Page& page) {
            drawn += preview::DrawSvg(page, "").empty() ? 0U : 1U;
            return false;
          },
          nullptr);
    }
    if (drawn != models) state.SkipWithError("not all models are drawn");
  }
}
BENCHMARK(BareDrawing)->UseRealTime()->Iterations(1)->Repetitions(5);

void Book(benchmark::State& state) {
  const kestor::ComponenteMarcacao markup;
  Models();
  for ([[maybe_unused]] auto _ : state) {
    const support::TempFolder folder;
    const std::string book = (folder.Path() / "book").string();
    const int status = support::Child([&book] {
                         return execl(KESTORCTL, KESTORCTL, "book", book.c_str(), "CT", "01", nullptr);
                       }).Wait();
    if (status != 0) state.SkipWithError("the book is not made");
  }
}
BENCHMARK(Book)->UseRealTime()->Iterations(1)->Repetitions(5);

}  // namespace

std::vector<bench::Figure> bench::PreviewFigures() {
  return {{"Book of 1,000 models / drawing their pages", "Book", "BareDrawing", 1.5},
          {"Report over 100,000 lines / reading and sorting the file", "ReportOfLines", "BareLines", 3.0}};
}
