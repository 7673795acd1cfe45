// What every method's requests and answers look like, from the protocol's side.
#pragma once

#include "recorder.h"

namespace payloads {

struct Method {
  const IID& iid;
  std::uint16_t slot;
  std::string name;
  std::string request;  // the shapes of the payloads, as Payload reads them
  std::string answer;
};

inline const std::vector<Method>& Methods() {
  static const std::vector<Method> methods = {
      {IID_IZNPL_Rel, 3, "Inicializa", "ttt", ""},
      {IID_IZNPL_Rel, 4, "BuscaCampos", "n", "d"},
      {IID_IZNPL_Rel, 5, "BuscaQdeCamposArquivo", "", "4"},
      {IID_IZNPL_Rel, 6, "BuscaRelatorio", "n", "y"},
      {IID_IZNPL_Rel, 7, "BuscaTamanhoRelatorio", "t", "4"},
      {IID_IZNPL_Rel, 8, "GravaRelatorio", "t4b", ""},
      {IID_IZNPL_Rel, 9, "BuscaNomeRelatoriosExistentes", "", "t"},
      {IID_IZNPL_Rel, 10, "ExcluiRelatorio", "t", ""},
      {IID_IZNPL_Rel, 11, "AtualizaRelatorio", "t22c", ""},
      {IID_IZNPL_Rel, 12, "GravaRelatorioSemCallBack", "t4b", ""},
      {IID_IZNPL_Rel, 13, "GravaDadosExportacaoDoRelatorio", "tE", ""},
      {IID_IZNPL_Rel, 14, "BuscaDadosExportacaoDoRelatorio", "t", "?E"},
      {IID_IZNPL_Rel, 15, "LeFiltroRelatorio", "t", "?F"},
      {IID_IZNPL_Rel, 16, "GravaFiltroRelatorio", "t?F", ""},
      {IID_IZNPL_Relatorio2, 3, "Inicializa", "tt", ""},
      {IID_IZNPL_Relatorio2, 4, "GetCamposDisponiveis", "", "?K"},
      {IID_IZNPL_Relatorio2, 5, "Le", "t", "?L"},
      {IID_IZNPL_Relatorio2, 6, "Grava", "t21B", ""},
      {IID_IZNPL_Relatorio2, 7, "GetNomeRelatorios", "", "?M"},
      {IID_IZNPL_Relatorio2, 8, "ExcluiRelatorio", "t1", "1"},
      {IID_IZNPL_Relatorio2, 9, "GetRelatorioPadrao", "", "t"},
      {IID_IZNPL_Relatorio2, 10, "SetRelatorioPadrao", "t", ""},
      {IID_IZNPL_Relatorio2, 11, "GetNomeRelatoriosDemonstracaoExcluidos", "", "M"},
      {IID_IZNPL_RelConverte, 3, "AlteraCodigoCampos", "ttp", ""},
  };
  return methods;
}

// Builds a payload, a letter a field: t text; 1 2 4 number of that width, another one in every place; n count; d fields
// and y bytes without a count; ? whether the record after it is there; and the arrays with what counts them.
inline std::string Payload(const std::string& shape, const recorder::Content& content) {
  const auto count = static_cast<std::size_t>(content.count);
  std::string payload;
  const auto number = [&payload](std::size_t value, std::size_t width) {
    payload.append(reinterpret_cast<const char*>(&value), width);
  };
  const auto filled = [&payload](std::size_t bytes) {
    payload.resize(payload.size() + bytes);
    recorder::Fill(payload.data() + payload.size() - bytes, bytes);
  };
  auto text = content.texts.begin();
  for (const char letter : shape) {
    if (letter == 't') {
      number(*text ? (*text)->size() : 0xFFFFFFFF, 4);
      payload += text++->value_or("");
    } else if (letter == 'n') {
      number(count, 4);
    } else if (letter == 'd' || letter == 'y') {
      filled(count * (letter == 'd' ? 274 : 1));
    } else if (letter == '?') {
      number(content.hasRecord, 1);
      if (!content.hasRecord) break;
    } else if (const auto layout = recorder::kLayouts.find(letter); layout != recorder::kLayouts.end()) {
      const auto& [bytes, countOffset, countBytes, itemBytes] = layout->second;
      filled(bytes);
      std::memcpy(payload.data() + payload.size() - bytes + countOffset, &count, countBytes);
      number(content.hasArray, 1);
      if (content.hasArray) filled(count * itemBytes);
    } else {
      number(static_cast<std::size_t>(content.number) + payload.size(), static_cast<std::size_t>(letter - '0'));
    }
  }
  return payload;
}

}  // namespace payloads
