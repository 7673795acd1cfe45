#include "model_names.h"

#include "platform/text/text.h"

namespace kestorctl {

namespace {

constexpr char kBetweenNames = '|';

std::vector<std::string> SplitNames(const std::string& joined) {
  std::vector<std::string> names;
  if (joined.empty()) return names;
  std::size_t start = 0;
  for (std::size_t bar = 0; bar != joined.npos; start = bar + 1) {
    bar = joined.find(kBetweenNames, start);
    names.push_back(joined.substr(start, bar - start));
  }
  return names;
}

}  // namespace

std::vector<std::string> TakeNames(const REG_ARRAY_RELATORIO2& list) {
  const TaskBlock<tagREG_NOME_RELATORIO2> entries(list.pregRelatorios);
  std::vector<std::string> names;
  for (USHORT i = 0; i < list.nQtdeRelatorios; ++i)
    names.push_back(text::ToUtf8(entries.get()[i].szNomeRelatorio));
  return names;
}

HRESULT ListModels(const ReportStore& store, std::vector<std::string>* names) {
  REG_ARRAY_RELATORIO2* list = nullptr;
  const HRESULT result = store->GetNomeRelatorios(&list);
  const TaskBlock<REG_ARRAY_RELATORIO2> owner(list);
  names->clear();
  if (result == S_OK && list != nullptr) *names = TakeNames(*list);
  return result;
}

HRESULT ListModels(const LegacyStore& store, std::vector<std::string>* names) {
  BSTR joined = nullptr;
  const HRESULT result = store->BuscaNomeRelatoriosExistentes(&joined);
  const OwnedBstr owner(joined);
  names->clear();
  if (result == S_OK && joined != nullptr) *names = SplitNames(text::Utf16ToUtf8({joined, SysStringLen(joined)}));
  return result;
}

HRESULT DeletedNames(const ReportStore& store, std::vector<std::string>* names) {
  REG_ARRAY_RELATORIO2 list{};
  const HRESULT result = store->GetNomeRelatoriosDemonstracaoExcluidos(&list);
  *names = TakeNames(list);
  return result;
}

}  // namespace kestorctl
