// Finds the models by the names of their files.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <set>
#include <system_error>

#include "admin/admin.h"
#include "common/arquivos_modelo.h"
#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "platform/files/files.h"
#include "platform/host/system.h"
#include "platform/text/text.h"

namespace admin {

namespace {

using kestor::CCaminhosInstalacao;

constexpr Generation kGenerations[] = {Generation::first, Generation::second};

// The codes of a pair as a store of the generation writes them; code page 1252.
std::string CodesOf(const Pair& pair, Generation generation) {
  const std::string module = text::FromUtf8(pair.module);
  const std::string component = text::FromUtf8(pair.component);
  return generation == Generation::second ? module + component
                                          : kestor::ModuloRel(module) + kestor::ComponenteRel(component);
}

Pair PairOf(const std::string& module, const std::string& component) {
  Pair pair;
  pair.module = module;
  pair.component = component;
  pair.codes = text::Upper(CodesOf(pair, Generation::first));
  return pair;
}

std::vector<std::string> FilesOf(const std::string& prefix, Generation generation) {
  return kestor::ArquivosDaMascara(generation == Generation::first ? kestor::MascaraRel(prefix)
                                                                   : kestor::MascaraRelatorio(prefix));
}

// Throws Failure if the names in the folder cannot be read. A search cannot tell that from an empty folder.
void RequireReadable(const std::string& folder) {
  std::string host;
  int error = ENOENT;
  const bool leadsSomewhere = !folder.empty() && files::HostPath(folder.c_str(), &host) == 0;
  if (leadsSomewhere) {
    platform::Descriptor opened;
    error = host::OpenFolder(AT_FDCWD, host, &opened);
  }
  if (error == 0) return;
  throw Failure((leadsSomewhere ? host : text::ToUtf8(folder)) +
                " cannot be read: " + std::generic_category().message(error));
}

// Adds the components whose catalogues are in the module's folder. Throws Failure.
void AddPairs(const std::string& module, std::vector<Pair>* pairs) {
  std::string path;
  if (CCaminhosInstalacao::BuscaCaminhoModulo(module, path) != 0) return;
  RequireReadable(path);
  const std::size_t start = 1 + module.size();
  std::set<std::string> components;  // files that differ only in letter case are one catalogue
  for (const std::string& name : FilesOf(path, Generation::first)) {
    const std::size_t end = name.size() - kestor::kExtensaoRel.size();
    if (end <= start) continue;
    const std::string component = name.substr(start, end - start);
    if (!text::EqualNoCase(name, kestor::CaminhoCatalogo({}, module, component))) continue;
    if (!components.insert(text::Upper(component)).second) continue;
    pairs->push_back(PairOf(module, text::ToUtf8(component)));
  }
}

void FindPairs(const std::string& module, Inventory* inventory) {
  for (const kestor::ModuloFamilia& one : kestor::ModulosDaFamilia()) {
    const std::string code(one.codigo);
    if (!module.empty() && !text::EqualNoCase(module, code)) continue;
    try {
      AddPairs(code, &inventory->pairs);
    } catch (const Failure& failure) {
      inventory->unread.push_back("the folder of module " + code + ": " + failure.what());
    }
  }
  for (Pair& pair : inventory->pairs) {
    pair.ambiguous = std::count_if(inventory->pairs.begin(), inventory->pairs.end(),
                                   [&](const Pair& other) { return other.codes == pair.codes; }) > 1;
  }
}

// Assigns files to pairs. If several pairs have the same codes, each of them gets the file.
class Assignment {
 public:
  explicit Assignment(Inventory* inventory) : inventory_(inventory), models_(inventory->pairs.size()) {
    std::vector<std::size_t> order(models_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    for (const Generation generation : kGenerations) {
      std::vector<Candidate>& candidates = Candidates(generation);
      for (const std::size_t pair : order)
        candidates.push_back({pair, text::Upper(CodesOf(inventory->pairs[pair], generation))});
      std::stable_sort(candidates.begin(), candidates.end(),
                       [](const Candidate& a, const Candidate& b) { return a.codes.size() > b.codes.size(); });
    }
  }

  // Returns false if the file belongs to no pair.
  bool Give(const std::string& file, Generation generation) {
    const std::string name = text::Upper(file);
    const std::vector<Candidate>& candidates = Candidates(generation);
    const auto owner = std::find_if(candidates.begin(), candidates.end(),
                                    [&](const Candidate& one) { return name.starts_with(one.codes); });
    if (owner == candidates.end()) return false;
    for (auto one = owner; one != candidates.end() && one->codes.size() == owner->codes.size(); ++one) {
      if (one->codes != owner->codes) continue;
      Pair& pair = inventory_->pairs[one->pair];
      ++(generation == Generation::first ? pair.firstCount : pair.secondCount);
      const std::string_view model = kestor::NomeDoModelo(file, one->codes.size());
      models_[one->pair].push_back({generation, one->pair, text::ToUtf8(model), file});
    }
    return true;
  }

  // Call once, after all files are given.
  void Finish() {
    for (std::vector<Model>& models : models_)
      std::move(models.begin(), models.end(), std::back_inserter(inventory_->models));
  }

 private:
  struct Candidate {
    std::size_t pair;
    std::string codes;
  };

  std::vector<Candidate>& Candidates(Generation generation) {
    return candidates_[generation == Generation::first ? 0 : 1];
  }

  Inventory* const inventory_;
  std::vector<Candidate> candidates_[std::size(kGenerations)];  // longest codes first
  std::vector<std::vector<Model>> models_;                      // by pair
};

}  // namespace

Inventory TakeInventory(const std::string& module, const std::string& component) {
  Inventory inventory;
  inventory.module = module;
  inventory.component = component;
  std::string path;
  const bool namesModule = !module.empty();
  if (CCaminhosInstalacao::BuscaCaminhoRelatorios(inventory.folder) != 0 ||
      (namesModule && CCaminhosInstalacao::BuscaCaminhoModulo(text::FromUtf8(module), path) != 0)) {
    throw Failure(CCaminhosInstalacao::PorQueFalta(text::FromUtf8(module)));
  }
  RequireReadable(inventory.folder);
  const files::OneReading oneReading;
  std::string inFront = text::FromUtf8(module);  // prefix of the names to search for
  if (component.empty()) {
    FindPairs(inFront, &inventory);
  } else {
    inventory.pairs.push_back(PairOf(module, component));
  }
  Assignment assignment(&inventory);
  for (const Generation generation : kGenerations) {
    if (!component.empty()) inFront = CodesOf(inventory.pairs.front(), generation);
    for (const std::string& file : FilesOf(inventory.folder + inFront, generation)) {
      if (!assignment.Give(file, generation)) inventory.unassigned.push_back({generation, 0, {}, file});
    }
  }
  assignment.Finish();
  return inventory;
}

bool IsReadByItsName(const Inventory& inventory, const Model& model) {
  const std::string prefix = CodesOf(inventory.pairs[model.pair], model.generation);
  const std::string name = text::FromUtf8(model.name);
  const bool isExport = text::EndsWithNoCase(model.file, kestor::kExtensaoExportacao);
  const bool isFilter = text::EndsWithNoCase(model.file, kestor::kExtensaoFiltro);
  const std::string read = model.generation == Generation::second ? kestor::CaminhoRelatorioLido(prefix, name)
                           : isExport                             ? kestor::CaminhoExportacao(prefix, name)
                           : isFilter                             ? kestor::CaminhoFiltro(prefix, name)
                                                                  : kestor::CaminhoRelLido(prefix, name);
  return text::EqualNoCase(read, model.file);
}

std::vector<Model> CompanionsIn(const Inventory& inventory) {
  Inventory companions;
  companions.pairs = inventory.pairs;
  Assignment assignment(&companions);
  const std::string prefix = inventory.folder + (inventory.pairs.size() == 1 ? inventory.pairs.front().codes : "");
  for (const std::string& mask : {kestor::MascaraExportacao(prefix), kestor::MascaraFiltro(prefix)}) {
    for (const std::string& file : kestor::ArquivosDaMascara(mask))
      assignment.Give(file, Generation::first);
  }
  assignment.Finish();
  return companions.models;
}

}  // namespace admin
