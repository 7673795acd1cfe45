// The form of every method's requests and answers, as the protocol defines it.
#pragma once

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <vector>

#include "contract/interfaces.h"

namespace payloads {

// The values in the arguments of a call or an answer.
struct Content {
  std::vector<std::optional<std::string>> texts = {"Vendas", "01", "Ltda"};  // their bytes
  LONG number = 0x01828384;
  LONG count = 3;               // of the items of an array
  unsigned char hasRecord = 1;  // 0 or 1, or a byte that no peer may send
  unsigned char hasArray = 1;   // the same
};

struct Method {
  const IID& iid;
  std::uint16_t slot;
  std::string name;
  std::string request;  // shapes of the payloads, as Payload reads them
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

inline const Method& MethodOf(const IID& iid, std::string_view name) {
  return *std::find_if(Methods().begin(), Methods().end(),
                       [&](const Method& method) { return method.iid == iid && method.name == name; });
}

// What precedes an array, either a record without its final pointer or only the count: its size, the offset and size of
// the count in it, and the size of an item of the array, in bytes.
inline const std::map<char, std::array<std::size_t, 4>> kLayouts = {
    {'b', {4, 0, 4, 1}},        // bytes
    {'B', {4, 0, 4, 1}},        // bytes of which the method judges the count
    {'c', {2, 0, 2, 30}},       // columns
    {'p', {4, 0, 4, 4}},        // pairs
    {'E', {612, 604, 2, 228}},  // export settings
    {'F', {2, 0, 2, 104}},      // filter
    {'K', {2, 0, 2, 262}},      // fields
    {'L', {6, 2, 4, 1}},        // model
    {'M', {2, 0, 2, 256}},      // names
};

// Fills a block with bytes that vary by position, so that no shift goes unnoticed.
inline void Fill(void* start, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    static_cast<unsigned char*>(start)[i] = static_cast<unsigned char>(i * 7 + i / 256 + 3);
}

// Builds a payload, one letter for each field: t text; 1 2 4 number of that width, different in every place; n count; d
// fields and y bytes without a count; ? presence of the record after it; and arrays with their counts.
inline std::string Payload(const std::string& shape, const Content& content) {
  const auto count = static_cast<std::size_t>(content.count);
  std::string payload;
  const auto number = [&payload](std::size_t value, std::size_t width) {
    payload.append(reinterpret_cast<const char*>(&value), width);
  };
  const auto filled = [&payload](std::size_t bytes) {
    payload.resize(payload.size() + bytes);
    Fill(payload.data() + payload.size() - bytes, bytes);
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
    } else if (const auto layout = kLayouts.find(letter); layout != kLayouts.end()) {
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
