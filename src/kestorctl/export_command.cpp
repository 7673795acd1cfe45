// The command export: the models of modules and components as a bundle.
#include <ctime>
#include <map>
#include <set>

#include "admin/admin.h"
#include "bundle/bundle.h"
#include "commands.h"
#include "common/nomes_arquivos.h"
#include "explanation.h"
#include "failure.h"
#include "host_files.h"
#include "marcacao/componente_marcacao.h"
#include "platform/text/text.h"
#include "progress.h"
#include "times.h"

namespace kestorctl {

namespace {

using admin::Generation;
using bundle::Kind;

constexpr const char* kFooter =
    R"(Writes the models of all modules and components, of those of MODULE, of one component, or the models NAME of one
component into one tar file, which "kestorctl import" brings into another home: documents, and first-generation models
with their export settings and filters; without NAME also the name of the default report and the names of deleted
demonstration models; always the field catalogue. The file begins with manifest.json, which gives the SHA-256 of each
file, and ordinary tools open it. FILE is written whole or not at all.

Modules and components are those that "kestorctl list" shows. The files themselves are read: no server takes part, and
no model is migrated. A deleted demonstration model is exported if its document exists again.

With --json: "pairs", each with "module", "component", "documents" and "firstGeneration", numbers, and "left", each with
"file" and "reason".

Examples:
  kestorctl export models.tar
  kestorctl export CT 01 ct01.tar
  kestorctl export CT 01 Vendas "Vendas por mês" vendas.tar
  tar tf models.tar

Exit status: 0 everything is in the bundle; 3 something could not be read and is missing; 1 failure, such as no model at
all; 2 wrong usage.)";

struct ExportOptions {
  std::vector<std::string> arguments;
};

std::string Now() {
  return UtcText(std::time(nullptr), "%Y-%m-%dT%H:%M:%SZ");
}

std::string KeyOf(const std::string& name) {
  return text::Upper(text::FromUtf8(name));
}

Kind KindOf(const admin::Model& file) {
  if (file.generation == Generation::second) return Kind::document;
  if (text::EndsWithNoCase(file.file, kestor::kExtensaoExportacao)) return Kind::exportSettings;
  return text::EndsWithNoCase(file.file, kestor::kExtensaoFiltro) ? Kind::filter : Kind::firstGeneration;
}

class Export {
 public:
  Export(const admin::Inventory& inventory, const std::set<std::string>& names, Answer& answer)
      : inventory_(inventory), names_(names), answer_(answer), companions_(admin::CompanionsIn(inventory)) {
    answer_.data["pairs"] = nlohmann::ordered_json::array();
    answer_.data["left"] = nlohmann::ordered_json::array();
    manifest_.made = Now();
  }

  void Run(const std::string& output) {
    FindCodes();
    Progress progress("exporting");
    for (std::size_t pair = 0; pair < inventory_.pairs.size(); ++pair) {
      Add(pair);
      progress.Show(pair + 1, inventory_.pairs.size());
    }
    if (models_ == 0) throw LocalFailure("there is no model to be exported");
    writer_.Finish(manifest_, [&](std::string_view archive) { WriteOutput(output, archive); });
    answer_.output += summary_;
  }

  void Leave(const std::string& file, const std::string& reason) {
    const std::string shown = text::Presentable(file);
    answer_.output += "left out: " + (reason.starts_with(shown) ? reason : shown + ": " + reason) + "\n";
    answer_.data["left"].push_back({{"file", file}, {"reason", reason}});
    answer_.incomplete = true;
  }

 private:
  bool IsWanted(const admin::Model& file, std::size_t pair) const {
    return file.pair == pair && (names_.empty() || names_.contains(KeyOf(file.name)));
  }

  // Collects the field codes that the models use. Those of a model that cannot be read stay unknown.
  void FindCodes() {
    admin::Reader reader(inventory_);
    admin::Search(reader, inventory_, {},
                  {.found =
                       [&](const admin::Model& model, const admin::Finding& finding) {
                         if (finding.code) codes_[model.file].insert(*finding.code);
                       },
                   .unread = [](const admin::Model&, const std::string&) {},
                   .unreadCatalogue = [](const admin::Pair&, const std::string&) {}});
  }

  void Add(std::size_t which) {
    // The files of a model belong together, whatever the letter case of their names.
    std::map<std::pair<bool, std::string>, std::vector<const admin::Model*>> models;  // the documents first
    for (const std::vector<admin::Model>* files : {&inventory_.models, &companions_}) {
      for (const admin::Model& file : *files) {
        if (IsWanted(file, which)) models[{file.generation == Generation::first, KeyOf(file.name)}].push_back(&file);
      }
    }

    bundle::Pair pair;
    pair.module = inventory_.pairs[which].module;
    pair.component = inventory_.pairs[which].component;
    AddRecords(inventory_.pairs[which], &pair);
    if (models.empty() && pair.hidden.empty()) return;
    AddCatalogue(inventory_.pairs[which], &pair);
    for (const auto& [key, files] : models)
      AddModel(files, &pair);
    const auto count = [&](Kind kind) {
      return std::count_if(pair.models.begin(), pair.models.end(),
                           [&](const bundle::Model& one) { return one.files.front().kind == kind; });
    };
    const auto documents = count(Kind::document);
    const auto others = count(Kind::firstGeneration);
    models_ += pair.models.size();
    summary_ += pair.module + " " + pair.component + ": " + std::to_string(documents) +
                (documents == 1 ? " document, " : " documents, ") + std::to_string(others) +
                (others == 1 ? " first-generation model\n" : " first-generation models\n");
    answer_.data["pairs"].push_back({{"module", pair.module},
                                     {"component", pair.component},
                                     {"documents", documents},
                                     {"firstGeneration", others}});
    manifest_.pairs.push_back(std::move(pair));
  }

  void AddCatalogue(const admin::Pair& of, bundle::Pair* pair) {
    std::string content;
    const std::string path = admin::CataloguePath(of);
    const std::string trouble = admin::ReadContent(path, &content);
    if (!trouble.empty()) return Leave(text::ToUtf8(kestor::NomeDoArquivo(path)), trouble);
    pair->catalogue = writer_.Add(Kind::catalogue, content);
  }

  // Of files whose names differ only in letter case, adds the first: no store reads the others.
  void AddModel(const std::vector<const admin::Model*>& files, bundle::Pair* pair) {
    bundle::Model model;
    std::map<Kind, const admin::Model*> ofKinds;
    for (const admin::Model* file : files) {
      if (!admin::IsReadByItsName(inventory_, *file)) {
        Leave(text::ToUtf8(file->file), "no program reads it by the name under which it is listed");
      } else if (!ofKinds.emplace(KindOf(*file), file).second) {
        Leave(text::ToUtf8(file->file), "another one's name differs in letter case alone");
      }
    }
    for (const auto& [kind, file] : ofKinds) {
      std::string content;
      std::string trouble = admin::ReadContent(inventory_.folder + file->file, &content);
      if (trouble.empty() && kind == Kind::document && content.size() < sizeof(USHORT))
        trouble = "it is too short for a document";
      if (!trouble.empty()) {
        Leave(text::ToUtf8(file->file), trouble);
        continue;
      }
      if (model.files.empty()) model.name = file->name;
      model.files.push_back(writer_.Add(kind, content));
      const std::set<std::int32_t>& codes = codes_[file->file];
      model.codes.insert(model.codes.end(), codes.begin(), codes.end());
    }
    if (!model.files.empty()) pair->models.push_back(std::move(model));
  }

  void AddRecords(const admin::Pair& of, bundle::Pair* pair) {
    const admin::Records records = admin::RecordsOf(inventory_, of);
    if (!records.trouble.empty()) Leave("the default report and deleted demonstration models", records.trouble);
    if (!names_.empty()) return;
    pair->defaultReport = kestor::AntesDoPonto(records.defaultReport);
    for (const auto& [key, name] : records.hidden)
      pair->hidden.push_back(name);
  }

  const admin::Inventory& inventory_;
  const std::set<std::string>& names_;  // in capitals; empty: all
  Answer& answer_;
  const std::vector<admin::Model> companions_;
  std::map<std::string, std::set<std::int32_t>> codes_;  // by the model's file
  bundle::Manifest manifest_;
  bundle::Writer writer_;
  std::string summary_;
  std::size_t models_ = 0;
};

void RunExport(const ExportOptions& options, Answer& answer) try {
  RequireHome();
  const kestor::ComponenteMarcacao markup;
  std::vector<std::string> selection = options.arguments;
  const std::string output = selection.back();
  if (output.find_first_of("./") == output.npos)
    throw UsageError("a file comes last, with a name such as models.tar, not " + output);
  selection.pop_back();
  const std::string module = selection.empty() ? std::string() : selection[0];
  const std::string component = selection.size() < 2 ? std::string() : selection[1];
  std::set<std::string> names;
  const admin::Inventory inventory = admin::TakeInventory(module, component);
  for (std::size_t i = 2; i < selection.size(); ++i) {
    const std::string key = *names.insert(KeyOf(selection[i])).first;
    if (std::none_of(inventory.models.begin(), inventory.models.end(),
                     [&](const admin::Model& one) { return KeyOf(one.name) == key; })) {
      throw LocalFailure("there is no model " + text::Presentable(selection[i]));
    }
  }
  Export run(inventory, names, answer);
  for (const std::string& reason : inventory.unread)
    run.Leave("a field catalogue", reason);
  for (const admin::Model& file : inventory.unassigned)
    run.Leave(text::ToUtf8(file.file), "no field catalogue of a module fits it");
  run.Run(output);
} catch (const admin::Failure& failure) {
  throw LocalFailure(failure.what());
} catch (const bundle::Failure& failure) {
  throw LocalFailure(failure.what());
}

}  // namespace

void AddExport(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"export", "Write models into one archive", kFooter}, RunExport);
  AddText(command, "FILE", &options->arguments, "[MODULE [COMPONENT [NAME...]]] FILE")->expected(1, -1);
}

}  // namespace kestorctl
