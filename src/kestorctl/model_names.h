// The names of the models that stores list; UTF-8.
#pragma once

#include <string>
#include <vector>

#include "store_session.h"

namespace kestorctl {

// Returns the names of a list and frees its array.
std::vector<std::string> TakeNames(const REG_ARRAY_RELATORIO2& list);

// Return the store's result; `*names` is empty unless that is S_OK.
HRESULT ListModels(const ReportStore& store, std::vector<std::string>* names);
HRESULT ListModels(const LegacyStore& store, std::vector<std::string>* names);

// Does the same for the deleted demonstration models.
HRESULT DeletedNames(const ReportStore& store, std::vector<std::string>* names);

}  // namespace kestorctl
