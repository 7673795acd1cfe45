// What lies in the reports folder, for its administrators: which models of which module and component, and what is in
// them. It reads the files itself and changes nothing; no server takes part, and no model is migrated. Files are opened
// as the server opens them: what another program holds cannot be read meanwhile.
//
// Texts are UTF-8 unless a comment says otherwise. From any thread; throws std::bad_alloc.
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

// Why nothing can be told; `what()` is a line for people.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ---- Which models there are ----------------------------------------------------------------------------------------

enum class Generation { first = 1, second = 2 };

// A model's file, by its name alone.
struct Model {
  Generation generation = Generation::second;
  std::size_t pair = 0;  // the place of its module and component in the inventory
  std::string name;      // as the store lists it
  std::string file;      // in the reports folder; code page 1252
};

// A module and a component.
struct Pair {
  std::string module;
  std::string component;
  std::string codes;           // what the names of its first-generation files begin with; capitals, code page 1252
  bool ambiguous = false;      // another one has the same `codes`: their first-generation models count for both
  std::size_t firstCount = 0;  // models of each generation
  std::size_t secondCount = 0;
};

struct Inventory {
  std::string module;     // what was asked for; empty: all
  std::string component;  // of the module; empty: all
  std::string folder;     // the reports folder, a path of the desktop platform; code page 1252
  std::vector<Pair> pairs;
  std::vector<Model> models;        // those of a pair one after the other, in the order of the pairs
  std::vector<Model> unassigned;    // files that belong to no pair, without a name
  std::vector<std::string> unread;  // why the catalogues of a module are not known, a sentence each
};

// Looks for models. Without a component the pairs are those with a field catalogue, in the folder of the module or,
// with an empty `module`, in those of all modules; a file is that of the longest codes that fit it. With a component
// the only pair is the one named, and the models are those that its stores list; nothing is unassigned. Throws Failure
// when the registry names no reports folder or no folder of the module, or the reports folder cannot be read.
Inventory TakeInventory(const std::string& module = {}, const std::string& component = {});

// Whether the file is the one that a program reads when it asks for the model by its listed name: letter case aside, a
// name with more than one dot is another file's.
bool IsReadByItsName(const Inventory& inventory, const Model& model);

// The files beside the first-generation models of the inventory's pairs, export settings and filters, as if they were
// models; also those without their model.
std::vector<Model> CompanionsIn(const Inventory& inventory);

// ---- What is known of a file ---------------------------------------------------------------------------------------

struct Details {
  std::string trouble;  // why it cannot be read; empty when it can
  std::optional<std::uint64_t> bytes;
  std::optional<std::chrono::system_clock::time_point> changed;
  std::optional<std::uint16_t> version;  // of a document, or of the layout of a first-generation model
};
Details DetailsOf(const Inventory& inventory, const Model& model);

// What the record files of the reports folder say of a module and component.
struct Records {
  std::string trouble;  // why they cannot be read; empty when they can
  std::string defaultReport;
  std::map<std::string, std::string>
      hidden;  // deleted demonstration models, by their names in capitals, code page 1252

  // Whether the model is the default report; whether stores leave it out of their lists. No first-generation model is.
  bool IsDefault(const Model& model) const;
  bool Hides(const Model& model) const;
};
Records RecordsOf(const Inventory& inventory, const Pair& pair);

// ---- What is in a file ---------------------------------------------------------------------------------------------

// Reads a whole file, for which a `path` of the desktop platform is given in code page 1252. Returns why it cannot be
// read; empty when it can.
std::string ReadContent(const std::string& path, std::string* content);

// Where the field catalogue of a pair is, such a path. Throws Failure when the registry names no folder of the module.
std::string CataloguePath(const Pair& pair);

// ---- What is in a model --------------------------------------------------------------------------------------------

// The field catalogue of a module and component.
struct Catalogue {
  std::string trouble;  // why it cannot be read; empty when it can
  std::vector<tagREG_CAMPOS_RELATORIO2> fields;
  std::unordered_map<std::int32_t, std::size_t> places;  // of the codes among the fields

  const tagREG_CAMPOS_RELATORIO2* Find(std::int32_t code) const;  // null when it has none; of several the first
};

// Reads models; best those of a pair one after the other, for it keeps what they share. Needs the markup component
// (marcacao/componente_marcacao.h). The inventory must outlive it. Used by one thread at a time.
class Reader {
 public:
  explicit Reader(const Inventory& inventory);
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  const Catalogue& CatalogueOf(std::size_t pair);

  // Fills the document from a second-generation model. Returns why it cannot be read, or is no report document; empty
  // when it is one.
  std::string Read(const Model& model, kestor::CDocRelatorio& document);

  // Fills the document with what the conversion of a first-generation model would give, without export settings that
  // cannot be read. Returns why there is none, or what the document lacks; empty when it is whole.
  std::string ReadConverted(const Model& model, kestor::CDocRelatorio& document);

  // Reads a first-generation model; `*content` is valid until the next call. Returns why it cannot be read, or not to
  // its end; the content then is what stands in front of that point. Null when nothing can be read.
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
  std::optional<std::int32_t> code;  // of the field; none of titles and fixed columns
  std::string text;                  // title of the column, value of the condition, text of the page; code page 1252
};

struct Query {
  std::string field;      // a code, or an alias in whatever letter case; empty: any
  std::string text;       // what the text must contain, in whatever letter case; empty: any
  std::vector<Use> uses;  // empty: all
};

// Calls `found` for each use that is asked for, in the order of the models, and `unread` for each model that cannot be
// read, or not to its end. A module and component whose catalogue lacks the alias is passed over; one whose catalogue
// cannot be read goes to `unreadCatalogue`. Returns whether any of the pairs has the field; true for a code or none.
struct Visitor {
  std::function<void(const Model&, const Finding&)> found;
  std::function<void(const Model&, const std::string& reason)> unread;
  std::function<void(const Pair&, const std::string& reason)> unreadCatalogue;
};
bool Search(Reader& reader, const Inventory& inventory, const Query& query, const Visitor& visitor);

}  // namespace admin
