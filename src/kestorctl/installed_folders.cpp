#include "installed_folders.h"

#include "common/caminhos_instalacao.h"
#include "folder_plan.h"
#include "mappings.h"
#include "platform/text/text.h"
#include "volume.h"

namespace kestorctl {

namespace {

using kestor::CCaminhosInstalacao;
using Json = nlohmann::ordered_json;

std::string TellPlace(const std::string& desktopPath, Json* data) {
  const Place place = PlaceOf(desktopPath);
  const std::string path = text::ToUtf8(place.desktopPath);
  data->update({{"path", path}, {"folder", place.folder.string()}, {"exists", place.exists}});
  if (const std::string missing = MissingMapping(desktopPath); !missing.empty()) {
    (*data)["missing"] = missing;
    return path + " leads nowhere: the home lacks " + missing + " (kestorctl setup --drive '" + missing + "=DIR')\n";
  }
  if (place.folder.empty()) return path + " leads nowhere\n";
  return path + " is " + place.folder.string() + (place.exists ? "\n" : " (does not exist)\n");
}

void TellReports(Answer& answer) {
  std::string path;
  if (CCaminhosInstalacao::BuscaCaminhoRelatorios(path) != 0) {
    answer.output += "reports  not entered\n";
    answer.data["reports"] = nullptr;
    return;
  }
  Json data = Json::object();
  answer.output += "reports  " + TellPlace(path, &data);
  data["hazards"] = SharingHazards(PlaceOf(path).folder);
  for (const auto& hazard : data["hazards"])
    answer.output += "warning  " + hazard.get<std::string>() + "\n";
  answer.data["reports"] = data;
}

void TellModules(Answer& answer) {
  answer.data["modules"] = Json::array();
  for (const kestor::ModuloFamilia& module : kestor::ModulosDaFamilia()) {
    const std::string code(module.codigo);
    const std::string application(module.subchave);
    std::string path;
    if (CCaminhosInstalacao::BuscaCaminhoModulo(code, path) != 0) continue;
    Json data = {{"code", code}, {"application", application}};
    answer.output.append("module   ").append(code).append(" ").append(application).append(": ");
    answer.output += TellPlace(path, &data);
    answer.data["modules"].push_back(data);
  }
}

}  // namespace

void TellInstalledFolders(Answer& answer) {
  TellReports(answer);
  TellModules(answer);
}

}  // namespace kestorctl
