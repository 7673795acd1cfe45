// What is wrong with an installation, as far as its home tells.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

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

// A file of the reports folder: the codes of module and component begin its name, and a name with a dot brings its own
// extension along. UTF-8.
struct ModelFile {
  std::string codes;
  std::string name;
  const char* extension;
};

// Why a file cannot be read, or written, as far as its name, the folder and the system tell; otherwise empty. UTF-8.
std::string ExplainUnread(const ModelFile& file);
std::string ExplainUnwritten(const ModelFile& file);

// Which file of the reports folder, or which field catalogue, the server would not take, and whether it is there.
// UTF-8.
std::string ExplainReportsFile(const ModelFile& file);
std::string ExplainCatalogue(const std::string& module, const std::string& codes);

// Those of the files that the reports folder has, also when they are in use. Names with extension, in UTF-8.
std::vector<std::string> ExistingReportsFiles(std::vector<std::string> names);

// Where a file of the reports folder lies, if it is there; as above.
std::filesystem::path ReportsFilePath(const std::string& name);

}  // namespace kestorctl
