// What is wrong with an installation, as far as its home tells.
#pragma once

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

// What the result of asking for an object of the class says about the home; empty when the home has nothing to do with
// it. UTF-8.
std::string ExplainActivation(HRESULT result, REFCLSID clsid);

}  // namespace kestorctl
