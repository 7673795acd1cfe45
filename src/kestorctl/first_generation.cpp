#include "first_generation.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "failure.h"
#include "folder_plan.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

using kestor::CCaminhosInstalacao;

// The names in a folder that end in the extension of a first-generation model, code page 1252; none of a folder that is
// missing.
std::vector<std::string> ModelFiles(const std::filesystem::path& folder, std::error_code* failure) {
  std::vector<std::string> names;
  for (auto entry = std::filesystem::directory_iterator(folder, *failure);
       !*failure && entry != std::filesystem::directory_iterator(); entry.increment(*failure)) {
    std::string ansi;
    const bool known = text::FromUtf8Exactly(entry->path().filename().string(), &ansi);
    if (known && text::EndsWithNoCase(ansi, kestor::kExtensaoRel)) names.push_back(ansi);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool StartsWithNoCase(std::string_view name, std::string_view start) {
  return name.size() >= start.size() && text::EqualNoCase(name.substr(0, start.size()), start);
}

// The components of a module, by the catalogues in its folder.
std::vector<CodePair> PairsOf(const kestor::ModuloFamilia& module) {
  std::vector<CodePair> pairs;
  std::string path;
  const std::string code(module.codigo);
  if (CCaminhosInstalacao::BuscaCaminhoModulo(code, path) != 0) return pairs;
  std::error_code failure;
  for (const std::string& name : ModelFiles(PlaceOf(path).folder, &failure)) {
    const std::string start = "X" + code;
    const std::size_t end = name.size() - kestor::kExtensaoRel.size();
    if (!StartsWithNoCase(name, start) || end <= start.size()) continue;
    const std::string component = text::ToUtf8(name.substr(start.size(), end - start.size()));
    pairs.push_back({code, component, 0});
  }
  return pairs;
}

// What the names of a pair's first-generation files begin with.
std::string CodesInNames(const CodePair& pair) {
  return kestor::ModuloRel(pair.module) + kestor::ComponenteRel(text::FromUtf8(pair.component));
}

}  // namespace

FirstGeneration FindFirstGeneration() {
  std::string path;
  if (CCaminhosInstalacao::BuscaCaminhoRelatorios(path) != 0) {
    throw LocalFailure(CCaminhosInstalacao::PorQueFalta({}));
  }
  FirstGeneration found;
  std::map<std::string, int> uses;
  for (const kestor::ModuloFamilia& module : kestor::ModulosDaFamilia()) {
    for (CodePair& pair : PairsOf(module)) {
      ++uses[text::Upper(CodesInNames(pair))];
      found.pairs.push_back(std::move(pair));
    }
  }
  std::stable_sort(found.pairs.begin(), found.pairs.end(), [](const CodePair& a, const CodePair& b) {
    return text::FromUtf8(a.component).size() > text::FromUtf8(b.component).size();
  });

  const std::filesystem::path reports = PlaceOf(path).folder;
  std::error_code failure;
  const std::vector<std::string> files = ModelFiles(reports, &failure);
  if (failure) throw LocalFailure(reports.string() + " cannot be read: " + failure.message());
  for (const std::string& file : files) {
    const auto fits = [&](const CodePair& pair) { return StartsWithNoCase(file, CodesInNames(pair)); };
    const auto pair = std::find_if(found.pairs.begin(), found.pairs.end(), fits);
    if (pair == found.pairs.end()) {
      found.unassigned.push_back(text::ToUtf8(file));
    } else {
      ++pair->models;
    }
  }
  const auto isAmbiguous = [&](const CodePair& pair) { return uses[text::Upper(CodesInNames(pair))] > 1; };
  std::copy_if(found.pairs.begin(), found.pairs.end(), std::back_inserter(found.ambiguous), isAmbiguous);
  std::erase_if(found.pairs, isAmbiguous);
  return found;
}

}  // namespace kestorctl
