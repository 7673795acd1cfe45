// Attribute lists for writing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "markup/interfaces_marcacao.h"
#include "objeto_marcacao.h"

namespace kestor {

// The object behind the class AtributosMarcacao.
class CAtributosMarcacao final : public ObjetoMarcacao<IAtributosMarcacao, IID_IAtributosMarcacao> {
 public:
  struct Par {
    std::string_view nome;
    std::string_view valor;
  };

  CAtributosMarcacao();

  // The list itself, when `lista` is one of this component; null otherwise.
  static CAtributosMarcacao* De(IAtributosMarcacao* lista);

  // Also answers to an identity that only this component knows.
  HRESULT QueryInterface(REFIID iid, void** object) override;

  // E_INVALIDARG for a name that no attribute can have or that the list has; E_OUTOFMEMORY. The list is incomplete then
  // and cannot be written any more.
  HRESULT Adiciona(const char* nome, const char* valor) override;
  HRESULT BuscaValor(const char* nome, const char** valor) override;  // E_FAIL when there is none
  HRESULT Limpa() override;

  HRESULT Reservado3() override { return E_NOTIMPL; }
  HRESULT Reservado4() override { return E_NOTIMPL; }
  HRESULT Reservado5() override { return E_NOTIMPL; }
  HRESULT Reservado7() override { return E_NOTIMPL; }
  HRESULT Reservado8() override { return E_NOTIMPL; }

  bool Completa() const { return completa_; }
  std::size_t Quantidade() const { return lugares_.size(); }
  Par Atributo(std::size_t posicao) const;

 private:
  struct Lugar {
    std::size_t inicio;
    std::size_t bytesNome;
    std::size_t bytesValor;
  };

  bool Contem(std::string_view nome) const;

  std::string textos_;  // of each attribute the name, a NUL, the value and a NUL
  std::vector<Lugar> lugares_;
  bool completa_ = true;
};

}  // namespace kestor
