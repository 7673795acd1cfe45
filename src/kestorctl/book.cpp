#include "book.h"

#include <sys/stat.h>

#include <ctime>
#include <fstream>
#include <map>
#include <set>
#include <string_view>

#include "admin/check.h"
#include "document_page.h"
#include "failure.h"
#include "field_table.h"
#include "folder_plan.h"
#include "host_files.h"
#include "html.h"
#include "kept_versions.h"
#include "progress.h"
#include "report_fields.h"
#include "times.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::size_t kSamples = 16;        // a picture of a few groups
constexpr std::size_t kMostRows = 1000;     // of a list in a document
constexpr std::size_t kMostVersions = 100;  // of one model, the latest ones

std::string TextOf(const std::optional<std::chrono::system_clock::time_point>& time) {
  if (!time) return {};
  const std::time_t whole = std::chrono::system_clock::to_time_t(*time);
  std::tm local{};
  localtime_r(&whole, &local);
  char text[sizeof "2026-11-26 14:30"];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local)};
}

std::string Cells(std::initializer_list<std::string> markups) {
  std::string row = "<tr>";
  for (const std::string& markup : markups)
    row += "<td>" + markup + "</td>";
  return row + "</tr>\n";
}

// A file of the book that grows.
class File {
 public:
  File(const fs::path& file, std::string_view content) : name_(file.string()), stream_(file, std::ios::binary) {
    Add(content);
  }

  void Add(std::string_view content) {
    stream_ << content;
    if (!stream_) throw LocalFailure("cannot write " + name_);
  }

  void End(std::string_view content = {}) {
    Add(content);
    if (!stream_.flush()) throw LocalFailure("cannot write " + name_);
  }

 private:
  const std::string name_;
  std::ofstream stream_;
};

// A page with a table in which a search finds rows.
class TablePage {
 public:
  TablePage(const fs::path& file, const std::string& title, std::initializer_list<const char*> columns)
      : file_(file, HtmlBegin("", title)) {
    file_.Add(kBookSearchBox);
    file_.Add("<table><thead><tr>");
    for (const char* column : columns)
      file_.Add(std::string("<th scope=\"col\">") + column + "</th>");
    file_.Add("</tr></thead><tbody>\n");
  }

  void Add(const std::string& row) { file_.Add(row); }

  void End(std::string_view note = {}) {
    file_.Add("</tbody></table>\n<script src=\"search.js\"></script>\n");
    file_.Add(note);
    file_.End(kHtmlEnd);
  }

 private:
  File file_;
};

class Book {
 public:
  Book(const fs::path& folder, const admin::Inventory& inventory)
      : folder_(folder), inventory_(inventory), reader_(inventory), history_(history::ReadSettings().folder) {
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
    WriteReports(answer);
    WriteCheck();
    answer.data["models"] = inventory_.models.size();
  }

 private:
  struct Use {
    std::size_t model;
    std::string_view where;
  };

  void Save(const fs::path& name, std::string_view content) const { File(folder_ / name, content).End(); }

  // ---- Reports

  void WriteReports(Answer& answer) {
    TablePage index(folder_ / "index.html", "Reports", {"report", "module", "component", "changed", "header"});
    TablePage fields(folder_ / "fields.html", "Fields", {"field", "module", "component", "uses"});
    Progress progress("drawing");
    for (std::size_t number = 0; number < inventory_.models.size(); ++number) {
      index.Add(WriteModel(number, answer));
      const std::size_t pair = inventory_.models[number].pair;
      const bool isLast = number + 1 == inventory_.models.size() || inventory_.models[number + 1].pair != pair;
      if (isLast) WriteFields(pair, &fields);
      progress.Show(number + 1, inventory_.models.size());
    }
    index.End();
    fields.End();
  }

  // Writes the page of a model and returns its row of the index.
  std::string WriteModel(std::size_t number, Answer& answer) {
    const admin::Model& model = inventory_.models[number];
    const admin::Pair& pair = inventory_.pairs[model.pair];
    const std::string changed = TextOf(admin::DetailsOf(inventory_, model).changed);
    kestor::CDocRelatorio document;
    const std::string trouble = ReadReport(reader_, model, document);
    std::string body = HtmlOf(Json{{"module", pair.module},
                                   {"component", pair.component},
                                   {"generation", model.generation == admin::Generation::first ? "first" : "second"},
                                   {"changed", changed}},
                              2);
    if (trouble.empty()) {
      body += Picture(number, model, document);
      const std::string uses = NoteUses(number, model.pair, document);
      body += InWords(document, model.pair) + uses;
    } else {
      body += "<p>" + Escaped(trouble) + "</p>\n";
      answer.AddNote(trouble);
      answer.incomplete = true;
      document.Reinicia();
    }
    const std::string page = "models/" + std::to_string(number) + ".html";
    Save(page, HtmlBegin("../", model.name) + body + History(model, pair) + kHtmlEnd);
    return Cells({Link(page, model.name), Escaped(pair.module), Escaped(pair.component), changed,
                  Escaped(text::ToUtf8(document.impressao.cabecalho.texto.substr(0, 200)))});
  }

  // Draws the first page.
  std::string Picture(std::size_t number, const admin::Model& model, const kestor::CDocRelatorio& document) {
    const preview::Fields& fields = FieldsOfPair(model.pair);
    preview::Lines lines = preview::SampleLines(document, fields, kSamples);
    preview::Sort(document, fields, &lines);
    const std::string name = std::to_string(number) + ".svg";
    std::string picture;
    preview::LayOut(
        document, fields, lines, {Today(), true, 0},
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

  // What the document says. Of lists that nobody can have meant their beginning; those of `document` are then as short.
  std::string InWords(kestor::CDocRelatorio& document, std::size_t pair) {
    std::size_t leftOut = 0;
    const auto shorten = [&](auto& list) {
      if (list.size() <= kMostRows) return;
      leftOut += list.size() - kMostRows;
      list.resize(kMostRows);
    };
    shorten(document.camposEscolhidos.campos);
    shorten(document.ordenacao.campos);
    shorten(document.ordenacao.totalizacoes);
    shorten(document.filtro.condicoes);
    Json object = DocumentObject(document);
    for (const char* part : {"columns", "sortKeys", "totals", "filter"}) {
      for (Json& row : object[part]) {
        const bool isFixed = row.contains("fixed") && row["fixed"] == true;
        Json named = {{"field", isFixed ? "fixed" : FieldName(pair, row["code"].get<std::uint16_t>())}};
        for (const auto& [name, value] : row.items()) {
          if (name == "alignment") {
            named[name] = AlignmentInWords(value);
          } else if (name == "type") {
            named[name] = TypeInWords(value);
          } else if (name != "code" && name != "fixed") {
            named[name] = value;
          }
        }
        row = std::move(named);
      }
    }
    return HtmlOf(object, 2) + (leftOut == 0 ? "" : "<p>… and " + std::to_string(leftOut) + " more of these.</p>\n");
  }

  // What the history has kept of the model's file.
  std::string History(const admin::Model& model, const admin::Pair& pair) const {
    if (history_.empty()) return {};
    Versions versions = history::FindVersions(history_, text::FromUtf8(pair.module), text::FromUtf8(pair.component),
                                              nullptr, model.name);
    struct stat live = {};
    if (stat((PlaceOf(inventory_.folder).folder / text::ToUtf8(model.file)).c_str(), &live) == 0)
      std::erase_if(versions, [&](const history::Version& one) { return IsSameFile(one, live); });
    Json rows = Json::array();
    for (std::size_t i = versions.size(); i > 0 && rows.size() < kMostVersions; --i) {
      const history::Version& version = versions[i - 1];
      rows.push_back({{"when", WhenOf(version)},
                      {"who", UserName(version.user)},
                      {"what", WhatOf(version)},
                      {"kind", WordOf(KindOf(version))},
                      {"bytes", version.size}});
    }
    return HtmlOf({{"history", rows}}, 2);
  }

  // ---- Fields

  const preview::Fields& FieldsOfPair(std::size_t pair) {
    if (!fieldsPair_ || *fieldsPair_ != pair) fields_ = FieldsOf(reader_.CatalogueOf(pair));
    fieldsPair_ = pair;
    return fields_;
  }

  static std::string PageOf(std::size_t pair, std::uint16_t code) {
    return "fields/" + std::to_string(pair) + '-' + std::to_string(code) + ".html";
  }

  std::string FieldName(std::size_t pair, std::uint16_t code) {
    const tagREG_CAMPOS_RELATORIO2* const field = reader_.CatalogueOf(pair).Find(code);
    return std::to_string(code) + (field == nullptr ? "" : ' ' + text::ToUtf8(kestor::TextoDoCampo(field->szApelido)));
  }

  // Enters what the document uses, and returns links to the fields.
  std::string NoteUses(std::size_t number, std::size_t pair, const kestor::CDocRelatorio& document) {
    std::set<std::uint16_t> mine;
    const auto note = [&](std::uint16_t code, std::string_view where) {
      std::vector<Use>& uses = uses_[code];
      const bool isNew = uses.empty() || uses.back().model != number || uses.back().where != where;
      if (isNew) uses.push_back({number, where});
      mine.insert(code);
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
    for (const std::uint16_t code : mine)
      links += "<li>" + Link("../" + PageOf(pair, code), FieldName(pair, code)) + "</li>\n";
    return links.empty() ? "" : "<h2>fields</h2>\n<ul>\n" + links + "</ul>\n";
  }

  // The pages of the fields of a module and component, when all its models have been seen.
  void WriteFields(std::size_t pair, TablePage* list) {
    const std::string& module = inventory_.pairs[pair].module;
    const std::string& component = inventory_.pairs[pair].component;
    for (const auto& [code, uses] : uses_) {
      const std::string name = FieldName(pair, code);
      const std::string page = PageOf(pair, code);
      std::string title = "Field " + name;
      title.append(" of ").append(module).append(" ").append(component);
      File file(folder_ / page, HtmlBegin("../", title) + "<ul>\n");
      for (const Use& use : uses) {
        file.Add("<li>");
        file.Add(Link("../models/" + std::to_string(use.model) + ".html", inventory_.models[use.model].name));
        file.Add(": ");
        file.Add(use.where);
        file.Add("</li>\n");
      }
      file.End(std::string("</ul>\n") + kHtmlEnd);
      list->Add(Cells({Link(page, name), Escaped(module), Escaped(component), std::to_string(uses.size())}));
    }
    uses_.clear();
  }

  // ---- Check

  void WriteCheck() {
    TablePage page(folder_ / "check.html", "Check", {"place", "problem", "what can be done"});
    Progress progress("checking");
    bool isClean = true;
    admin::Check(inventory_, false,
                 {.found =
                      [&](const admin::Problem& problem) {
                        page.Add(Cells({Escaped(problem.place), Escaped(problem.problem), Escaped(problem.remedy)}));
                        isClean = false;
                      },
                  .progress = [&](std::size_t done, std::size_t total) { progress.Show(done, total); }});
    page.End(isClean ? "<p>Nothing was found.</p>\n" : "");
  }

  const fs::path folder_;
  const admin::Inventory& inventory_;
  admin::Reader reader_;
  const fs::path history_;  // empty: there is none
  std::optional<std::size_t> fieldsPair_;
  preview::Fields fields_;                          // of that pair
  std::map<std::uint16_t, std::vector<Use>> uses_;  // of the pair whose models are being written
};

}  // namespace

void WriteBook(const fs::path& folder, const admin::Inventory& inventory, Answer& answer) {
  Book(folder, inventory).Write(answer);
}

}  // namespace kestorctl
