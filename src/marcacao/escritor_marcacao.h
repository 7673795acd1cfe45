// Writing documents.
#pragma once

#include <string>
#include <vector>

#include "markup/interfaces_marcacao.h"
#include "objeto_marcacao.h"
#include "texto_marcacao.h"

namespace kestor {

// The object of the class EscritorMarcacao. It builds the document in memory and writes it to the stream in one piece
// at the end, or not at all if any step failed: a caller that ignores the results gets a whole document or none.
class CEscritorMarcacao final : public ObjetoMarcacao<IEscritorMarcacao, IID_IEscritorMarcacao> {
 public:
  static CEscritorMarcacao* Novo() { return new CEscritorMarcacao; }

  HRESULT IniciaDocumento() override;
  // Returns E_FAIL if the document is not one closed element; otherwise the stream's failure, or the first one before.
  HRESULT FinalizaDocumento() override;
  // Returns E_INVALIDARG for a name that no element can have and for a list of another component; E_FAIL outside a
  // document and after its root element; E_OUTOFMEMORY, also in a document of more than 128 MiB, which no call could
  // carry.
  HRESULT IniciaElemento(const char* nome, IAtributosMarcacao* atributos) override;
  HRESULT FinalizaElemento(const char* nome) override;  // E_INVALIDARG if that is not the innermost open element
  HRESULT DefineSaida(IStream* saida) override;

  HRESULT Reservado7() override { return E_NOTIMPL; }
  HRESULT Reservado8() override { return E_NOTIMPL; }
  HRESULT Reservado9() override { return E_NOTIMPL; }
  HRESULT Reservado10() override { return E_NOTIMPL; }

 private:
  ~CEscritorMarcacao() override;

  template <typename Operacao>
  HRESULT Executa(const Operacao& operacao);
  void NovaLinha();

  IStream* saida_ = nullptr;
  Acumulador documento_;
  std::vector<std::string> abertos_;
  bool marcaAberta_ = false;    // the innermost element's start tag still lacks its end
  HRESULT resultado_ = E_FAIL;  // of the document so far
};

}  // namespace kestor
