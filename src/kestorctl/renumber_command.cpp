// The command renumber: field codes inside all report documents of a module and component.
#include <limits>

#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "marcacao/componente_marcacao.h"
#include "model_names.h"
#include "model_options.h"
#include "stored_model.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Replaces field codes in every second-generation model of the module and component, each once: with 150=160 160=170 a
field 150 becomes 160, not 170. A renumbered column gets the title that the field catalogue has for its new code. Sort
keys, totals and conditions on fields that the catalogue does not allow for them are removed, also where no code changes.
Codes up to 99 belong to fixed columns: a code is not changed to one of them.

A model that is no report document, or is in use, stays as it is and is told, a line each.

With --json: "skipped", a list of objects with "name" and "reason".

Example:
  kestorctl renumber CT 01 150=160 151=161

Exit status: 0 done; 1 failure, nothing changed; 2 wrong usage.)";

struct RenumberOptions {
  StoreOptions store;
  std::vector<std::string> pairs;
};

std::uint16_t Code(const std::string& pair, const std::string& code) {
  return static_cast<std::uint16_t>(NumberArgument(pair, code, std::numeric_limits<std::uint16_t>::max()));
}

std::vector<REL_CODIGO_CAMPOS_ALTERADOS> ParsePairs(const std::vector<std::string>& arguments) {
  std::vector<REL_CODIGO_CAMPOS_ALTERADOS> pairs;
  for (const std::string& pair : arguments) {
    const std::size_t equals = pair.find('=');
    if (equals == pair.npos) throw UsageError(pair + ": OLD=NEW is needed");
    pairs.push_back({Code(pair, pair.substr(0, equals)), Code(pair, pair.substr(equals + 1))});
  }
  return pairs;
}

// The server does not tell which models it could not read.
void TellSkipped(const StoreOptions& options, Answer& answer) {
  const kestor::ComponenteMarcacao markup;
  const ReportStore store(options.module, options.component);
  std::vector<std::string> names;
  if (SUCCEEDED(store.Result())) ListModels(store, &names);
  answer.data["skipped"] = nlohmann::ordered_json::array();
  for (const std::string& name : names) {
    const StoredModel model(store, name);
    kestor::CDocRelatorio document;
    const std::string reason =
        model.Result() == S_OK ? LoadDocument(model.Record(), document) : "it cannot be read, as when it is in use";
    if (reason.empty()) continue;
    answer.output.append("not changed: ").append(name).append(": ").append(reason) += '\n';
    answer.data["skipped"].push_back({{"name", name}, {"reason", reason}});
  }
}

void Renumber(const RenumberOptions& options, Answer& answer) {
  std::vector<REL_CODIGO_CAMPOS_ALTERADOS> pairs = ParsePairs(options.pairs);
  {
    const FieldConverter converter;
    if (!IsOpen(converter, answer)) return;
    answer.result = converter->AlteraCodigoCampos(Bstr(options.store.module).Get(), Bstr(options.store.component).Get(),
                                                  static_cast<LONG>(pairs.size()), pairs.data());
    if (FAILED(answer.result)) {
      answer.detail = Explain(answer.result, CLSID_ZNPL_RelConverte, options.store.module);
    }
  }
  if (answer.result == S_OK) TellSkipped(options.store, answer);
}

}  // namespace

void AddRenumber(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"renumber", "Renumber field codes in all report documents", kFooter}, Renumber);
  AddStoreOptions(command, &options->store);
  AddText(command, "PAIR", &options->pairs, "OLD=NEW: a field code and the one that replaces it");
}

}  // namespace kestorctl
