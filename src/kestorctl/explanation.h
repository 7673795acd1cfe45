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

// Why a model cannot be read, or written, as far as its name and the reports folder tell; otherwise empty. `codes`,
// those of module and component, begin the name of its file. UTF-8.
std::string ExplainUnread(const std::string& name);
std::string ExplainUnwritten(const std::string& codes, const std::string& name);

// Which file of the reports folder, or which field catalogue, the server would not take, and whether it is there.
// `codes` and `name` as above, the name without an extension. UTF-8.
std::string ExplainReportsFile(const std::string& codes, const std::string& name, const char* extension);
std::string ExplainCatalogue(const std::string& module, const std::string& codes);

// Those of the files that the reports folder has, also when they are in use. Names with extension, in UTF-8.
std::vector<std::string> ExistingReportsFiles(std::vector<std::string> names);

// Where a file of the reports folder lies, if it is there; as above.
std::filesystem::path ReportsFilePath(const std::string& name);

}  // namespace kestorctl
