// The command find: which models use a field, or a text.
#include <algorithm>
#include <vector>

#include "admin/admin.h"
#include "commands.h"
#include "contract/campo_texto.h"
#include "explanation.h"
#include "failure.h"
#include "marcacao/componente_marcacao.h"
#include "model_options.h"
#include "platform/text/text.h"
#include "text_table.h"

namespace kestorctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFooter =
    R"(Shows where models use a field or contain a text, one place per line: module, component, model, generation, where it is
used, code and alias of the field, and the text there. It looks at the models of both generations, of all modules and
components that have a field catalogue in the folder of a module, or of those that are named. Use it before renumbering
codes to see which models are affected.

--field is a code, or an alias, which may have another code in each catalogue. Letter case makes no difference to an
alias or a text. With several options a place must fit all of them. Texts are the titles of columns, with the content of
a fixed column; the values of conditions; and, as title, the name in a document, and the texts of its pages and export
lines.

The files themselves are read: no server takes part, and no model is migrated. A file that another program has open
cannot be read.

With --json: "findings", a list of objects with "module", "component", "model", "generation" (1 or 2), "in" (a word of
--in), "code" (null for a text of a page and a fixed column), "field" (null where the catalogue does not have the code)
and "text"; and "unread", a list of objects with "module", "component", "model" (null for a catalogue) and "reason".

Examples:
  kestorctl find --field 110
  kestorctl find CT --field Saldo --in filter --in sort
  kestorctl find CT 01 --text "demonstração"

Exit status: 0 found, and all models read; 3 nothing found, or not all could be read; 1 failure; 2 wrong usage.)";

struct UseWord {
  admin::Use use;
  const char* word;
};
constexpr UseWord kUses[] = {{admin::Use::column, "columns"},
                             {admin::Use::sortKey, "sort"},
                             {admin::Use::filter, "filter"},
                             {admin::Use::total, "totals"},
                             {admin::Use::title, "title"}};

struct FindOptions {
  StoreOptions store;
  std::string field;
  std::string text;
  std::vector<std::string> in;
};

std::string WordOf(admin::Use use) {
  return std::find_if(std::begin(kUses), std::end(kUses), [use](const UseWord& row) { return row.use == use; })->word;
}

admin::Query QueryOf(const FindOptions& options) {
  admin::Query query{options.field, options.text, {}};
  for (const UseWord& row : kUses) {
    if (std::find(options.in.begin(), options.in.end(), row.word) != options.in.end()) query.uses.push_back(row.use);
  }
  return query;
}

// Reports the findings of a search, for people and for programs.
class Report {
 public:
  Report(const admin::Inventory& inventory, admin::Reader& reader, Answer& answer)
      : inventory_(inventory), reader_(reader), answer_(answer) {
    for (const char* member : {"findings", "unread"})
      answer.data[member] = Json::array();
  }

  void Found(const admin::Model& model, const admin::Finding& finding) {
    const admin::Pair& pair = inventory_.pairs[model.pair];
    const bool isFirst = model.generation == admin::Generation::first;
    const tagREG_CAMPOS_RELATORIO2* const field =
        finding.code ? reader_.CatalogueOf(model.pair).Find(*finding.code) : nullptr;
    const std::string alias = field != nullptr ? text::ToUtf8(kestor::TextoDoCampo(field->szApelido)) : "";
    const std::string text = text::ToUtf8(finding.text);
    if (answer_.json) {
      answer_.data["findings"].push_back({{"module", pair.module},
                                          {"component", pair.component},
                                          {"model", model.name},
                                          {"generation", static_cast<int>(model.generation)},
                                          {"in", WordOf(finding.use)},
                                          {"code", finding.code ? Json(*finding.code) : Json()},
                                          {"field", field != nullptr ? Json(alias) : Json()},
                                          {"text", text}});
    } else {
      rows_.push_back({pair.module, pair.component, text::Presentable(model.name), isFirst ? "first" : "second",
                       WordOf(finding.use), finding.code ? std::to_string(*finding.code) : "", alias,
                       text::Presentable(text)});
    }
    ++found_;
  }

  void Unread(const admin::Pair& pair, const admin::Model* model, const std::string& reason) {
    constexpr std::size_t kMostInNote = 10;
    Json& unread = answer_.data["unread"];
    unread.push_back({{"module", pair.module},
                      {"component", pair.component},
                      {"model", model != nullptr ? Json(model->name) : Json()},
                      {"reason", reason}});
    if (unread.size() <= kMostInNote) answer_.AddNote(reason);
    unreadBeyondNote_ = unread.size() - std::min(unread.size(), kMostInNote);
  }

  void Finish() {
    if (!rows_.empty()) {
      answer_.output = TextTable(
          {{"MODULE"}, {"COMPONENT"}, {"MODEL"}, {"GENERATION"}, {"IN"}, {"CODE", true}, {"FIELD"}, {"TEXT"}}, rows_);
    }
    if (unreadBeyondNote_ != 0)
      answer_.AddNote("and " + std::to_string(unreadBeyondNote_) + " more could not be read; --json names all");
    if (found_ == 0) answer_.AddNote("nothing is found");
    answer_.incomplete = !answer_.note.empty();
  }

 private:
  const admin::Inventory& inventory_;
  admin::Reader& reader_;
  Answer& answer_;
  std::vector<TableRow> rows_;
  std::size_t found_ = 0;
  std::size_t unreadBeyondNote_ = 0;
};

void Find(const FindOptions& options, Answer& answer) {
  if (options.field.empty() && options.text.empty() && options.in.empty())
    throw UsageError("one of --field, --text and --in is needed");
  RequireHome();
  const kestor::ComponenteMarcacao markup;
  const admin::Inventory inventory = admin::TakeInventory(options.store.module, options.store.component);
  admin::Reader reader(inventory);
  Report report(inventory, reader, answer);
  for (const std::string& reason : inventory.unread)
    answer.AddNote(reason);
  const bool isKnown = admin::Search(
      reader, inventory, QueryOf(options),
      {[&](const admin::Model& model, const admin::Finding& finding) { report.Found(model, finding); },
       [&](const admin::Model& model, const std::string& reason) {
         report.Unread(inventory.pairs[model.pair], &model, reason);
       },
       [&](const admin::Pair& pair, const std::string& reason) { report.Unread(pair, nullptr, reason); }});
  if (!isKnown) answer.AddNote("no field catalogue has the alias " + options.field);
  report.Finish();
}

}  // namespace

void AddFind(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"find", "Show which models use a field or contain a text", kFooter}, Find);
  AddStoreOptions(command, &options->store);
  for (const char* code : {"MODULE", "COMPONENT"})
    command->get_option(code)->required(false);
  command->add_option("--field", options->field, "A field's code or alias")->type_name("CODE|ALIAS")->check(CheckUtf8);
  command->add_option("--text", options->text, "The text to look for")->type_name("TEXT")->check(CheckUtf8);
  std::vector<std::string> words;
  for (const UseWord& row : kUses)
    words.emplace_back(row.word);
  command->add_option("--in", options->in, "Where to look: columns, sort, filter, totals, title")
      ->type_name("PLACE")
      ->expected(1)
      ->take_all()
      ->check(CLI::IsMember(words));
}

}  // namespace kestorctl
