// What is wrong with an installation, as far as its home tells.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "common/caminhos_instalacao.h"
#include "platform/com/com.h"

namespace kestorctl {

// Throws LocalFailure when the home of this process is missing or cannot be entered.
void RequireHome();

// The application with this module code, letter case aside; null when there is none.
const kestor::ModuloFamilia* FindModule(std::string_view code);

// "AB, AT, …": for a message about a code that no module has.
std::string ModuleCodes();

// What the result of asking for an object of the class, or for the folders of a module, says about the home; empty when
// the home has nothing to do with it. UTF-8.
std::string Explain(HRESULT result, REFCLSID clsid, const std::string& module);

// What is wrong with the reports folder as a whole; empty when it is there. UTF-8.
std::string ExplainReportsFolder();

// The same of the files in it that all stations write, whatever is asked of them.
std::string ExplainSharedFiles();

// Each generation of stores has its own rules for file names.
enum class Generation { first, second };

// What the paths of all files of a module and component begin with in the reports folder: a path of the desktop
// platform. The codes are UTF-8.
std::string ReportsPrefix(Generation generation, const std::string& module, const std::string& component);

// A file of the reports folder.
struct ModelFile {
  std::string name;  // what the caller named; UTF-8
  std::string path;  // where the server looks for it: a path of the desktop platform
};

// Why a file cannot be read, or written, as far as its name, the folder and the system tell; otherwise empty. UTF-8.
std::string ExplainUnread(const ModelFile& file);
std::string ExplainUnwritten(const ModelFile& file);

// Which file of the reports folder, or which field catalogue, the server would not take, and whether it is there.
// UTF-8.
std::string ExplainReportsFile(const ModelFile& file);
std::string ExplainCatalogue(Generation generation, const std::string& module, const std::string& component);

// Whether there is a file of that desktop path, also when it is in use.
bool Exists(const std::string& path);

// Where on this system a desktop path leads.
std::filesystem::path HostPathOf(const std::string& path);

}  // namespace kestorctl
