// The command migrate: first-generation models become report documents.
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

On a terminal it shows how many are done.

With --json: "converted" and "dropped", lists of names, and "stayed", a list of objects with "name" and "reason".

Examples:
  kestorctl migrate CT 01
  kestorctl --json migrate CT 01 > migrated.json

Exit status: 0 done, though models stay; 1 failure; 2 wrong usage.)";

std::string DocumentFile(const StoreOptions& options, const std::string& name) {
  return options.module + options.component + name + (name.find('.') == name.npos ? ".RXL" : "");
}

// How many of the models are still there.
std::size_t Left(const StoreOptions& options, const std::vector<std::string>& names) {
  std::vector<std::string> files;
  for (const std::string& name : names)
    files.push_back(LegacyCodes(options) + name + ".REL");
  return ExistingReportsFiles(files).size();
}

// Why a model is still there after a migration.
std::string ReasonToStay(const LegacyStore& store, const std::string& name) {
  kestor::CConteudoRel content;
  content.DefineRepositorio(*store.operator->());
  const HRESULT loaded = content.Carrega(text::FromUtf8(name));
  if (loaded != S_OK) return "it cannot be read (" + kestor::ResultCode(loaded) + "), as when it is in use";
  if (!content.Completo()) return "its content is empty, cut short, or of a version that is not known";
  const HRESULT catalogue = content.CarregaCatalogo();
  if (catalogue != S_OK) return "the field catalogue cannot be read (" + kestor::ResultCode(catalogue) + ")";
  return "the document could not be stored, or the model not be deleted";
}

// Has the models of the first generation converted, of which there are `names`.
bool Convert(const StoreOptions& options, const std::vector<std::string>& names, Answer& answer) {
  const Progress progress("migrating", names.size(), [&] { return names.size() - Left(options, names); });
  const ReportStore store(options.module, options.component);
  return IsOpen(store, answer);
}

void Migrate(const StoreOptions& options, Answer& answer) {
  std::vector<std::string> names;
  std::vector<std::string> documents;
  {
    const LegacyStore store(options.module, options.component);
    if (!IsOpen(store, answer)) return;
    answer.result = ListModels(store, &names);
    if (FAILED(answer.result)) return;
    for (const std::string& name : names)
      documents.push_back(DocumentFile(options, name));
  }
  const std::vector<std::string> present = ExistingReportsFiles(documents);
  const std::set<std::string> before(present.begin(), present.end());
  if (!Convert(options, names, answer)) return;

  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  std::vector<std::string> left;
  answer.result = ListModels(store, &left);
  if (FAILED(answer.result)) return;
  const std::set<std::string> stays(left.begin(), left.end());
  answer.result = S_OK;  // that none are left is what was wanted
  for (const char* list : {"converted", "dropped", "stayed"})
    answer.data[list] = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (stays.contains(names[i])) {
      const std::string reason = ReasonToStay(store, names[i]);
      answer.data["stayed"].push_back({{"name", names[i]}, {"reason", reason}});
      answer.output += "stays: " + names[i] + ": " + reason + '\n';
      continue;
    }
    const char* const fate = before.contains(documents[i]) ? "dropped" : "converted";
    answer.data[fate].push_back(names[i]);
    answer.output += std::string(fate) + ": " + names[i] + '\n';
  }
}

}  // namespace

void AddMigrate(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"migrate", "Make report documents of first-generation models", kFooter}, Migrate);
  AddStoreOptions(command, options);
}

}  // namespace kestorctl
