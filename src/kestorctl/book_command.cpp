// The command book: all reports as pages for a browser.
#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>

#include "admin/check.h"
#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "marcacao/componente_marcacao.h"
#include "model_options.h"
#include "progress.h"
#ifdef KESTOR_PREVIEW
#include "document_page.h"
#include "html.h"
#include "report_fields.h"
#endif

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Makes a folder of pages that any browser opens, without a server and without anything from elsewhere: index.html with
all reports and a search; a page for each report, with its first page drawn over sample lines, its columns, conditions, sort
keys and totals; a page for each field that reports use, with who uses it; and what "check" finds.

DIR is made; it may be there if it is empty. Models of both generations are read from their files: no server takes part, and
nothing is migrated. What cannot be read has a line on standard error, and its reason on its page.

With --json: "models", how many pages of reports there are.

Examples:
  kestorctl book relatorios-book
  kestorctl book ct CT
  kestorctl book ct01 CT 01

Exit status: 0 made; 3 made, but a model could not be read; 1 failure; 2 wrong usage.)";

struct BookOptions {
  StoreOptions store;
  std::string folder;
};

#ifdef KESTOR_PREVIEW

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::size_t kSamples = 40;

std::string LocalTime(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &local)};
}

class Book {
 public:
  Book(const fs::path& folder, const admin::Inventory& inventory)
      : folder_(folder), inventory_(inventory), reader_(inventory) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!error && !fs::is_empty(folder, error) && !error)
      throw LocalFailure(folder.string() + " is not empty: the book needs a folder of its own");
    for (const char* part : {"models", "fields"}) {
      if (!error) fs::create_directory(folder / part, error);
    }
    if (error) throw LocalFailure("cannot make " + folder.string() + ": " + error.message());
  }

  void Write(Answer& answer) {
    Save("book.css", kBookStyle);
    Save("search.js", kBookSearch);
    std::string rows;
    {
      Progress progress("drawing");
      for (std::size_t number = 0; number < inventory_.models.size(); ++number) {
        rows += WriteModel(number, answer);
        progress.Show(number + 1, inventory_.models.size());
      }
    }
    Save("index.html", HtmlPage("", "Reports",
                                SearchBox() +
                                    "<table><thead><tr><th scope=\"col\">report</th><th scope=\"col\">module</th>"
                                    "<th scope=\"col\">component</th><th scope=\"col\">changed</th>"
                                    "<th scope=\"col\">header</th></tr></thead><tbody>\n" +
                                    rows + "</tbody></table>\n<script src=\"search.js\"></script>\n"));
    WriteFields();
    WriteCheck();
    answer.data["models"] = inventory_.models.size();
  }

 private:
  struct Use {
    std::size_t model;
    std::string_view where;
  };
  using FieldKey = std::pair<std::size_t, std::uint16_t>;  // of which pair; code

  void Save(const fs::path& name, const std::string& content) const {
    std::ofstream file(folder_ / name, std::ios::binary);
    file << content;
    if (!file.flush()) throw LocalFailure("cannot write " + (folder_ / name).string());
  }

  static std::string SearchBox() {
    return "<form class=\"search\" role=\"search\" hidden><label for=\"search\">Search</label> "
           "<input id=\"search\" type=\"search\" autocomplete=\"off\"> <output id=\"count\" "
           "for=\"search\"></output></form>\n";
  }

  static std::string PageOf(const FieldKey& field) {
    return "fields/" + std::to_string(field.first) + '-' + std::to_string(field.second) + ".html";
  }

  std::string PairName(std::size_t pair) const {
    return inventory_.pairs[pair].module + ' ' + inventory_.pairs[pair].component;
  }

  std::string FieldName(const FieldKey& key) {
    const tagREG_CAMPOS_RELATORIO2* const field = reader_.CatalogueOf(key.first).Find(key.second);
    return std::to_string(key.second) +
           (field == nullptr ? "" : ' ' + text::ToUtf8(kestor::TextoDoCampo(field->szApelido)));
  }

  // Writes the page of a model and returns its row of the index.
  std::string WriteModel(std::size_t number, Answer& answer) {
    const admin::Model& model = inventory_.models[number];
    const admin::Pair& pair = inventory_.pairs[model.pair];
    const admin::Details details = admin::DetailsOf(inventory_, model);
    const std::string changed =
        details.changed ? LocalTime(std::chrono::system_clock::to_time_t(*details.changed)) : "";
    kestor::CDocRelatorio document;
    const std::string trouble = ReadReport(reader_, model, document);
    Json facts = {{"module", pair.module},
                  {"component", pair.component},
                  {"generation", model.generation == admin::Generation::first ? "first" : "second"},
                  {"changed", changed}};
    std::string body = HtmlOf(facts, 2);
    const std::string page = "models/" + std::to_string(number) + ".html";
    if (trouble.empty()) {
      body += Picture(number, model, document) + HtmlOf(DocumentObject(document), 2) +
              NoteUses(number, model.pair, document);
    } else {
      body += "<p>" + Escaped(trouble) + "</p>\n";
      answer.AddNote(trouble);
      answer.incomplete = true;
    }
    Save(page, HtmlPage("../", model.name, body));
    return "<tr><td>" + Link(page, model.name) + "</td><td>" + Escaped(pair.module) + "</td><td>" +
           Escaped(pair.component) + "</td><td>" + changed + "</td><td>" +
           Escaped(text::ToUtf8(document.impressao.cabecalho.texto.substr(0, 200))) + "</td></tr>\n";
  }

  // Draws the first page.
  std::string Picture(std::size_t number, const admin::Model& model, const kestor::CDocRelatorio& document) {
    const preview::Fields fields = FieldsOf(reader_.CatalogueOf(model.pair));
    preview::Lines lines = preview::SampleLines(document, fields, kSamples);
    preview::Sort(document, fields, &lines);
    const std::string name = std::to_string(number) + ".svg";
    std::string picture;
    preview::LayOut(
        document, fields, lines, {LocalTime(std::time(nullptr)).substr(0, 10), true, 0},
        [&](const preview::Page& page) {
          Save("models/" + name, preview::DrawSvg(page, ""));
          picture = "<p><img src=\"" + name + "\" width=\"" + std::to_string(static_cast<int>(page.width)) +
                    "\" height=\"" + std::to_string(static_cast<int>(page.height)) + "\" alt=\"First page of " +
                    Escaped(model.name) + " with sample lines\"></p>\n";
          return false;
        },
        nullptr);
    return picture;
  }

  // Enters what the document uses, and returns links to the fields.
  std::string NoteUses(std::size_t number, std::size_t pair, const kestor::CDocRelatorio& document) {
    std::map<FieldKey, bool> mine;
    const auto note = [&](std::uint16_t code, std::string_view where) {
      std::vector<Use>& uses = uses_[{pair, code}];
      const bool isNew = uses.empty() || uses.back().model != number || uses.back().where != where;
      if (isNew) uses.push_back({number, where});
      mine[{pair, code}] = true;
    };
    for (const auto& column : document.camposEscolhidos.campos) {
      if (!column.fixo) note(column.codigo, "column");
    }
    for (const auto& key : document.ordenacao.campos)
      note(key.codigo, "sort key");
    for (const auto& total : document.ordenacao.totalizacoes)
      note(total.codigo, "total");
    for (const auto& condition : document.filtro.condicoes)
      note(condition.codigo, "condition");
    std::string links;
    for (const auto& [key, used] : mine)
      links += "<li>" + Link("../" + PageOf(key), FieldName(key)) + "</li>\n";
    return links.empty() ? "" : "<h2>fields</h2>\n<ul>\n" + links + "</ul>\n";
  }

  void WriteFields() {
    std::string list;
    for (const auto& [key, uses] : uses_) {
      const std::string name = FieldName(key);
      std::string users;
      for (const Use& use : uses)
        users += "<li>" + Link("../models/" + std::to_string(use.model) + ".html", inventory_.models[use.model].name) +
                 ": " + std::string(use.where) + "</li>\n";
      Save(PageOf(key), HtmlPage("../", "Field " + name + " of " + PairName(key.first), "<ul>\n" + users + "</ul>\n"));
      list += "<tr><td>" + Link(PageOf(key), name) + "</td><td>" + Escaped(PairName(key.first)) +
              "</td><td class=\"n\">" + std::to_string(uses.size()) + "</td></tr>\n";
    }
    Save("fields.html", HtmlPage("", "Fields",
                                 SearchBox() +
                                     "<table><thead><tr><th scope=\"col\">field</th><th scope=\"col\">module, component"
                                     "</th><th scope=\"col\">uses</th></tr></thead><tbody>\n" +
                                     list + "</tbody></table>\n<script src=\"search.js\"></script>\n"));
  }

  void WriteCheck() {
    std::string rows;
    Progress progress("checking");
    admin::Check(inventory_, false,
                 {.found =
                      [&](const admin::Problem& problem) {
                        rows += "<tr><td>" + Escaped(problem.place) + "</td><td>" + Escaped(problem.problem) +
                                "</td><td>" + Escaped(problem.remedy) + "</td></tr>\n";
                      },
                  .progress = [&](std::size_t done, std::size_t total) { progress.Show(done, total); }});
    Save("check.html",
         HtmlPage("", "Check",
                  rows.empty() ? "<p>Nothing was found.</p>\n"
                               : "<table><thead><tr><th scope=\"col\">place</th><th scope=\"col\">problem</th>"
                                 "<th scope=\"col\">what can be done</th></tr></thead><tbody>\n" +
                                     rows + "</tbody></table>\n"));
  }

  const fs::path folder_;
  const admin::Inventory& inventory_;
  admin::Reader reader_;
  std::map<FieldKey, std::vector<Use>> uses_;
};

void MakeBook(const BookOptions& options, Answer& answer) try {
  RequireHome();
  const kestor::ComponenteMarcacao markup;
  const admin::Inventory inventory = admin::TakeInventory(options.store.module, options.store.component);
  Book book(options.folder, inventory);
  book.Write(answer);
} catch (const admin::Failure& failure) {
  throw LocalFailure(failure.what());
} catch (const preview::Failure& failure) {
  throw LocalFailure(failure.what());
}

#else

void MakeBook(const BookOptions&, Answer&) {
  throw LocalFailure("this kestorctl was built without the libraries that draw pages");
}

#endif

}  // namespace

void AddBook(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"book", "Make pages for a browser of all reports", kFooter}, MakeBook);
  command->add_option("DIR", options->folder, "The folder of the book")->required()->check(CheckUtf8);
  AddStoreOptions(command, &options->store);
  for (const char* code : {"MODULE", "COMPONENT"})
    command->get_option(code)->required(false);
}

}  // namespace kestorctl
