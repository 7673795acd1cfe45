#include "first_generation.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "failure.h"
#include "folder_plan.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

using kestor::CCaminhosInstalacao;

// The names in a folder that end in the extension of a first-generation model; code page 1252. Throws LocalFailure.
std::vector<std::string> ModelFiles(const std::string& desktopPath) {
  const Place place = PlaceOf(desktopPath);
  std::vector<std::string> names;
  std::error_code failure;
  for (auto entry = std::filesystem::directory_iterator(place.folder, failure);
       !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
    std::string ansi;
    const bool known = text::FromUtf8Exactly(entry->path().filename().string(), &ansi);
    if (known && text::EndsWithNoCase(ansi, kestor::kExtensaoRel)) names.push_back(ansi);
  }
  if (failure) {
    const std::string shown = place.folder.empty() ? text::ToUtf8(desktopPath) : place.folder.string();
    throw LocalFailure(shown + " cannot be read: " + failure.message());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The components of a module, by the catalogues in its folder. Throws LocalFailure.
std::vector<CodePair> PairsOf(const std::string& module) {
  std::vector<CodePair> pairs;
  std::string path;
  if (CCaminhosInstalacao::BuscaCaminhoModulo(module, path) != 0) return pairs;
  const std::size_t start = 1 + module.size();
  std::set<std::string> components;  // two files that differ in letter case alone are one catalogue
  for (const std::string& name : ModelFiles(path)) {
    const std::size_t end = name.size() - kestor::kExtensaoRel.size();
    if (end <= start) continue;
    const std::string component = name.substr(start, end - start);
    if (!text::EqualNoCase(name, kestor::CaminhoCatalogo({}, module, component))) continue;
    if (!components.insert(text::Upper(component)).second) continue;
    const std::string codes = text::Upper(kestor::ModuloRel(module) + kestor::ComponenteRel(component));
    pairs.push_back({module, text::ToUtf8(component), codes});
  }
  return pairs;
}

std::vector<CodePair> AllPairs(std::vector<std::string>* unread) {
  std::vector<CodePair> all;
  for (const kestor::ModuloFamilia& module : kestor::ModulosDaFamilia()) {
    const std::string code(module.codigo);
    try {
      const std::vector<CodePair> pairs = PairsOf(code);
      all.insert(all.end(), pairs.begin(), pairs.end());
    } catch (const LocalFailure& failure) {
      unread->push_back("the folder of module " + code + ": " + failure.what());
    }
  }
  const auto length = [](const CodePair& pair) { return text::FromUtf8(pair.component).size(); };
  std::stable_sort(all.begin(), all.end(), [&](const CodePair& a, const CodePair& b) { return length(a) > length(b); });
  for (CodePair& pair : all) {
    pair.ambiguous =
        std::count_if(all.begin(), all.end(), [&](const CodePair& other) { return other.codes == pair.codes; }) > 1;
  }
  return all;
}

}  // namespace

FirstGeneration FindFirstGeneration() {
  std::string reports;
  if (CCaminhosInstalacao::BuscaCaminhoRelatorios(reports) != 0) {
    throw LocalFailure(CCaminhosInstalacao::PorQueFalta({}));
  }
  FirstGeneration found;
  found.pairs = AllPairs(&found.unread);
  for (const std::string& file : ModelFiles(reports)) {
    const std::string name = text::Upper(file);
    const auto owner = std::find_if(found.pairs.begin(), found.pairs.end(),
                                    [&](const CodePair& pair) { return name.starts_with(pair.codes); });
    if (owner == found.pairs.end()) {
      found.unassigned.push_back(text::ToUtf8(file));
      continue;
    }
    for (CodePair& pair : found.pairs) {
      if (pair.codes == owner->codes) ++pair.models;
    }
  }
  return found;
}

}  // namespace kestorctl
