// Report documents for people and for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "document/doc_relatorio.h"

namespace kestorctl {

// Returns a readable page, UTF-8.
std::string DocumentPage(const kestor::CDocRelatorio& document);

// Returns everything that the document holds.
nlohmann::ordered_json DocumentObject(const kestor::CDocRelatorio& document);

}  // namespace kestorctl
