// Attribute lists for writing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "markup/interfaces_marcacao.h"
#include "objeto_marcacao.h"
#include "texto_marcacao.h"

namespace kestor {

// The object of the class AtributosMarcacao.
class CAtributosMarcacao final : public ObjetoMarcacao<IAtributosMarcacao, IID_IAtributosMarcacao> {
 public:
  // Reuses the list that was released last: each element of a document has a list of its own.
  static CAtributosMarcacao* Novo();

  // Returns the list itself if `lista` is a list for writing of this component; null otherwise.
  static CAtributosMarcacao* De(IAtributosMarcacao* lista);

  // Also answers to an identity that only this component knows. The pointer it gives then is not a counted reference.
  HRESULT QueryInterface(REFIID iid, void** object) override;

  // Returns E_INVALIDARG for a name that no attribute can have or that the list has already; E_OUTOFMEMORY. After a
  // failure the list is incomplete, and cannot be used until Limpa.
  HRESULT Adiciona(const char* nome, const char* valor) override;
  HRESULT BuscaValor(const char* nome, const char** valor) override;  // E_FAIL if there is none
  HRESULT Limpa() override;

  HRESULT Reservado3() override { return E_NOTIMPL; }
  HRESULT Reservado4() override { return E_NOTIMPL; }
  HRESULT Reservado5() override { return E_NOTIMPL; }
  HRESULT Reservado7() override { return E_NOTIMPL; }
  HRESULT Reservado8() override { return E_NOTIMPL; }

  bool Completa() const { return completa_; }
  // Returns all attributes as an element's start tag has them, a blank before each.
  std::string_view Marca() const { return marca_.Texto(); }

 private:
  void Discard() override;

  // Where an attribute's name stands in the mark.
  struct Lugar {
    std::uint32_t nome;
    std::uint32_t bytesNome;
  };

  // A name with the characters around it in the mark. Its size is constant, which makes copying fast; a longer name
  // never counts as habitual.
  struct Habitual {
    std::array<char, 32> marca{};
    std::size_t bytes = 0;
  };

  // Returns the attribute's index, or the number of attributes if there is none of that name.
  std::size_t Busca(std::string_view nome) const;
  bool EhHabitual(const char* nome) const;
  bool AcrescentaNovo(const char* nome);

  std::vector<Lugar> lugares_;
  std::vector<Habitual> habituais_;  // names of this list or the one before
  bool saoHabituais_ = true;         // the names of this list match those so far
  Acumulador marca_;
  std::string valor_;  // the value asked for last
  bool completa_ = true;
};

}  // namespace kestor
