// What stores of the first generation answer, as texts that are compared and written again: the result when there is
// nothing else.
#pragma once

#include <cstring>

#include "legacy/legacy_fixture.h"

inline std::string Listed(IZNPL_Rel& rel) {
  BSTR names = nullptr;
  const HRESULT result = rel.BuscaNomeRelatoriosExistentes(&names);
  const OwnedBstr owner(names);
  return result == S_OK ? text::Utf16ToUtf8({names, SysStringLen(names)}) : kestor::ResultCode(result);
}

// A filter is the bytes of its entries. One without entries is what a new one is until it is first written.
inline std::string ReadFilter(IZNPL_Rel& rel, const std::u16string& name) {
  tagFILTRO_RELATORIO* filter = nullptr;
  const HRESULT result = rel.LeFiltroRelatorio(support::Text(name), &filter);
  const TaskBlock<tagFILTRO_RELATORIO> owner(filter);
  if (filter == nullptr) return kestor::ResultCode(result);
  const TaskBlock<tagCAMPO_FILTRO> entries(filter->pregValoresFiltro);
  return {reinterpret_cast<const char*>(entries.get()), filter->nQtdCampos * sizeof(tagCAMPO_FILTRO)};
}

inline std::string WriteFilter(IZNPL_Rel& rel, const std::u16string& name, const std::string& bytes) {
  std::vector<tagCAMPO_FILTRO> entries(bytes.size() / sizeof(tagCAMPO_FILTRO));
  std::memcpy(entries.data(), bytes.data(), bytes.size());
  tagFILTRO_RELATORIO filter{static_cast<std::uint16_t>(entries.size()), entries.data()};
  return kestor::ResultCode(rel.GravaFiltroRelatorio(support::Text(name), &filter));
}
