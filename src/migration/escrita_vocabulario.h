// Writes elements of a document one by one, with attributes in the order that the caller chooses. Names and encodings
// come from the vocabulary of documents: a field identifies the attribute that stands for it there.
#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "document/vocabulario.h"

namespace kestor {

// A value for the attribute of the field `kCampo`, in the attribute's encoding.
template <auto kCampo, typename Valor>
struct Atribuicao {
  Valor valor;

  template <typename AtributoVocabulario>
  const char* Texto(const AtributoVocabulario& atributo, Rascunho& rascunho) const {
    return atributo.codificacao.Escreve(valor, rascunho);
  }
};

template <auto kCampo, typename Valor>
Atribuicao<kCampo, Valor> Com(Valor valor) {
  return {std::move(valor)};
}

// A number for an attribute to which the vocabulary gives a narrower type.
template <auto kCampo>
struct AtribuicaoNumero {
  std::int32_t valor;

  template <typename AtributoVocabulario>
  const char* Texto(const AtributoVocabulario& /*atributo*/, Rascunho& rascunho) const {
    return Numero::Escreve(valor, rascunho);
  }
};

template <auto kCampo>
AtribuicaoNumero<kCampo> ComNumero(std::int32_t valor) {
  return {valor};
}

// Stands for the attributes that always have the same text.
struct Constantes {};

// Thrown when the writer refuses an element: the document has failed, and the rest need not be built.
struct EscritorDesistiu {};

class EscritaVocabulario {
 public:
  EscritaVocabulario(IEscritorMarcacao& escritor, IAtributosMarcacao& atributos)
      : escritor_(escritor), atributos_(atributos) {}

  // Starts an element. Throws EscritorDesistiu. Does not compile for a field for which the element has no attribute.
  template <const auto& kElemento, typename... Valores>
  void Inicia(const Valores&... valores) {
    IAtributosMarcacao* lista = nullptr;
    if constexpr (sizeof...(valores) > 0) {
      lista = &atributos_;
      lista->Limpa();
      (Adiciona<kElemento>(valores), ...);
    }
    if (FAILED(escritor_.IniciaElemento(kElemento.nome, lista))) throw EscritorDesistiu();
  }

  template <const auto& kElemento>
  void Finaliza() {
    escritor_.FinalizaElemento(kElemento.nome);
  }

  // Writes an element without children.
  template <const auto& kElemento, typename... Valores>
  void Folha(const Valores&... valores) {
    Inicia<kElemento>(valores...);
    Finaliza<kElemento>();
  }

 private:
  template <auto kCampo, typename Registro, typename Campo, typename Codificacao>
  static constexpr bool Representa(const Atributo<Registro, Campo, Codificacao>& atributo) {
    if constexpr (std::is_same_v<Campo Registro::*, std::remove_const_t<decltype(kCampo)>>) {
      return atributo.campo == kCampo;
    } else {
      return false;
    }
  }
  template <auto kCampo>
  static constexpr bool Representa(const AtributoConstante& /*atributo*/) {
    return false;
  }

  // Returns the attribute for a field.
  template <const auto& kElemento, auto kCampo, std::size_t kLugar = 0>
  static constexpr const auto& AtributoDe() {
    static_assert(kLugar < std::tuple_size_v<std::remove_cvref_t<decltype(kElemento.atributos)>>,
                  "the element has no attribute for the field");
    if constexpr (Representa<kCampo>(std::get<kLugar>(kElemento.atributos))) {
      return std::get<kLugar>(kElemento.atributos);
    } else {
      return AtributoDe<kElemento, kCampo, kLugar + 1>();
    }
  }

  template <const auto& kElemento, auto kCampo, typename Valor>
  void Adiciona(const Atribuicao<kCampo, Valor>& valor) {
    AdicionaTexto<kElemento, kCampo>(valor);
  }

  template <const auto& kElemento, auto kCampo>
  void Adiciona(const AtribuicaoNumero<kCampo>& valor) {
    AdicionaTexto<kElemento, kCampo>(valor);
  }

  template <const auto& kElemento, auto kCampo, typename Valor>
  void AdicionaTexto(const Valor& valor) {
    const auto& atributo = AtributoDe<kElemento, kCampo>();
    atributos_.Adiciona(atributo.nome, valor.Texto(atributo, rascunho_));
  }

  template <const auto& kElemento>
  void Adiciona(Constantes /*constantes*/) {
    std::apply([&](const auto&... atributo) { (AdicionaConstante(atributo), ...); }, kElemento.atributos);
  }

  void AdicionaConstante(const AtributoConstante& atributo) { atributos_.Adiciona(atributo.nome, atributo.texto); }
  template <typename Outro>
  void AdicionaConstante(const Outro& /*atributo*/) {}

  IEscritorMarcacao& escritor_;
  IAtributosMarcacao& atributos_;
  Rascunho rascunho_;
};

}  // namespace kestor
