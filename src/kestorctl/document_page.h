// Report documents for people and for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "document/doc_relatorio.h"

namespace kestorctl {

// A readable page, UTF-8.
std::string DocumentPage(const kestor::CDocRelatorio& document);

// Everything that the document holds.
nlohmann::ordered_json DocumentObject(const kestor::CDocRelatorio& document);

}  // namespace kestorctl
