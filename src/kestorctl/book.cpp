#include "book.h"

#include <sys/stat.h>

#include <algorithm>
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

constexpr std::size_t kSamples = 16;     // enough for a few groups
constexpr std::size_t kMostRows = 1000;  // of a list in a document
constexpr std::size_t kMostProblems = 10'000;
constexpr std::size_t kMostVersions = 100;  // of one model, the latest ones

constexpr const char* kIndex = "index.html";
constexpr const char* kFieldList = "fields.html";
constexpr const char* kCheck = "check.html";
constexpr const char* kStyle = "book.css";
constexpr const char* kSearch = "search.js";
constexpr const char* kFolders[] = {"models", "fields"};

std::string TextOf(std::chrono::system_clock::time_point time) {
  return LocalText(std::chrono::system_clock::to_time_t(time), "%Y-%m-%d %H:%M");
}

std::string Cells(std::initializer_list<std::string> markups) {
  std::string row = "<tr>";
  for (const std::string& markup : markups)
    row += "<td>" + markup + "</td>";
  return row + "</tr>\n";
}

// A file of the book, written piece by piece.
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

// A page with a table and a search box for its rows.
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
    for (const char* part : kFolders) {
      if (!error) fs::create_directory(folder / part, error);
    }
    if (error) throw LocalFailure("cannot make " + folder.string() + ": " + error.message());
  }

  // Removes what was written of the book.
  void Abandon() noexcept {
    std::error_code ignored;
    for (const char* part : kFolders)
      fs::remove_all(folder_ / part, ignored);
    for (const char* page : {kIndex, kFieldList, kCheck, kStyle, kSearch})
      fs::remove(folder_ / page, ignored);
  }

  void Write(Answer& answer) {
    Save(kStyle, kBookStyle);
    Save(kSearch, kBookSearch);
    WriteReports(answer);
    WriteCheck();
    answer.data["models"] = inventory_.models.size();
    answer.output = (folder_ / kIndex).string() + ": " + std::to_string(inventory_.models.size()) +
                    (inventory_.models.size() == 1 ? " report\n" : " reports\n");
  }

 private:
  struct Use {
    std::size_t model;
    std::string where;  // such as "column, total"
  };

  void Save(const fs::path& name, std::string_view content) const { File(folder_ / name, content).End(); }

  // ---- Reports

  void WriteReports(Answer& answer) {
    TablePage index(folder_ / kIndex, "Reports", {"report", "module", "component", "changed", "header"});
    TablePage fields(folder_ / kFieldList, "Fields", {"field", "description", "module", "component", "reports"});
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
    const auto when = admin::DetailsOf(inventory_, model).changed;
    const std::string changed = when ? TextOf(*when) : "";
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
    std::vector<std::string> notes;
    const preview::Fields fields = FieldsOf(reader_.CatalogueOf(model.pair), document, &notes);
    preview::Lines lines = preview::SampleLines(document, fields, kSamples);
    preview::Sort(document, fields, &lines);
    const std::string name = std::to_string(number) + ".svg";
    std::string picture;
    preview::LayOut(
        document, fields, lines, {Today(), true, 0},
        [&](const preview::Page& page) {
          Save("models/" + name, preview::DrawSvg(page, ""));
          picture = "<p><a href=\"" + name + "\"><img src=\"" + name + "\" width=\"" +
                    std::to_string(static_cast<int>(page.width)) + "\" height=\"" +
                    std::to_string(static_cast<int>(page.height)) + "\" alt=\"First page of " + Escaped(model.name) +
                    " with sample lines\"></a></p>\n";
          return false;
        },
        &notes);
    return picture + Notes(notes);
  }

  // Returns what the document says. Cuts lists of absurd length to kMostRows entries, also in `document`.
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
    if (!object["filter"].empty()) object["filter"][0]["connector"] = "";
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

  static std::string Notes(const std::vector<std::string>& notes) {
    std::string all;
    for (const std::string& note : notes)
      all += "<p>" + Escaped(note) + "</p>\n";
    return all;
  }

  // Returns what the history has kept of the model's file.
  std::string History(const admin::Model& model, const admin::Pair& pair) {
    if (history_.empty()) return {};
    Versions versions;
    std::string trouble;
    const auto [begin, end] = SpellingsIn(model.pair).equal_range(text::Upper(text::FromUtf8(model.name)));
    for (auto spelling = begin; spelling != end; ++spelling) {
      const Versions more = history::FindVersions(history_, text::FromUtf8(pair.module), text::FromUtf8(pair.component),
                                                  &trouble, spelling->second);
      versions.insert(versions.end(), more.begin(), more.end());
    }
    std::stable_sort(versions.begin(), versions.end(),
                     [](const history::Version& a, const history::Version& b) { return a.time < b.time; });
    struct stat live = {};
    if (stat((PlaceOf(inventory_.folder).folder / text::ToUtf8(model.file)).c_str(), &live) == 0)
      std::erase_if(versions, [&](const history::Version& one) { return IsSameFile(one, live); });
    Json rows = Json::array();
    for (std::size_t i = versions.size(); i > 0 && rows.size() < kMostVersions; --i) {
      const history::Version& version = versions[i - 1];
      rows.push_back({{"when", TextOf(version.time)},
                      {"who", UserName(version.user)},
                      {"what", WhatOf(version)},
                      {"kind", WordOf(KindOf(version))},
                      {"bytes", version.size}});
    }
    return HtmlOf({{"history", rows}}, 2) + (trouble.empty() ? "" : Notes({trouble}));
  }

  // Returns the names under which the history has kept models of the pair, by name in capitals.
  const std::multimap<std::string, std::string>& SpellingsIn(std::size_t pair) {
    if (spellingsOf_ == pair) return spellings_;
    spellings_.clear();
    spellingsOf_ = pair;
    const auto capitals = [](const std::string& code) { return text::ToUtf8(text::Upper(text::FromUtf8(code))); };
    const fs::path place =
        history_ / capitals(inventory_.pairs[pair].module) / capitals(inventory_.pairs[pair].component);
    std::error_code error;  // usually that there is no such folder yet
    for (fs::directory_iterator entry(place, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
      const std::string name = entry->path().filename().string();
      spellings_.emplace(text::Upper(text::FromUtf8(name)), name);
    }
    return spellings_;
  }

  // ---- Fields

  static std::string PageOf(std::size_t pair, std::uint16_t code) {
    return "fields/" + std::to_string(pair) + '-' + std::to_string(code) + ".html";
  }

  std::string FieldName(std::size_t pair, std::uint16_t code) {
    const tagREG_CAMPOS_RELATORIO2* const field = reader_.CatalogueOf(pair).Find(code);
    return std::to_string(code) + (field == nullptr ? "" : ' ' + text::ToUtf8(kestor::TextoDoCampo(field->szApelido)));
  }

  // Returns what the catalogue says about a field.
  std::string FieldFacts(std::size_t pair, std::uint16_t code) {
    const tagREG_CAMPOS_RELATORIO2* const record = reader_.CatalogueOf(pair).Find(code);
    if (record == nullptr) return "<p>The catalogue has no such field.</p>\n";
    const Field field(*record);
    return HtmlOf(Json{{"description", field.description},
                       {"type", TypeInWords(field.type)},
                       {"width", field.width},
                       {"options", field.options},
                       {"mayFilter", field.filter},
                       {"maySort", field.sort},
                       {"mayTotal", field.total}},
                  2);
  }

  // Records which fields the document uses, and returns links to them.
  std::string NoteUses(std::size_t number, std::size_t pair, const kestor::CDocRelatorio& document) {
    std::set<std::uint16_t> mine;
    const auto note = [&](std::uint16_t code, std::string_view where) {
      std::vector<Use>& uses = uses_[code];
      if (mine.insert(code).second) {
        uses.push_back({number, std::string(where)});
      } else if (!uses.back().where.ends_with(where)) {
        uses.back().where.append(", ").append(where);
      }
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

  // Writes the pages of the fields of a module and component, after the last of its models.
  void WriteFields(std::size_t pair, TablePage* list) {
    const std::string& module = inventory_.pairs[pair].module;
    const std::string& component = inventory_.pairs[pair].component;
    for (const auto& [code, uses] : uses_) {
      const std::string name = FieldName(pair, code);
      const std::string page = PageOf(pair, code);
      std::string title = "Field " + name;
      title.append(" of ").append(module).append(" ").append(component);
      File file(folder_ / page, HtmlBegin("../", title) + FieldFacts(pair, code) + "<h2>Reports</h2>\n<ul>\n");
      for (const Use& use : uses) {
        file.Add("<li>");
        file.Add(Link("../models/" + std::to_string(use.model) + ".html", inventory_.models[use.model].name));
        file.Add(": ");
        file.Add(use.where);
        file.Add("</li>\n");
      }
      file.End(std::string("</ul>\n") + kHtmlEnd);
      const tagREG_CAMPOS_RELATORIO2* const field = reader_.CatalogueOf(pair).Find(code);
      list->Add(Cells({Link(page, name),
                       field == nullptr ? "" : Escaped(text::ToUtf8(kestor::TextoDoCampo(field->szDescricao))),
                       Escaped(module), Escaped(component), std::to_string(uses.size())}));
    }
    uses_.clear();
  }

  // ---- Check

  void WriteCheck() {
    TablePage page(folder_ / kCheck, "Check", {"place", "problem", "what can be done"});
    Progress progress("checking");
    std::size_t found = 0;
    admin::Check(inventory_, false,
                 {.found =
                      [&](const admin::Problem& problem) {
                        if (++found <= kMostProblems)
                          page.Add(Cells({Escaped(problem.place), Escaped(problem.problem), Escaped(problem.remedy)}));
                      },
                  .progress = [&](std::size_t done, std::size_t total) { progress.Show(done, total); }});
    page.End(found == 0              ? "<p>Nothing was found.</p>\n"
             : found > kMostProblems ? "<p>… and more: <code>kestorctl check</code> tells all.</p>\n"
                                     : "<p>As <code>kestorctl check</code> tells it; it mends some with --fix.</p>\n");
  }

  const fs::path folder_;
  const admin::Inventory& inventory_;
  admin::Reader reader_;
  const fs::path history_;                  // empty: there is none
  std::optional<std::size_t> spellingsOf_;  // the pair of `spellings_`
  std::multimap<std::string, std::string> spellings_;
  std::map<std::uint16_t, std::vector<Use>> uses_;  // of the pair whose models are being written
};

}  // namespace

void WriteBook(const fs::path& folder, const admin::Inventory& inventory, Answer& answer) {
  if (inventory.models.empty()) throw LocalFailure("there is no report to make a book of");
  Book book(folder, inventory);
  try {
    book.Write(answer);
  } catch (...) {
    book.Abandon();
    throw;
  }
}

}  // namespace kestorctl
