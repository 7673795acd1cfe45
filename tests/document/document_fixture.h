// Documents as values, and their content as text.
#pragma once

#include <gtest/gtest.h>
#include <string>

#include "document/doc_relatorio.h"
#include "marcacao/componente_marcacao.h"

namespace kestor {

inline bool operator==(const CDocRelatorio& a, const CDocRelatorio& b) {
  return a.versao == b.versao && a.nome == b.nome && a.dataInicial == b.dataInicial && a.dataFinal == b.dataFinal &&
         a.impressao == b.impressao && a.camposEscolhidos == b.camposEscolhidos && a.ordenacao == b.ordenacao &&
         a.filtro == b.filtro && a.exportacao == b.exportacao;
}

}  // namespace kestor

inline bool Load(kestor::CDocRelatorio& document, std::string content, USHORT version = 1,
                 std::string* reason = nullptr) {
  return document.CarregaConteudo(
      {version, static_cast<LONG>(content.size()), reinterpret_cast<std::uint8_t*>(content.data())}, reason);
}

inline std::string Content(const kestor::CDocRelatorio& document) {
  const std::unique_ptr<kestor::CMemStream> stream = document.GeraConteudo();
  return {reinterpret_cast<const char*>(stream->Buffer()), stream->Size()};
}

class DocumentTest : public testing::Test {
 protected:
  kestor::ComponenteMarcacao component_;
};
