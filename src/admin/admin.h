// Reports what the reports folder contains, for its administrators: the models of each module and component, and what
// is in them. Reads the files itself and changes nothing: no server takes part, and no model is migrated. Files are
// opened as the server opens them, so a file that another program holds cannot be read meanwhile.
//
// Texts are UTF-8 unless a comment says otherwise. Any thread may call; throws std::bad_alloc.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "contract/records.h"
#include "document/doc_relatorio.h"
#include "migration/conteudo_rel.h"

namespace admin {

// Why the question cannot be answered; `what()` is a line for people.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ---- Which models there are ----------------------------------------------------------------------------------------

enum class Generation { first = 1, second = 2 };

// A model's file, by its name alone.
struct Model {
  Generation generation = Generation::second;
  std::size_t pair = 0;  // index of its module and component in the inventory's pairs
  std::string name;      // as the store lists it
  std::string file;      // in the reports folder; code page 1252
};

// A module and a component.
struct Pair {
  std::string module;
  std::string component;
  std::string codes;           // the prefix of its first-generation files; upper case, code page 1252
  bool ambiguous = false;      // another pair has the same `codes`: first-generation models count for both
  std::size_t firstCount = 0;  // models of each generation
  std::size_t secondCount = 0;
};

struct Inventory {
  std::string module;     // as asked for; empty: all
  std::string component;  // of the module; empty: all
  std::string folder;     // the reports folder, a path of the desktop platform; code page 1252
  std::vector<Pair> pairs;
  std::vector<Model> models;        // grouped by pair, in the order of the pairs
  std::vector<Model> unassigned;    // files that belong to no pair, without a name
  std::vector<std::string> unread;  // one sentence for each module whose catalogues cannot be listed
};

// Looks for models. Without a component, the pairs are those with a field catalogue in the folder of the module, or in
// the folders of all modules if `module` is empty; a file belongs to the pair with the longest codes that fit it. With
// a component, the named pair is the only one, the models are those that its stores list, and nothing is unassigned.
// Throws Failure if the registry names no reports folder or no folder of the module, or if the reports folder cannot be
// read.
Inventory TakeInventory(const std::string& module = {}, const std::string& component = {});

// Returns whether a program that asks for the model by its listed name reads this file. If the file's name has more
// than one dot, the program reads another file. Letter case makes no difference.
bool IsReadByItsName(const Inventory& inventory, const Model& model);

// Returns the export settings and filters of the inventory's pairs, as if they were models. Includes those without a
// first-generation model.
std::vector<Model> CompanionsIn(const Inventory& inventory);

// ---- What is known of a file ---------------------------------------------------------------------------------------

struct Details {
  std::string trouble;  // why it cannot be read; empty when it can
  std::optional<std::uint64_t> bytes;
  std::optional<std::chrono::system_clock::time_point> changed;
  std::optional<std::uint16_t> version;  // of a document, or of the layout of a first-generation model
};
Details DetailsOf(const Inventory& inventory, const Model& model);

// What the record files of the reports folder say about a module and component.
struct Records {
  std::string trouble;  // why they cannot be read; empty if they can
  std::string defaultReport;
  std::map<std::string, std::string> hidden;  // deleted demonstration models by upper-case name, code page 1252

  // Return whether the model is the default report, and whether stores omit it from their lists. Both are false for
  // first-generation models.
  bool IsDefault(const Model& model) const;
  bool Hides(const Model& model) const;
};
Records RecordsOf(const Inventory& inventory, const Pair& pair);

// ---- What is in a file ---------------------------------------------------------------------------------------------

// Reads a whole file. `path` is a path of the desktop platform in code page 1252. Returns why the file cannot be read;
// empty if it can.
std::string ReadContent(const std::string& path, std::string* content);

// Returns the path of a pair's field catalogue, in the same form. Throws Failure if the registry names no folder of the
// module.
std::string CataloguePath(const Pair& pair);

// ---- What is in a model --------------------------------------------------------------------------------------------

// The field catalogue of a module and component.
struct Catalogue {
  std::string trouble;  // why it cannot be read; empty when it can
  std::vector<tagREG_CAMPOS_RELATORIO2> fields;
  std::unordered_map<std::int32_t, std::size_t> places;  // index of each code in `fields`

  const tagREG_CAMPOS_RELATORIO2* Find(std::int32_t code) const;  // null if there is none; the first of several
};

// Reads models. Keeps what the models of a pair share, so reading them pair by pair is fastest. Needs the markup
// component (marcacao/componente_marcacao.h). The inventory must outlive the reader. One thread at a time may use it.
class Reader {
 public:
  explicit Reader(const Inventory& inventory);
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  const Catalogue& CatalogueOf(std::size_t pair);

  // Fills the document from a second-generation model. Returns why the file cannot be read or is no report document;
  // empty if it is one.
  std::string Read(const Model& model, kestor::CDocRelatorio& document);

  // Fills the document with the conversion of a first-generation model, without export settings that cannot be read.
  // Returns why there is no document, or what it lacks; empty if it is complete.
  std::string ReadConverted(const Model& model, kestor::CDocRelatorio& document);

  // Reads a first-generation model. Returns why the file cannot be read, or cannot be read to its end; empty if it can.
  // `*content` is valid until the next call: it holds what could be read, and is null if nothing could.
  std::string Read(const Model& model, const kestor::CConteudoRel** content);

 private:
  struct State;
  State& Of(std::size_t pair);

  const Inventory& inventory_;
  std::unique_ptr<State> state_;
};

// ---- Where fields and texts are used -------------------------------------------------------------------------------

enum class Use { column, sortKey, filter, total, title };

// One use of a field, or one text of a page.
struct Finding {
  Use use = Use::column;
  std::optional<std::int32_t> code;  // of the field; titles and fixed columns have none
  std::string text;                  // title of the column, value of the condition, text of the page; code page 1252
};

struct Query {
  std::string field;      // a code, or an alias in any letter case; empty: any
  std::string text;       // what the text must contain, in any letter case; empty: any
  std::vector<Use> uses;  // empty: all
};

// Calls `found` for each use that the query asks for, in the order of the models, and `unread` for each model that
// cannot be read, or not to its end. Skips a module and component whose catalogue lacks the alias; calls
// `unreadCatalogue` if the catalogue cannot be read. Returns whether any pair has the field; true if the query names a
// code or no field.
struct Visitor {
  std::function<void(const Model&, const Finding&)> found;
  std::function<void(const Model&, const std::string& reason)> unread;
  std::function<void(const Pair&, const std::string& reason)> unreadCatalogue;
};
bool Search(Reader& reader, const Inventory& inventory, const Query& query, const Visitor& visitor);

}  // namespace admin
