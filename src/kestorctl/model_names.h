// The names of the models that stores list; UTF-8.
#pragma once

#include <string>
#include <vector>

#include "store_session.h"

namespace kestorctl {

// The names of a list, whose array is freed.
std::vector<std::string> TakeNames(const REG_ARRAY_RELATORIO2& list);

// The store's result; no names unless it is S_OK.
HRESULT ListModels(const ReportStore& store, std::vector<std::string>* names);
HRESULT ListModels(const LegacyStore& store, std::vector<std::string>* names);

// The same of the deleted demonstration models.
HRESULT DeletedNames(const ReportStore& store, std::vector<std::string>* names);

}  // namespace kestorctl
