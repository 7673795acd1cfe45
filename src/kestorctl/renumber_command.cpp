// The command renumber: field codes inside all report documents of a module and component.
#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <span>

#include "commands.h"
#include "common/nomes_arquivos.h"
#include "contract/results.h"
#include "explanation.h"
#include "failure.h"
#include "marcacao/componente_marcacao.h"
#include "model_names.h"
#include "model_options.h"
#include "platform/text/text.h"
#include "progress.h"
#include "stored_model.h"
#include "text_table.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Replaces field codes in every second-generation model of the module and component, each once: with 150=160 160=170 a
field 150 becomes 160, not 170. A renumbered column gets the title that the field catalogue has for its new code. Sort
keys, totals and conditions on fields that the catalogue does not allow for them are removed, also where no code changes.
Codes up to 99 are places of fixed columns and cannot be given. Without the field catalogue nothing is done; a new code
that it lacks is taken, and told of.

It tells what became of the models that have such codes, or may have them:

  renumbered: NAME             it has the new codes now
  not changed: NAME: REASON    it is no report document, was in use, or bears another name than its own inside: what is
                               renumbered is stored under that name

On a terminal it shows how many models are done. When the command is interrupted, the server goes on to the end.

With --json: "renumbered", a list of names, and "skipped", a list of objects with "name" and "reason".

Example:
  kestorctl renumber CT 01 150=160 151=161

Exit status: 0 done, though models are not changed; 1 failure; 2 wrong usage. After a failure in the middle, such as a
server that was ended, some models have the new codes: "show" tells which. Codes that others have been changed to would
be changed again by a second run.)";

constexpr std::uint16_t kLastFixedCode = 99;

struct RenumberOptions {
  StoreOptions store;
  std::vector<std::string> pairs;
};

std::uint16_t Code(const std::string& pair, const std::string& code) {
  return static_cast<std::uint16_t>(NumberArgument(pair, code, std::numeric_limits<std::uint16_t>::max()));
}

std::vector<REL_CODIGO_CAMPOS_ALTERADOS> ParsePairs(const std::vector<std::string>& arguments) {
  std::vector<REL_CODIGO_CAMPOS_ALTERADOS> pairs;
  pairs.reserve(arguments.size());
  for (const std::string& pair : arguments) {
    const std::size_t equals = pair.find('=');
    if (equals == pair.npos) throw UsageError(pair + ": OLD=NEW is needed");
    const REL_CODIGO_CAMPOS_ALTERADOS parsed = {Code(pair, pair.substr(0, equals)),
                                                Code(pair, pair.substr(equals + 1))};
    if (std::min(parsed.nCodigoAntigo, parsed.nNovoCodigo) <= kLastFixedCode) {
      throw UsageError(pair + ": codes up to 99 are places of fixed columns, no field has one");
    }
    pairs.push_back(parsed);
  }
  return pairs;
}

bool HasCodeToReplace(const kestor::CDocRelatorio& document, const std::vector<REL_CODIGO_CAMPOS_ALTERADOS>& pairs) {
  std::map<std::uint16_t, std::uint16_t> newCodes;
  for (const REL_CODIGO_CAMPOS_ALTERADOS pair : pairs)
    newCodes[pair.nCodigoAntigo] = pair.nNovoCodigo;
  const auto replaced = [&newCodes](const auto& record) {
    const auto found = newCodes.find(record.codigo);
    return found != newCodes.end() && found->second != record.codigo;
  };
  const auto& columns = document.camposEscolhidos.campos;
  return std::any_of(columns.begin(), columns.end(), replaced) ||
         std::any_of(document.ordenacao.campos.begin(), document.ordenacao.campos.end(), replaced) ||
         std::any_of(document.ordenacao.totalizacoes.begin(), document.ordenacao.totalizacoes.end(), replaced) ||
         std::any_of(document.filtro.condicoes.begin(), document.filtro.condicoes.end(), replaced);
}

// A model that has codes to replace, or may have some.
struct Model {
  std::string name;
  std::size_t content = 0;  // a hash, from before
  std::string reason;       // why it is not renumbered
};

// The server tells of no model what became of it: they are looked at before and afterwards.
class Models {
 public:
  explicit Models(const StoreOptions& options) : store_(options.module, options.component) {}

  const ReportStore& Store() const { return store_; }
  const std::vector<std::string>& Names() const { return names_; }

  // A failure when the server does not answer.
  HRESULT LookBefore(const std::vector<REL_CODIGO_CAMPOS_ALTERADOS>& pairs) {
    const HRESULT listed = ListModels(store_, &names_);
    names_.erase(std::unique(names_.begin(), names_.end()), names_.end());
    if (FAILED(listed)) return listed;
    for (const std::string& name : names_) {
      const StoredModel stored(store_, name);
      if (IsNoAnswer(stored.Result())) return stored.Result();
      Model model{name, 0, {}};
      kestor::CDocRelatorio document;
      model.reason = stored.Result() == S_OK ? LoadDocument(stored.Record(), document) : "it could not be read";
      if (model.reason.empty() && !HasCodeToReplace(document, pairs)) continue;
      if (model.reason.empty()) {
        model.content = Hash(stored);
        model.reason = ReasonOfName(name, document);
      }
      models_.push_back(std::move(model));
    }
    return S_OK;
  }

  HRESULT LookAfterwards() {
    for (Model& model : models_) {
      if (!model.reason.empty()) continue;
      const StoredModel stored(store_, model.name);
      if (IsNoAnswer(stored.Result())) return stored.Result();
      if (stored.Result() == S_OK && Hash(stored) == model.content) {
        model.reason = "it could not be stored, as when it is in use";
      }
    }
    return S_OK;
  }

  void Tell(Answer& answer) const {
    answer.data["renumbered"] = nlohmann::ordered_json::array();
    answer.data["skipped"] = nlohmann::ordered_json::array();
    for (const Model& model : models_) {
      if (model.reason.empty()) {
        answer.data["renumbered"].push_back(model.name);
        answer.output.append("renumbered: ").append(model.name) += '\n';
      } else {
        answer.data["skipped"].push_back({{"name", model.name}, {"reason", model.reason}});
        answer.output.append("not changed: ").append(model.name).append(": ").append(model.reason) += '\n';
      }
    }
  }

 private:
  static bool IsNoAnswer(HRESULT result) {
    return FAILED(result) && result != kestor::ErrorForm(KESTOR_PROBLEMAS_AO_LER);
  }

  static std::size_t Hash(const StoredModel& stored) { return std::hash<std::string_view>()(stored.Content()); }

  static std::string ReasonOfName(const std::string& name, const kestor::CDocRelatorio& document) {
    if (kestor::ChaveRelatorio(document.nome) == kestor::ChaveRelatorio(text::FromUtf8(name))) return {};
    return "its document bears another name, \"" + Printable(text::ToUtf8(document.nome)) + "\"";
  }

  const ReportStore store_;
  std::vector<std::string> names_;
  std::vector<Model> models_;
};

// Without the catalogue the server changes no code, and does not say so. Nor does it say which new codes are no fields.
bool HasCatalogue(const ReportStore& store, const StoreOptions& options,
                  const std::vector<REL_CODIGO_CAMPOS_ALTERADOS>& pairs, Answer& answer) {
  REG_CAMPOS_DISPONIVEIS2* list = nullptr;
  answer.result = store->GetCamposDisponiveis(&list);
  const TaskBlock<REG_CAMPOS_DISPONIVEIS2> owner(list);
  const TaskBlock<tagREG_CAMPOS_RELATORIO2> fields(list != nullptr ? list->pregCampos : nullptr);
  if (answer.result != S_OK) answer.detail = ExplainCatalogue(Generation::second, options.module, options.component);
  if (answer.result != S_OK) return false;
  std::set<std::uint16_t> codes;
  for (const tagREG_CAMPOS_RELATORIO2& field : std::span(fields.get(), list != nullptr ? list->nQtdeCampos : 0U))
    codes.insert(field.nCodigo);
  for (const REL_CODIGO_CAMPOS_ALTERADOS pair : pairs) {
    if (!codes.insert(pair.nNovoCodigo).second) continue;
    answer.note += answer.note.empty() ? "the field catalogue has no field " : ", ";
    answer.note += std::to_string(pair.nNovoCodigo);
  }
  return true;
}

// Each model is a new file when it is done.
HRESULT Convert(const StoreOptions& options, std::vector<REL_CODIGO_CAMPOS_ALTERADOS>& pairs,
                const std::vector<std::string>& names, Answer& answer) {
  std::vector<std::filesystem::path> files;
  files.reserve(names.size());
  for (const std::string& name : names)
    files.push_back(HostPathOf(ReportFileRead({options, name}).path));
  const auto started = std::filesystem::file_time_type::clock::now();
  const Progress progress("renumbering", files.size(), [&] {
    return static_cast<std::size_t>(std::count_if(files.begin(), files.end(), [&](const std::filesystem::path& file) {
      std::error_code none;
      return std::filesystem::last_write_time(file, none) >= started;
    }));
  });
  const FieldConverter converter;
  if (!IsOpen(converter, answer)) return answer.result;
  const HRESULT result = converter->AlteraCodigoCampos(ToBstr(options.module).get(), ToBstr(options.component).get(),
                                                       static_cast<LONG>(pairs.size()), pairs.data());
  if (FAILED(result)) answer.detail = Explain(result, CLSID_ZNPL_RelConverte, options.module);
  return result;
}

void Renumber(const RenumberOptions& options, Answer& answer) {
  std::vector<REL_CODIGO_CAMPOS_ALTERADOS> pairs = ParsePairs(options.pairs);
  const kestor::ComponenteMarcacao markup;
  Models models(options.store);
  if (!IsOpen(models.Store(), answer) || !HasCatalogue(models.Store(), options.store, pairs, answer)) return;
  answer.result = models.LookBefore(pairs);
  if (answer.result == S_OK) answer.result = Convert(options.store, pairs, models.Names(), answer);
  if (answer.result == S_OK) answer.result = models.LookAfterwards();
  if (answer.result == S_OK) models.Tell(answer);
}

}  // namespace

void AddRenumber(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"renumber", "Renumber field codes in all report documents", kFooter}, Renumber);
  AddStoreOptions(command, &options->store);
  AddText(command, "PAIR", &options->pairs, "OLD=NEW: a field code and the one that replaces it");
}

}  // namespace kestorctl
