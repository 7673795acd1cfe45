// The handler that the markup reader calls while it reads a report document.
#pragma once

#include <string>
#include <vector>

#include "document/doc_relatorio.h"
#include "markup/interfaces_marcacao.h"
#include "platform/com/object.h"

namespace kestor {

// Fills a document element by element. Finds an element's place by the names of all open elements, the root's first.
// Used for one parse.
class CTratadorRelatorio final : public com::UncountedObject<ITratadorMarcacao, IID_ITratadorMarcacao> {
 public:
  explicit CTratadorRelatorio(CDocRelatorio& documento) : documento_(documento) {}

  HRESULT InicioDocumento() override { return S_OK; }
  HRESULT FimDocumento() override { return S_OK; }
  // Returns E_FAIL if a document has no such element in this place, or if an attribute is missing or wrong;
  // E_OUTOFMEMORY.
  HRESULT InicioElemento(const char* nome, IAtributosMarcacao* atributos) override;
  HRESULT FimElemento(const char* nome) override;
  HRESULT Notifica(std::int32_t /*valor*/) override { return S_OK; }

  // RecebeErro returns the place for the reader's error object, which is null while there is none.
  IUnknown** RecebeErro() { return erro_.Out(); }
  IUnknown* Erro() const { return erro_.Get(); }

 private:
  CDocRelatorio& documento_;
  std::vector<std::string> pilha_;
  ComPtr<IUnknown> erro_;
};

}  // namespace kestor
