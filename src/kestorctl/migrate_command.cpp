// The command migrate: first-generation models become report documents.
#include <algorithm>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "commands.h"
#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "contract/results.h"
#include "explanation.h"
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

// The files of a module and component by the names of its models.
class Files {
 public:
  explicit Files(const StoreOptions& options)
      : models_(ReportsPrefix(Generation::first, options.module, options.component)),
        documents_(ReportsPrefix(Generation::second, options.module, options.component)) {}

  std::string Models() const { return kestor::MascaraRel(models_); }  // for a search
  std::string Model(const std::string& name) const { return kestor::CaminhoRelGravado(models_, text::FromUtf8(name)); }
  std::string Settings(const std::string& name) const {
    return kestor::CaminhoExportacao(models_, text::FromUtf8(name));
  }
  std::string Document(const std::string& name) const {
    return kestor::CaminhoRelatorioGravado(documents_, text::FromUtf8(name));
  }

 private:
  const std::string models_;
  const std::string documents_;
};

// Files of first-generation models that differ in letter case alone.
class Twins {
 public:
  explicit Twins(const std::string& mask) {
    for (const std::string& file : kestor::ArquivosDaMascara(mask))
      files_[text::Upper(file)].push_back(text::ToUtf8(file));
  }

  // Names the files that a path of a model may mean; empty when there is one.
  std::string Of(const std::string& path) const {
    const auto found = files_.find(text::Upper(kestor::NomeDoArquivo(path)));
    if (found == files_.end() || found->second.size() < 2) return {};
    std::string names;
    for (const std::string& file : found->second)
      names += (names.empty() ? "" : " and ") + file;
    return names;
  }

 private:
  std::unordered_map<std::string, std::vector<std::string>> files_;  // by their names in upper case
};

// Why a model is still there after a migration.
std::string ReasonToStay(const LegacyStore& store, const StoreOptions& options, const Files& files,
                         const Twins& allTwins, const std::string& name) {
  const std::string twins = allTwins.Of(files.Model(name));
  if (!twins.empty()) return "the files " + twins + " differ in letter case alone: rename or remove one of them";
  kestor::CConteudoRel content;
  content.DefineRepositorio(*store.operator->());
  const HRESULT loaded = content.Carrega(text::FromUtf8(name));
  if (loaded != S_OK) {
    return "it cannot be read (" + kestor::ResultCode(loaded) + "), as when it is in use or its rights do not allow it";
  }
  if (!content.Completo()) return "its content is empty, cut short, or of a version that is not known";
  const HRESULT catalogue = content.CarregaCatalogo();
  if (catalogue != S_OK) {
    const std::string file = ExplainCatalogue(Generation::first, options.module, options.component);
    return "the field catalogue cannot be read (" + kestor::ResultCode(catalogue) + (file.empty() ? "" : ": " + file) +
           ")";
  }
  const std::string document = files.Document(name);
  if (Exists(document)) return "there is a file " + text::ToUtf8(kestor::NomeDoArquivo(document)) + " already";
  if (Exists(files.Settings(name))) {
    return "its export settings are in use or cut short, or the document could not be stored";
  }
  return "the document could not be stored";
}

// Has the models of the first generation converted, of which there are `names`.
bool Convert(const StoreOptions& options, const Files& files, const std::vector<std::string>& names, Answer& answer) {
  const auto isGone = [&files](const std::string& name) { return !Exists(files.Model(name)); };
  const Progress progress("migrating", names.size(),
                          [&] { return static_cast<std::size_t>(std::count_if(names.begin(), names.end(), isGone)); });
  const ReportStore store(options.module, options.component);
  return IsOpen(store, answer);
}

// The names of the models, each once, that are files of that name: the listing cuts a name at its first dot.
HRESULT ModelNames(const StoreOptions& options, const Files& files, std::vector<std::string>* names, Answer& answer) {
  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return answer.result;
  const HRESULT result = ListModels(store, names);
  names->erase(std::unique(names->begin(), names->end()), names->end());
  std::erase_if(*names, [&](const std::string& name) { return !Exists(files.Model(name)); });
  return result;
}

void Tell(const char* fate, const std::string& name, Answer& answer) {
  answer.data[fate].push_back(name);
  answer.output.append(fate).append(": ").append(name) += '\n';
}

void Migrate(const StoreOptions& options, Answer& answer) {
  const Files files(options);
  std::vector<std::string> names;
  answer.result = ModelNames(options, files, &names, answer);
  if (FAILED(answer.result)) return;
  if (names.empty()) answer.note = ExplainReportsFolder();
  std::set<std::string> documents;
  for (const std::string& name : names) {
    if (Exists(files.Document(name))) documents.insert(name);
  }
  if (!Convert(options, files, names, answer)) return;

  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  const Twins twins(files.Models());
  for (const char* list : {"converted", "dropped", "stayed"})
    answer.data[list] = nlohmann::ordered_json::array();
  for (const std::string& name : names) {
    if (Exists(files.Model(name))) {
      const std::string reason = ReasonToStay(store, options, files, twins, name);
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
