#include "explanation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>

#include "common/nomes_arquivos.h"
#include "contract/results.h"
#include "failure.h"
#include "folder_plan.h"
#include "host_files.h"
#include "platform/files/files.h"
#include "platform/home/home.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "server_registration.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;

using kestor::CCaminhosInstalacao;
using kestor::ModuloFamilia;

std::string ExplainMissingFolder(const std::string& module) {
  std::string folder;
  if (CCaminhosInstalacao::BuscaCaminhoRelatorios(folder) != 0) {
    return "no reports folder is entered: kestorctl setup --reports DIR";
  }
  const ModuloFamilia* application = FindModule(module);
  if (application == nullptr) return "no module has the code " + module + "; the codes are " + ModuleCodes();
  if (CCaminhosInstalacao::BuscaCaminhoModulo(module, folder) == 0) return {};
  const std::string code(application->codigo);
  return "the application " + std::string(application->subchave) + " of module " + code +
         " has no folder: kestorctl setup --reports DIR --module " + code + "=DIR";
}

std::string ExplainFailedStart(REFCLSID clsid) {
  const std::string executable = RegisteredExecutable(clsid);
  if (fs::exists(executable)) return "the executable is " + executable;
  return "the registered executable " + executable + " does not exist: run kestorctl setup again";
}

std::string ExplainDeniedSockets() {
  std::string reason;
  return platform::Home::Current().PrepareSocketFolder(&reason) ? std::string() : reason;
}

// The server knows a name only in code page 1252.
std::string ExplainName(const std::string& name) {
  std::string ansi;
  return text::FromUtf8Exactly(name, &ansi) ? std::string() : "code page 1252 lacks a character of " + name;
}

// The codes as file names have them.
struct Codes {
  std::string module;
  std::string component;
};

Codes CodesOf(Generation generation, const std::string& module, const std::string& component) {
  Codes whole = {text::FromUtf8(module), text::FromUtf8(component)};
  if (generation == Generation::second) return whole;
  return {kestor::ModuloRel(whole.module), kestor::ComponenteRel(whole.component)};
}

Place Reports() {
  std::string folder;
  return CCaminhosInstalacao::BuscaCaminhoRelatorios(folder) == 0 ? PlaceOf(folder) : Place();
}

std::string ExplainFolder(const Place& reports) {
  if (reports.exists) return {};
  return "the reports folder " + text::ToUtf8(reports.desktopPath) + " does not exist";
}

std::string ExplainFileName(const std::string& path) {
  std::string host;
  switch (files::HostPath(path.c_str(), &host)) {
    case ERROR_INVALID_NAME:
      return "the name of a file holds no control characters and none of < > : \" | ? *";
    case ERROR_FILENAME_EXCED_RANGE:
      return "the name is too long for a file";
    default:
      return {};
  }
}

std::string ExplainRights(const fs::path& folder) {
  return MayWriteInto(folder) ? std::string() : "no permission to write in " + folder.string();
}

bool IsFile(const std::string& host) {
  std::error_code none;
  return fs::is_regular_file(host, none);
}

bool MayOpen(const std::string& host, int mode) {
  return faccessat(AT_FDCWD, host.c_str(), mode, AT_EACCESS) == 0;
}

// What this system has against a file in a folder that may be written.
std::string ExplainOnHost(const std::string& desktopPath, const fs::path& folder) {
  std::string host;
  if (files::HostPath(desktopPath.c_str(), &host) != 0) return {};
  if (fs::path(host).filename().native().size() > NAME_MAX) {
    return "the name has more than " + std::to_string(NAME_MAX) + " bytes in UTF-8";
  }
  struct stat status {};
  const bool readOnly = stat(host.c_str(), &status) == 0 && (status.st_mode & 0222) == 0;
  if (readOnly) return "the file " + host + " is read-only";
  if (IsFile(host) && !MayOpen(host, W_OK)) return "no permission to write " + host;
  struct statvfs disk {};
  const bool full =
      statvfs(folder.c_str(), &disk) == 0 && (disk.f_bavail == 0 || (disk.f_files != 0 && disk.f_favail == 0));
  return full ? "there is no room left on the disk of " + folder.string() : std::string();
}

std::string ExplainFile(const std::string& desktopPath) {
  std::string host;
  const bool exists = files::HostPath(desktopPath.c_str(), &host) == 0 && fs::exists(host);
  return (exists ? "the file is " : "there is no file ") + text::ToUtf8(desktopPath);
}

}  // namespace

void RequireHome() {
  const fs::path& home = platform::Home::Current().Folder();
  if (!fs::exists(home)) throw LocalFailure("there is no home at " + home.string() + ": 'kestorctl setup' makes one");
  if (!fs::is_directory(home)) throw LocalFailure("the home " + home.string() + " is no folder");
  if (faccessat(AT_FDCWD, home.c_str(), X_OK, AT_EACCESS) != 0) {
    throw LocalFailure("the home " + home.string() + " cannot be entered: " + std::strerror(errno), E_ACCESSDENIED);
  }
}

const ModuloFamilia* FindModule(std::string_view code) {
  const auto modules = kestor::ModulosDaFamilia();
  const auto found = std::find_if(modules.begin(), modules.end(), [code](const ModuloFamilia& module) {
    return text::EqualNoCase(module.codigo, code);
  });
  return found == modules.end() ? nullptr : &*found;
}

std::string ModuleCodes() {
  std::string codes;
  for (const ModuloFamilia& module : kestor::ModulosDaFamilia()) {
    if (!codes.empty()) codes += ", ";
    codes += module.codigo;
  }
  return codes;
}

std::string Explain(HRESULT result, REFCLSID clsid, const std::string& module) {
  try {
    registry::Check();
    if (result == kestor::ServiceError(CCaminhosInstalacao::kFalhaRegistry)) return ExplainMissingFolder(module);
    if (result == REGDB_E_CLASSNOTREG) {
      return "the home " + platform::Home::Current().Folder().string() + " has no server: run kestorctl setup";
    }
    if (result == CO_E_SERVER_EXEC_FAILURE) return ExplainFailedStart(clsid);
    if (result == E_ACCESSDENIED) return ExplainDeniedSockets();
    return {};
  } catch (const registry::FormatError& error) {
    return error.what();
  } catch (const fs::filesystem_error& error) {
    return error.path1().string() + ": " + error.code().message();
  }
}

std::string ReportsPrefix(Generation generation, const std::string& module, const std::string& component) {
  std::string folder;
  CCaminhosInstalacao::BuscaCaminhoRelatorios(folder);
  const Codes codes = CodesOf(generation, module, component);
  return folder + codes.module + codes.component;
}

std::string ExplainReportsFolder() {
  return ExplainFolder(Reports());
}

std::string ExplainSharedFiles() {
  const Place reports = Reports();
  const std::string reason = ExplainFolder(reports);
  return reason.empty() ? ExplainRights(reports.folder) : reason;
}

std::string ExplainUnread(const ModelFile& file) {
  const Place reports = Reports();
  std::string reason = ExplainName(file.name);
  if (reason.empty()) reason = ExplainFolder(reports);
  if (!reason.empty()) return reason;
  std::string host;
  const bool there = files::HostPath(file.path.c_str(), &host) == 0 && IsFile(host);
  return there && !MayOpen(host, R_OK) ? "no permission to read " + host : std::string();
}

std::string ExplainUnwritten(const ModelFile& file) {
  const Place reports = Reports();
  std::string reason = ExplainName(file.name);
  if (reason.empty()) reason = ExplainFolder(reports);
  if (reason.empty()) reason = ExplainFileName(file.path);
  if (!reason.empty()) return reason;
  if (!kestor::FicaNaPasta(file.name)) return "a name with \\ or / leads into another folder";
  reason = ExplainRights(reports.folder);
  return reason.empty() ? ExplainOnHost(file.path, reports.folder) : reason;
}

std::string ExplainReportsFile(const ModelFile& file) {
  return ExplainFile(file.path);
}

bool Exists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::filesystem::path HostPathOf(const std::string& path) {
  std::string host;
  files::HostPath(path.c_str(), &host);
  return host;
}

std::string ExplainCatalogue(Generation generation, const std::string& module, const std::string& component) {
  std::string folder;
  if (CCaminhosInstalacao::BuscaCaminhoModulo(module, folder) != 0) return {};
  const Codes codes = CodesOf(generation, module, component);
  return ExplainFile(kestor::CaminhoCatalogo(folder, codes.module, codes.component));
}

}  // namespace kestorctl
