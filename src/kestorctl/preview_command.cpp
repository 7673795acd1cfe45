// The command preview: a report as the pages that it describes.
#include <algorithm>
#include <filesystem>
#include <limits>

#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "host_files.h"
#include "marcacao/componente_marcacao.h"
#include "model_options.h"
#include "platform/text/text.h"
#include "progress.h"
#include "terminal.h"
#include "times.h"
#ifdef KESTOR_PREVIEW
#include "report_fields.h"
#endif

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Shows the report as pages: as text that fits the terminal, or, with -o, as a file whose name ends in .pdf (all pages),
.png or .svg (one page). A first-generation model is shown as what its conversion would give.

Its lines are samples made from the field catalogue, the same ones every time; the filter is printed but not applied.
With --data the lines come from a file, and are filtered, sorted, grouped and added up as the report says. The first
line of that file names fields by alias, code or description; the values of a line are separated by semicolons, commas
or tabs. They are UTF-8 or code page 1252. Numbers are 1.234,56 or 1234.56, dates 31/12/2026 or 2026-12-31, months
12/2026 or 2026-12.

The file of the model itself is read: no server takes part, and nothing is migrated.

With --json: "pages", how many there are; "text", the pages as text, unless there is -o.

Examples:
  kestorctl preview CT 01 Balancete
  kestorctl preview CT 01 Balancete -o balancete.pdf
  kestorctl preview CT 01 Razao --data lancamentos.csv --page 2 -o razao.png

Exit status: 0 shown; 3 shown, with notes on standard error; 1 failure, such as no such model; 2 wrong usage.)";

struct PreviewOptions {
  ModelOptions model;
  std::string data;
  std::string output;
  std::string logo;
  std::string date;
  std::size_t page = 0;  // 0: the first one, or all
  std::size_t rows = 0;  // 0: not given
};

#ifdef KESTOR_PREVIEW

// Returns the document of that name, else the first-generation model. As in other programs, letter case does not
// matter.
const admin::Model& Find(const admin::Inventory& inventory, const std::string& name) {
  const admin::Model* found = nullptr;
  for (const admin::Model& model : inventory.models) {
    const bool isNamed = text::EqualNoCase(text::FromUtf8(model.name), text::FromUtf8(name));
    if (isNamed && (found == nullptr || model.generation > found->generation)) found = &model;
  }
  if (found == nullptr) throw LocalFailure("there is no model " + text::Presentable(name));
  return *found;
}

enum class Form { text, pdf, png, svg };

Form FormOf(const std::string& output) {
  if (output.empty()) return Form::text;
  for (const auto& [ending, form] : {std::pair(".pdf", Form::pdf), {".png", Form::png}, {".svg", Form::svg}}) {
    if (text::EndsWithNoCase(output, ending)) return form;
  }
  throw UsageError("the name of the file ends in .pdf, .png or .svg: " + text::Presentable(output));
}

// Counts pages and draws those that are wanted.
class Drawing {
 public:
  // `countsAll`: also counts the pages after the last one that is drawn.
  Drawing(const PreviewOptions& options, Form form, const std::string& title, bool countsAll)
      : options_(options), form_(form), countsAll_(countsAll), pdf_(title, options.logo) {}

  // Returns false when the pages that follow are not needed.
  bool Add(const preview::Page& page) {
    ++pages_;
    const bool isSingle = form_ == Form::png || form_ == Form::svg;
    const std::size_t wanted = isSingle ? std::max<std::size_t>(options_.page, 1) : options_.page;
    if (wanted != 0 && pages_ != wanted) return true;
    found_ = true;
    switch (form_) {
      case Form::text:
        bytes_.append(bytes_.empty() ? "" : "\f\n").append(preview::PlainText(page));
        break;
      case Form::pdf:
        pdf_.Add(page);
        break;
      case Form::png:
        bytes_ = preview::DrawPng(page, options_.logo);
        break;
      case Form::svg:
        bytes_ = preview::DrawSvg(page, options_.logo);
        break;
    }
    return countsAll_ || wanted == 0;
  }

  std::size_t Pages() const { return pages_; }

  std::string Finish() {
    if (!found_) {
      throw LocalFailure("there is no page " + std::to_string(options_.page) + ": the report has " +
                         std::to_string(pages_));
    }
    return form_ == Form::pdf ? pdf_.Finish() : bytes_;
  }

 private:
  const PreviewOptions& options_;
  const Form form_;
  const bool countsAll_;
  preview::Pdf pdf_;
  std::string bytes_;
  std::size_t pages_ = 0;
  bool found_ = false;
};

preview::Lines LinesOf(const PreviewOptions& options, const kestor::CDocRelatorio& document,
                       const preview::Fields& fields, std::vector<std::string>* notes) {
  if (options.data.empty()) {
    constexpr std::size_t kSamples = 40;
    const std::size_t count = options.rows != 0 ? options.rows : kSamples;
    preview::Lines lines = preview::SampleLines(document, fields, count);
    if (lines.Count() < count) notes->push_back("sample lines: " + std::to_string(lines.Count()));
    return lines;
  }
  Progress progress("kilobytes read");
  std::error_code unknown;  // a pipe has no size
  const std::uintmax_t bytes = std::filesystem::file_size(options.data, unknown);
  const std::size_t total = unknown ? 0 : static_cast<std::size_t>(bytes / 1024);
  return preview::ReadCsv(options.data, document, fields,
                          options.rows != 0 ? options.rows : std::numeric_limits<std::size_t>::max(), notes,
                          [&](std::uint64_t done) { progress.Show(static_cast<std::size_t>(done / 1024), total); });
}

void Preview(const PreviewOptions& options, Answer& answer) try {
  const Form form = FormOf(options.output);
  RequireHome();
  const kestor::ComponenteMarcacao markup;
  const admin::Inventory inventory = admin::TakeInventory(options.model.module, options.model.component);
  const admin::Model& model = Find(inventory, options.model.name);
  admin::Reader reader(inventory);
  kestor::CDocRelatorio document;
  std::vector<std::string> notes;
  const std::string trouble = ReadReport(reader, model, document);
  if (!trouble.empty()) throw LocalFailure(trouble);
  const admin::Catalogue& catalogue = reader.CatalogueOf(model.pair);
  if (!catalogue.trouble.empty()) notes.push_back(catalogue.trouble);
  const preview::Fields fields = FieldsOf(catalogue, document, &notes);
  preview::Lines lines = LinesOf(options, document, fields, &notes);
  preview::Sort(document, fields, &lines);
  constexpr std::size_t kUsualWidth = 1000;  // wider than any page
  const preview::LayoutOptions layout{options.date.empty() ? Today() : options.date, options.data.empty(),
                                      form != Form::text     ? 0
                                      : TerminalWidth() != 0 ? TerminalWidth()
                                                             : kUsualWidth};
  Drawing drawing(options, form, model.name, answer.json);
  {
    Progress progress("pages");
    const auto add = [&](const preview::Page& page) {
      progress.Show(drawing.Pages(), 0);
      return drawing.Add(page);
    };
    preview::LayOut(document, fields, lines, layout, add, &notes);
  }
  std::string bytes = drawing.Finish();
  answer.data["pages"] = drawing.Pages();
  if (form != Form::text) {
    WriteOutput(options.output, bytes);
  } else if (answer.json) {
    answer.data["text"] = std::move(bytes);
  } else {
    answer.output = std::move(bytes);
  }
  for (const std::string& note : notes)
    answer.AddNote(note);
  answer.incomplete = !notes.empty();
} catch (const admin::Failure& failure) {
  throw LocalFailure(failure.what());
} catch (const preview::Failure& failure) {
  throw LocalFailure(failure.what());
}

#else

void Preview(const PreviewOptions&, Answer&) {
  throw LocalFailure("this kestorctl was built without the libraries that draw pages");
}

#endif

}  // namespace

void AddPreview(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"preview", "Show a report as the pages that it describes", kFooter}, Preview);
  AddModelOptions(command, &options->model);
  command->add_option("--data", options->data, "Values of fields, one line per line of the report")
      ->type_name("FILE.csv")
      ->check(CLI::ExistingFile);
  command->add_option("-o,--output", options->output, "The file for the pages")->type_name("FILE.pdf|.png|.svg");
  command->add_option("--page", options->page, "Show this page alone")->type_name("NUMBER")->check(CLI::PositiveNumber);
  command->add_option("--rows", options->rows, "At most this many lines; 40 sample lines if not given")
      ->type_name("NUMBER")
      ->check(CLI::Range(1, 1'000'000));
  command->add_option("--logo", options->logo, "The picture in the place of the logo")
      ->type_name("FILE.png")
      ->check(CLI::ExistingFile);
  command->add_option("--date", options->date, "The date of issue; today if not given")
      ->type_name("TEXT")
      ->check(CheckUtf8);
}

}  // namespace kestorctl
