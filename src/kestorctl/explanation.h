// What is wrong with an installation, as far as its home shows.
#pragma once

#include <string>
#include <string_view>

#include "common/caminhos_instalacao.h"
#include "platform/com/com.h"

namespace kestorctl {

// Throws LocalFailure when the home of this process cannot be entered, or is missing and the server would not make it.
void RequireHome();

// Returns the application with this module code, in any letter case; null when there is none.
const kestor::ModuloFamilia* FindModule(std::string_view code);

// Returns "AB, AT, …", for a message about a code that no module has.
std::string ModuleCodes();

// Explains why asking for an object of the class had this result, as far as the home is the cause; empty when it is
// not. UTF-8.
std::string ExplainActivation(HRESULT result, REFCLSID clsid);

}  // namespace kestorctl
