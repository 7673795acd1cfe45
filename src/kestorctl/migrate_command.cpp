// The command migrate: first-generation models become report documents.
#include <algorithm>
#include <set>

#include "commands.h"
#include "contract/results.h"
#include "explanation.h"
#include "legacy_commands.h"
#include "migration/conteudo_rel.h"
#include "model_names.h"
#include "model_options.h"
#include "platform/text/text.h"
#include "progress.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Every program that asks for the second-generation models of a module and component has the first-generation models
converted; this command does no more, but tells what became of each:

  converted: NAME        it is a report document now
  dropped: NAME          a report document of that name was there already; the model of the first generation is deleted
  stays: NAME: REASON    nothing was changed

On a terminal it shows how many are done. When the command is interrupted, the server goes on to the end.

With --json: "converted" and "dropped", lists of names, and "stayed", a list of objects with "name" and "reason".

Examples:
  kestorctl migrate CT 01
  kestorctl --json migrate CT 01 > migrated.json

Exit status: 0 done, though models stay; 1 failure; 2 wrong usage.)";

std::string DocumentFile(const StoreOptions& options, const std::string& name) {
  return options.module + options.component + name + (name.find('.') == name.npos ? ".RXL" : "");
}

std::string LegacyFile(const StoreOptions& options, const std::string& name, const char* extension = ".REL") {
  return LegacyCodes(options) + name + extension;
}

bool Exists(const std::string& file) {
  return !ExistingReportsFiles({file}).empty();
}

// How many of the models are still there.
std::size_t Left(const StoreOptions& options, const std::vector<std::string>& names) {
  std::vector<std::string> files;
  files.reserve(names.size());
  for (const std::string& name : names)
    files.push_back(LegacyFile(options, name));
  return ExistingReportsFiles(files).size();
}

// Why a model is still there after a migration.
std::string ReasonToStay(const LegacyStore& store, const StoreOptions& options, const std::string& name) {
  kestor::CConteudoRel content;
  content.DefineRepositorio(*store.operator->());
  const HRESULT loaded = content.Carrega(text::FromUtf8(name));
  if (loaded != S_OK) {
    return "it cannot be read (" + kestor::ResultCode(loaded) + "), as when it is in use or its rights do not allow it";
  }
  if (!content.Completo()) return "its content is empty, cut short, or of a version that is not known";
  const HRESULT catalogue = content.CarregaCatalogo();
  if (catalogue != S_OK) {
    const std::string file = ExplainCatalogue(options.module, LegacyCodes(options));
    return "the field catalogue cannot be read (" + kestor::ResultCode(catalogue) + (file.empty() ? "" : ": " + file) +
           ")";
  }
  if (Exists(DocumentFile(options, name)))
    return "there is a file " + DocumentFile(options, name) + " that is not listed";
  if (Exists(LegacyFile(options, name, ".REE"))) {
    return "its export settings are in use or cut short, or the document could not be stored";
  }
  return "the document could not be stored, or the model not be deleted";
}

// Has the models of the first generation converted, of which there are `names`.
bool Convert(const StoreOptions& options, const std::vector<std::string>& names, Answer& answer) {
  const Progress progress("migrating", names.size(), [&] { return names.size() - Left(options, names); });
  const ReportStore store(options.module, options.component);
  return IsOpen(store, answer);
}

// The names of the models, each once, that are files of that name: the listing cuts a name at its first dot.
HRESULT ModelNames(const StoreOptions& options, std::vector<std::string>* names, Answer& answer) {
  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return answer.result;
  const HRESULT result = ListModels(store, names);
  names->erase(std::unique(names->begin(), names->end()), names->end());
  std::erase_if(*names, [&](const std::string& name) { return !Exists(LegacyFile(options, name)); });
  return result;
}

void Tell(const char* fate, const std::string& name, Answer& answer) {
  answer.data[fate].push_back(name);
  answer.output.append(fate).append(": ").append(name) += '\n';
}

void Migrate(const StoreOptions& options, Answer& answer) {
  std::vector<std::string> names;
  answer.result = ModelNames(options, &names, answer);
  if (FAILED(answer.result)) return;
  if (names.empty()) answer.note = ExplainReportsFolder();
  std::set<std::string> documents;
  for (const std::string& name : names) {
    if (Exists(DocumentFile(options, name))) documents.insert(name);
  }
  if (!Convert(options, names, answer)) return;

  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  for (const char* list : {"converted", "dropped", "stayed"})
    answer.data[list] = nlohmann::ordered_json::array();
  for (const std::string& name : names) {
    if (Exists(LegacyFile(options, name))) {
      const std::string reason = ReasonToStay(store, options, name);
      answer.data["stayed"].push_back({{"name", name}, {"reason", reason}});
      answer.output.append("stays: ").append(name).append(": ").append(reason) += '\n';
    } else {
      Tell(documents.contains(name) ? "dropped" : "converted", name, answer);
    }
  }
}

}  // namespace

void AddMigrate(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"migrate", "Make report documents of first-generation models", kFooter}, Migrate);
  AddStoreOptions(command, options);
}

}  // namespace kestorctl
