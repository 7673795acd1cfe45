#include "explanation.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "failure.h"
#include "platform/home/home.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "server_registration.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;

using kestor::ModuloFamilia;

std::string ExplainFailedStart(REFCLSID clsid) {
  const std::string executable = RegisteredExecutable(clsid);
  if (fs::exists(executable)) return "the executable is " + executable;
  return "the registered executable " + executable + " does not exist: run kestorctl setup again";
}

std::string ExplainDeniedSockets() {
  std::string reason;
  return platform::Home::Current().PrepareSocketFolder(&reason) ? std::string() : reason;
}

}  // namespace

void RequireHome() {
  const fs::path& home = platform::Home::Current().Folder();
  // When the machine has a registry, the server makes the home.
  if (!fs::exists(home) && !platform::Home::Current().SystemRegistry().empty()) return;
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

std::string ExplainActivation(HRESULT result, REFCLSID clsid) {
  try {
    registry::Check();
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

}  // namespace kestorctl
