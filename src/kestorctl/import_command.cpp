// The command import: stores the models of a bundle.
#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "admin/admin.h"
#include "bundle/bundle.h"
#include "commands.h"
#include "common/nomes_arquivos.h"
#include "contract/results.h"
#include "explanation.h"
#include "failure.h"
#include "kept_versions.h"
#include "marcacao/componente_marcacao.h"
#include "platform/text/text.h"
#include "progress.h"

namespace kestorctl {

namespace {

using bundle::File;
using bundle::Model;

constexpr const char* kFooter =
    R"(Stores the models of a bundle that "kestorctl export" has made: documents, and first-generation models with their export
settings and filters. An existing model is replaced, unless --no-overwrite is given; the history keeps what was there. A
model is stored with all of its files or not at all, and files that the bundle lacks stay. If the command is killed,
there may be export settings or a filter of a model that is not stored.

The default report becomes that of the bundle; with --no-overwrite only if there is none. The bundle's deleted
demonstration models are hidden here as well, unless a model of that name exists. A first-generation model is left if a
document has its name, because the next migration would drop it.

Before it stores anything, it reads the whole bundle, and refuses one whose files differ from its manifest in name,
length or SHA-256. Then it lists the field codes that the models use and the field catalogue here lacks. The bundle's
catalogue is not imported: "tar xf FILE" takes it out.

--only chooses a module, a component of it, or models of that component; write FILE first. --as stores what belongs to
one component for another one. Without --as every model goes to the module and component from which it came.

With --json: "stored" and "replaced", each with "module", "component", "model" and "kinds"; "left", each also with
"reason"; "hidden" and "defaults"; "lacks", each with "module", "component", "code" and "models"; and "dryRun".

Examples:
  kestorctl import models.tar --dry-run
  kestorctl import models.tar --only CT 01 Vendas --no-overwrite
  kestorctl import ct01.tar --as CT 02

Exit status: 0 everything is stored; 3 something is left; 1 failure, such as a damaged bundle; 2 wrong usage.)";

struct ImportOptions {
  std::string file;
  std::vector<std::string> only;
  std::vector<std::string> as;
  bool keepExisting = false;
  bool dryRun = false;
};

std::string KeyOf(const std::string& name) {
  return text::Upper(text::FromUtf8(name));
}

bool IsDocument(const Model& model) {
  return model.files.front().kind == bundle::Kind::document;
}

// Describes the file as a version, which is what Stores takes.
history::Version VersionOf(const Model& model, const File& file) {
  history::Version version;
  version.model = model.name;
  version.extension = bundle::ExtensionOf(file.kind);
  version.file = model.name + version.extension;
  return version;
}

// The module and component to which the models of a pair go.
class Target {
 public:
  explicit Target(const StoreOptions& store) : store_(store), stores_(store) {
    Look();
    records_ = admin::RecordsOf(inventory_, inventory_.pairs.front());
  }

  // Finds out which files there are.
  void Look() {
    inventory_ = admin::TakeInventory(store_.module, store_.component);
    files_.clear();
    for (const admin::Model& model : inventory_.models)
      files_.emplace(text::Upper(model.file), model.file);
    for (const admin::Model& companion : admin::CompanionsIn(inventory_))
      files_.emplace(text::Upper(companion.file), companion.file);
  }

  const StoreOptions& Where() const { return store_; }
  std::string Named() const { return store_.module + " " + store_.component; }
  const admin::Inventory& Inventory() const { return inventory_; }
  admin::Records& Records() { return records_; }
  Stores& Models() { return stores_; }

  // Returns the file that the version would replace, a path of the desktop platform; empty when there is none.
  std::string FileOf(const history::Version& version) const {
    const auto file = files_.find(text::Upper(NameOf(version)));
    return file == files_.end() ? std::string() : inventory_.folder + file->second;
  }

  bool Has(const Model& model) const {
    return std::any_of(model.files.begin(), model.files.end(),
                       [&](const File& file) { return !FileOf(VersionOf(model, file)).empty(); });
  }
  bool HasDocument(const std::string& name) const { return Has({name, {File()}, {}}); }

  // Remembers that the model is there now.
  void Note(const Model& model) {
    for (const File& file : model.files) {
      const std::string name = NameOf(VersionOf(model, file));
      files_.emplace(text::Upper(name), name);
    }
  }

  // Counts models that wait to be migrated as migrated: opening the store of documents would migrate them.
  void ForetellMigration() {
    for (const admin::Model& model : inventory_.models) {
      if (model.generation == admin::Generation::first && !HasDocument(model.name)) Note({model.name, {File()}, {}});
    }
  }

 private:
  // Returns the name of the version's file, in code page 1252.
  std::string NameOf(const history::Version& version) const {
    const std::string module = text::FromUtf8(store_.module);
    const std::string component = text::FromUtf8(store_.component);
    const std::string codes = KindOf(version) == Kind::document
                                  ? module + component
                                  : kestor::ModuloRel(module) + kestor::ComponenteRel(component);
    return codes + text::FromUtf8(version.model + version.extension);
  }

  const StoreOptions store_;
  admin::Inventory inventory_;
  std::map<std::string, std::string> files_;  // by name in capitals
  admin::Records records_;
  Stores stores_;
};

class Import {
 public:
  Import(const ImportOptions& options, bundle::Reader& bundle, Answer& answer)
      : options_(options), bundle_(bundle), answer_(answer) {
    answer_.data["dryRun"] = options.dryRun;
    for (const char* member : {"lacks", "hidden", "stored", "replaced", "defaults", "left"})
      answer_.data[member] = nlohmann::ordered_json::array();
    for (std::size_t i = 2; i < options.only.size(); ++i)
      names_.insert(KeyOf(options.only[i]));
  }

  void Run() {
    Choose();
    Visit("reading", [](const bundle::Pair&, const Model&, std::vector<std::string>&) {});
    for (const auto& [pair, target] : targets_)
      TellUnknownCodes(*pair, *target);
    if (!options_.dryRun) TellSoFar(answer_);
    for (const auto& [pair, target] : targets_)
      Begin(*pair, *target);
    if (options_.dryRun) {
      for (const auto& [pair, target] : targets_) {
        for (const Model& model : pair->models)
          if (IsWanted(model)) Store(*target, model, nullptr);
      }
    } else {
      Visit("importing", [&](const bundle::Pair& pair, const Model& model, std::vector<std::string>& contents) {
        Store(*targets_.at(&pair), model, &contents);
      });
    }
    for (const auto& [pair, target] : targets_)
      SetDefault(*pair, *target);
    if (storesFirstGeneration_ && !options_.dryRun) WarnOfMigration(answer_);
  }

 private:
  using Take = std::function<void(const bundle::Pair& pair, const Model& model, std::vector<std::string>& contents)>;

  bool IsWanted(const Model& model) const { return names_.empty() || names_.contains(KeyOf(model.name)); }

  void Choose() {
    const auto isOther = [&](std::size_t place, const std::string& code) {
      return options_.only.size() > place && KeyOf(options_.only[place]) != KeyOf(code);
    };
    std::set<std::string> found;
    for (const bundle::Pair& pair : bundle_.Contents().pairs) {
      if (isOther(0, pair.module) || isOther(1, pair.component)) continue;
      for (const Model& model : pair.models) {
        if (!IsWanted(model)) continue;
        found.insert(KeyOf(model.name));
        ++chosen_;
      }
      const bool isElsewhere = !options_.as.empty();
      targets_.emplace(&pair, std::make_unique<Target>(StoreOptions{isElsewhere ? options_.as[0] : pair.module,
                                                                    isElsewhere ? options_.as[1] : pair.component}));
    }
    if (chosen_ == 0) throw LocalFailure("the bundle has none of these models");
    for (std::size_t i = 2; i < options_.only.size(); ++i) {
      if (!found.contains(KeyOf(options_.only[i])))
        throw LocalFailure("the bundle has no model " + text::Presentable(options_.only[i]));
    }
    if (!options_.as.empty() && targets_.size() > 1)
      throw UsageError("--as needs a bundle of one component, or --only with one");
  }

  void Visit(const char* what, const Take& take) {
    Progress progress(what);
    std::size_t done = 0;
    bundle_.Visit([&](const bundle::Pair& pair, const Model* model, std::vector<std::string>& contents) {
      if (model == nullptr || !targets_.contains(&pair) || !IsWanted(*model)) return;
      take(pair, *model, contents);
      progress.Show(++done, chosen_);
    });
  }

  void TellUnknownCodes(const bundle::Pair& pair, const Target& target) {
    admin::Reader reader(target.Inventory());
    const admin::Catalogue& catalogue = reader.CatalogueOf(0);
    std::map<std::int32_t, std::set<std::string>> unknown;
    for (const Model& model : pair.models) {
      for (const std::int32_t code : model.codes)
        if (IsWanted(model) && catalogue.Find(code) == nullptr) unknown[code].insert(model.name);
    }
    if (unknown.empty()) return;
    std::string list;
    for (const auto& [code, models] : unknown) {
      std::string names;
      for (const std::string& name : models)
        names += (names.empty() ? "" : ", ") + text::Presentable(name);
      list += (list.empty() ? "" : ", ") + std::to_string(code) + " (" + names + ")";
      answer_.data["lacks"].push_back({{"module", target.Where().module},
                                       {"component", target.Where().component},
                                       {"code", code},
                                       {"models", models}});
    }
    answer_.output += "lacks: " + target.Named() + ": " +
                      (catalogue.trouble.empty() ? "the field catalogue has no " + list : catalogue.trouble) + "\n";
  }

  // ---- Output ------------------------------------------------------------------------------------------------------

  nlohmann::ordered_json Tell(const char* what, const Target& target, const std::string& model,
                              const std::string& more) {
    answer_.output += std::string(options_.dryRun ? "would be " : "") + what + ": " + target.Named() + " " +
                      text::Presentable(model) + more + "\n";
    return {{"module", target.Where().module}, {"component", target.Where().component}, {"model", model}};
  }

  static std::string KindsOf(const Model& model) {
    std::string kinds;
    for (const File& file : model.files)
      kinds += (kinds.empty() ? "" : ", ") + WordOf(KindOf(VersionOf(model, file)));
    return kinds;
  }

  void TellStored(Target& target, const Model& model, bool replaces) {
    const char* const what = replaces ? "replaced" : "stored";
    const std::string kinds = KindsOf(model);
    const bool isHidden = IsDocument(model) && target.Records().hidden.contains(KeyOf(model.name));
    nlohmann::ordered_json data =
        Tell(what, target, model.name, " (" + kinds + ")" + (isHidden ? ", which stays hidden" : ""));
    data["kinds"] = kinds;
    answer_.data[what].push_back(std::move(data));
  }

  void Leave(const Target& target, const std::string& model, const std::string& kinds, const std::string& reason) {
    nlohmann::ordered_json data = Tell("left", target, model, " (" + kinds + "): " + reason);
    data["kinds"] = kinds;
    data["reason"] = reason;
    answer_.data["left"].push_back(std::move(data));
    answer_.incomplete = true;
  }

  // Takes the result of a call out of the answer, so that it is not the command's, and returns the reason.
  std::string TakeReason() {
    std::string reason = answer_.detail.empty() ? kestor::ResultCode(answer_.result) : answer_.detail;
    answer_.result = S_OK;
    answer_.detail.clear();
    return reason;
  }

  // ---- Storing -----------------------------------------------------------------------------------------------------

  // Opens the store of documents, which migrates waiting models, before looking at what is there. When it is not
  // needed, it stays closed, so that first-generation models stay as they are.
  void Begin(const bundle::Pair& pair, Target& target) {
    const bool needsDocuments = std::any_of(pair.models.begin(), pair.models.end(),
                                            [&](const Model& model) { return IsWanted(model) && IsDocument(model); }) ||
                                (names_.empty() && (!pair.hidden.empty() || !pair.defaultReport.empty()));
    if (needsDocuments && options_.dryRun) target.ForetellMigration();
    if (needsDocuments && !options_.dryRun) {
      if (target.Models().Documents(answer_) == nullptr) TakeReason();  // each document will report it
      target.Look();
    }
    if (names_.empty()) Hide(pair, target);
  }

  // The server remembers a name when a model of that name is deleted, so one is made and deleted.
  void Hide(const bundle::Pair& pair, Target& target) {
    constexpr const char* kWhat = "deleted demonstration model";
    for (const std::string& name : pair.hidden) {
      if (target.Records().hidden.contains(KeyOf(name))) continue;
      if (target.HasDocument(name)) {
        Leave(target, name, kWhat, "there is a model of that name");
        continue;
      }
      if (!options_.dryRun && !MakeAndDelete(target, name)) {
        Leave(target, name, kWhat, TakeReason());
        continue;
      }
      target.Records().hidden.emplace(KeyOf(name), name);
      answer_.data["hidden"].push_back(Tell("hidden", target, name, ""));
    }
  }

  bool MakeAndDelete(Target& target, const std::string& name) {
    ReportStore* const store = target.Models().Documents(answer_);
    if (store == nullptr) return false;
    const OwnedBstr text = ToBstr(name);
    Conclude((*store)->Grava(text.get(), 0, KESTOR_NaoSobreescrever, 0, nullptr), answer_);
    if (answer_.result != S_OK) return false;
    char deleted = 0;
    Conclude((*store)->ExcluiRelatorio(text.get(), 1, &deleted), answer_);
    return answer_.result == S_OK && deleted != 0;
  }

  // `contents`: null in a dry run.
  void Store(Target& target, const Model& model, const std::vector<std::string>* contents) {
    const bool replaces = target.Has(model);
    const bool isFirst = model.files.front().kind == bundle::Kind::firstGeneration;
    if (options_.keepExisting && replaces) return Leave(target, model.name, KindsOf(model), "there is one already");
    if (isFirst && target.HasDocument(model.name)) {
      return Leave(target, model.name, KindsOf(model),
                   "there is a document of that name, for which the next migration would drop it");
    }
    if (contents != nullptr) {
      if (const std::string reason = StoreAll(target, model, *contents); !reason.empty())
        return Leave(target, model.name, KindsOf(model), reason);
    }
    TellStored(target, model, replaces);
    target.Note(model);
    storesFirstGeneration_ = storesFirstGeneration_ || isFirst;
  }

  // Stores all files or none: after a failure, puts back what was there before. Stores the model itself last, so that
  // it never exists without the files that belong to it. Returns why nothing is stored; empty when everything is.
  std::string StoreAll(Target& target, const Model& model, const std::vector<std::string>& contents) try {
    std::vector<std::optional<std::string>> before(model.files.size());
    for (std::size_t i = 0; i < model.files.size(); ++i) {
      const history::Version version = VersionOf(model, model.files[i]);
      RequireStorable(version, contents[i]);
      const std::string path = target.FileOf(version);
      if (path.empty() || model.files.size() == 1) continue;
      if (std::string trouble = admin::ReadContent(path, &before[i].emplace()); !trouble.empty()) return trouble;
      history::Version there = version;
      there.file = text::ToUtf8(path);
      RequireStorable(there, *before[i]);
    }
    for (std::size_t i = model.files.size(); i-- > 0;) {
      const bool mustBeNew = options_.keepExisting || (model.files.size() > 1 && !before[i]);
      if (target.Models().Store(VersionOf(model, model.files[i]), contents[i], mustBeNew, answer_)) continue;
      std::string reason = TakeReason();
      for (++i; i < model.files.size(); ++i) {
        const history::Version version = VersionOf(model, model.files[i]);
        const bool isBack = before[i] ? target.Models().Store(version, *before[i], false, answer_)
                                      : target.Models().DeleteFile(version, answer_);
        if (!isBack) reason += "; " + version.file.string() + " could not be taken back: " + TakeReason();
      }
      return reason;
    }
    return {};
  } catch (const LocalFailure& failure) {
    return failure.what();
  }

  void SetDefault(const bundle::Pair& pair, Target& target) {
    constexpr const char* kWhat = "default report";
    const std::string& name = pair.defaultReport;
    if (!names_.empty() || name.empty() || KeyOf(target.Records().defaultReport) == KeyOf(name)) return;
    if (options_.keepExisting && !target.Records().defaultReport.empty())
      return Leave(target, name, kWhat, "there is one already");
    if (!target.HasDocument(name)) return Leave(target, name, kWhat, "there is no such document");
    if (!options_.dryRun) {
      ReportStore* const store = target.Models().Documents(answer_);
      if (store != nullptr) Conclude((*store)->SetRelatorioPadrao(ToBstr(name).get()), answer_);
      if (store == nullptr || answer_.result != S_OK) return Leave(target, name, kWhat, TakeReason());
    }
    answer_.data["defaults"].push_back(Tell("default", target, name, ""));
  }

  const ImportOptions& options_;
  bundle::Reader& bundle_;
  Answer& answer_;
  std::set<std::string> names_;  // in capitals; empty: all
  std::map<const bundle::Pair*, std::unique_ptr<Target>> targets_;
  std::size_t chosen_ = 0;
  bool storesFirstGeneration_ = false;
};

void RunImport(const ImportOptions& options, Answer& answer) try {
  RequireHome();
  const kestor::ComponenteMarcacao markup;
  bundle::Reader bundle(options.file);
  Import(options, bundle, answer).Run();
} catch (const admin::Failure& failure) {
  throw LocalFailure(failure.what());
} catch (const bundle::Failure& failure) {
  throw LocalFailure(failure.what());
}

}  // namespace

void AddImport(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"import", "Store the models of an archive", kFooter}, RunImport);
  AddText(command, "FILE", &options->file, "The bundle");
  command->add_option("--only", options->only, "What to import; takes all words that follow")
      ->type_name("MODULE [COMPONENT [NAME...]]")
      ->expected(1, -1)
      ->check(CheckUtf8);
  command->add_option("--as", options->as, "The module and component that get the models")
      ->type_name("MODULE COMPONENT")
      ->expected(2)
      ->check(CheckUtf8);
  command->add_flag("--no-overwrite", options->keepExisting, "Replace no model and no default report");
  command->add_flag("--dry-run", options->dryRun, "Report what would be done, and change nothing");
}

}  // namespace kestorctl
