// The command status: what the home says, and whether its server runs.
#include <filesystem>

#include "commands.h"
#include "contract/interfaces.h"
#include "explanation.h"
#include "failure.h"
#include "folder_plan.h"
#include "platform/home/home.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "server_registration.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

using kestor::CCaminhosInstalacao;
using Json = nlohmann::ordered_json;

constexpr const char* kFooter =
    R"(Tells the home, the folders that its registry names and where they are on this system, the registered classes with their
executable, and whether the server runs: its process id and the number of live objects. It starts no server. One that is
in the middle of a long call, such as a migration, is busy and does not tell them.

With --json: "home" {"folder", "exists"}, "reports" (null when none is entered) and "modules" {"path", "folder",
"exists"}, "classes" {"name", "clsid", "executable", "exists"}, "server" {"running", "pid", "objects", or "busy"}.

Exit status: 0 told; 1 there is no home, or it cannot be read; 2 wrong usage.)";

struct NoOptions {};

std::string TellPlace(const std::string& desktopPath, Json* data) {
  const Place place = PlaceOf(desktopPath);
  const std::string path = text::ToUtf8(place.desktopPath);
  data->update({{"path", path}, {"folder", place.folder.string()}, {"exists", place.exists}});
  if (place.folder.empty()) return path + " leads nowhere\n";
  return path + " is " + place.folder.string() + (place.exists ? "\n" : " (does not exist)\n");
}

void TellHome(Answer& answer) {
  const fs::path& folder = platform::Home::Current().Folder();
  answer.data["home"] = {{"folder", folder.string()}, {"exists", fs::is_directory(folder)}};
  RequireHome();
  answer.output += "home     " + folder.string() + "\n";
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

void TellClasses(Answer& answer) {
  answer.data["classes"] = Json::array();
  for (const ServerClass& row : ServerClasses()) {
    const std::string executable = RegisteredExecutable(row.clsid);
    if (executable.empty()) continue;
    const bool exists = fs::is_regular_file(executable);
    answer.output += std::string("class    ") + row.name + ": " + executable + (exists ? "\n" : " (does not exist)\n");
    answer.data["classes"].push_back(
        {{"name", row.name}, {"clsid", GuidText(row.clsid)}, {"executable", executable}, {"exists", exists}});
  }
  if (answer.data["classes"].empty()) answer.output += "class    none registered\n";
}

void TellServer(Answer& answer) {
  com::ServerStatus status{};
  const HRESULT result = com::AskServerStatus(CLSID_ZNPL_Relatorio2, &status);
  if (result == HRESULT_FROM_WIN32(ERROR_TIMEOUT)) {
    answer.output += "server   running, busy\n";
    answer.data["server"] = {{"running", true}, {"busy", true}};
  } else if (FAILED(result)) {
    answer.result = result;
    answer.detail = Explain(result, CLSID_ZNPL_Relatorio2, {});
  } else if (result != S_OK) {
    answer.output += "server   not running\n";
    answer.data["server"] = {{"running", false}};
  } else {
    answer.output += "server   running, process " + std::to_string(status.processId) + ", live objects " +
                     std::to_string(status.liveObjects) + "\n";
    answer.data["server"] = {{"running", true}, {"pid", status.processId}, {"objects", status.liveObjects}};
  }
}

void TellStatus(const NoOptions&, Answer& answer) {
  TellHome(answer);
  registry::Check();
  TellReports(answer);
  TellModules(answer);
  TellClasses(answer);
  TellServer(answer);
}

}  // namespace

void AddStatus(CLI::App& program, Command* chosen) {
  AddCommand(&program, chosen, {"status", "Tell the home, its folders and whether the server runs", kFooter},
             TellStatus);
}

}  // namespace kestorctl
