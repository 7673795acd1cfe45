// The command show: a report document for people, and whole for programs.
#include "commands.h"
#include "document_page.h"
#include "marcacao/componente_marcacao.h"
#include "model_options.h"
#include "stored_model.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Shows what a second-generation model says: its columns as a table, sort keys, totals, the filter in words, the page
set-up, and the lines of the export file. A column that is marked fixed is no field of the catalogue.

With --json: "version" of the model, and "document" with everything that the document holds: "name", "period", "page",
"columns", "sortKeys", "totalsOnly", "totals", "filter" and "export". Types and alignments of columns are letters as the
command "fields" has them. These members are words:
  "orientation"   portrait, landscape           "numbering"   by page, by sheet
  "separator"     nothing, a line, a new page   "connector"   and, or
  "operator"      is, is not, is above, is at least, is below, is at most
  "format"        thousands, thousands and decimals, or nothing; of export lines "type": text, number

Examples:
  kestorctl show CT 01 Vendas
  kestorctl --json show CT 01 Vendas > vendas.json

Exit status: 0 shown; 3 there is no such model (0x00040001); 1 failure, such as a content that is no report document;
2 wrong usage.)";

void Show(const ModelOptions& options, Answer& answer) {
  const ReportStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  const StoredModel model(store, options.name);
  Conclude(model.Result(), answer);
  if (answer.result != S_OK) return;
  answer.data["version"] = model.Record().nVersao;
  const kestor::ComponenteMarcacao markup;
  kestor::CDocRelatorio document;
  const std::string reason = LoadDocument(model.Record(), document);
  if (!reason.empty()) {
    answer.result = E_FAIL;
    answer.error = options.name + ": " + reason;
    return;
  }
  answer.output = DocumentPage(document);
  answer.data["document"] = DocumentObject(document);
}

}  // namespace

void AddShow(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"show", "Show what a report document says", kFooter}, Show);
  AddModelOptions(command, options);
}

}  // namespace kestorctl
