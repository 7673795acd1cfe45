// Reading documents.
#pragma once

#include "markup/interfaces_marcacao.h"
#include "objeto_marcacao.h"

namespace kestor {

// The object of the class LeitorMarcacao.
class CLeitorMarcacao final : public ObjetoMarcacao<ILeitorMarcacao, IID_ILeitorMarcacao> {
 public:
  static CLeitorMarcacao* Novo() { return new CLeitorMarcacao; }

  HRESULT DefineTratador(ITratadorMarcacao* tratador) override;
  // Returns E_INVALIDARG without a handler or a stream; E_FAIL if the document is not accepted, also for more than
  // 1,000 levels of elements, or for a mark of UTF-8 before a declaration of another encoding; E_OUTOFMEMORY; the
  // stream's or the handler's failure.
  HRESULT Analisa(VARIANT fonte) override;
  HRESULT BuscaErro(IUnknown** erro) override;

  HRESULT Reservado4() override { return E_NOTIMPL; }

 private:
  ~CLeitorMarcacao() override;

  HRESULT Le(const VARIANT& fonte);

  ITratadorMarcacao* tratador_ = nullptr;
  HRESULT resultado_ = S_OK;  // of the last Analisa
  ULONG linha_ = 1;
  const char* descricao_ = nullptr;
};

}  // namespace kestor
