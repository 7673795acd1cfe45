// Descriptions of a document's elements as data: the name, the attributes with the fields that they stand for, and the
// child elements. One description serves both reading and writing.
#pragma once

#include <cstddef>
#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "document/codificacao.h"
#include "markup/interfaces_marcacao.h"

namespace kestor {

// ---- Attributes ----------------------------------------------------------------------------------------------------

// What a missing attribute means for the field. Required attributes are read before optional ones.
enum class Falta {
  recusa,   // the element cannot be read
  mantem,   // the field keeps its value
  esvazia,  // the field becomes 0 or empty
  naoSeLe,  // the attribute is only written, never read
};

// An attribute that stands for a field of `Registro`.
template <typename Registro, typename Campo, typename Codificacao>
struct Atributo {
  constexpr Atributo(const char* nome_, Campo Registro::*campo_, Codificacao codificacao_, Falta falta_ = Falta::recusa)
      : nome(nome_), campo(campo_), codificacao(codificacao_), falta(falta_) {}

  // Returns the same attribute, not read in records whose `dispensa` is true. A required attribute must set `dispensa`,
  // so that it is known in time.
  constexpr Atributo Salvo(bool Registro::*dispensa_) const {
    Atributo outro = *this;
    outro.dispensa = dispensa_;
    return outro;
  }

  const char* nome;
  Campo Registro::*campo;
  Codificacao codificacao;
  Falta falta;
  bool Registro::*dispensa = nullptr;
};

// An attribute that is always written with the same text and never read.
struct AtributoConstante {
  const char* nome;
  const char* texto;
};

// ---- Elements ------------------------------------------------------------------------------------------------------

template <typename Atributos, typename... Filhos>
struct Elemento {
  constexpr Elemento(const char* nome_, Atributos atributos_, Filhos... filhos_)
      : nome(nome_), atributos(atributos_), filhos(filhos_...) {}

  // Returns the same element, below which nothing is refused and unknown elements are skipped.
  constexpr Elemento Tolerante() const {
    Elemento outro = *this;
    outro.tolera = true;
    return outro;
  }

  const char* nome;
  Atributos atributos;
  std::tuple<Filhos...> filhos;
  bool tolera = false;
};

template <typename... Lista>
constexpr auto Atributos(Lista... lista) {
  return std::make_tuple(lista...);
}

// A child element whose record is a part of the parent's record.
template <typename Registro, typename Parte, typename Descricao>
struct ElementoParte {
  constexpr ElementoParte(Parte Registro::*parte_, const Descricao& descricao_)
      : parte(parte_), descricao(descricao_) {}

  Parte Registro::*parte;
  Descricao descricao;
};

// A child element without a record of its own.
template <typename Descricao>
struct ElementoDentro {
  constexpr explicit ElementoDentro(const Descricao& descricao_) : descricao(descricao_) {}

  Descricao descricao;
};

// Child elements, one for each record of a list; they have no children.
template <typename Registro, typename Item, typename Descricao>
struct ElementosLista {
  using Condicao = bool (*)(const Item&);
  constexpr ElementosLista(std::vector<Item> Registro::*lista_, const Descricao& descricao_,
                           Condicao escreve_ = nullptr)
      : lista(lista_), descricao(descricao_), escreve(escreve_) {}

  std::vector<Item> Registro::*lista;
  Descricao descricao;
  Condicao escreve;  // records for which it is false are not written
};

// ---- Reading -------------------------------------------------------------------------------------------------------

// Reads elements into records. Finds an element by the names that lead to it, never by its own name alone.
class LeituraElementos {
 public:
  // `atributos`: those of the element at the end of the path; null counts as none.
  explicit LeituraElementos(IAtributosMarcacao* atributos) : atributos_(atributos) {}

  // Reads the element to which the `restantes` names of `caminho` lead from `elemento`, whose record is `registro`;
  // with no name, `elemento` itself. Returns E_FAIL if there is no such element or it cannot be read: a record of a
  // list is dropped then, and other fields keep what was read before. Throws std::bad_alloc.
  template <typename Descricao, typename Registro>
  HRESULT Le(const Descricao& elemento, Registro& registro, const std::string* caminho, std::size_t restantes) const {
    const bool lido =
        restantes == 0
            ? LeAtributos(elemento, registro)
            : std::apply([&](const auto&... filho) { return (LeFilho(filho, registro, caminho, restantes) || ...); },
                         elemento.filhos);
    return lido || elemento.tolera ? S_OK : E_FAIL;
  }

 private:
  template <typename Descricao, typename Registro>
  bool LeAtributos(const Descricao& elemento, Registro& registro) const {
    return std::apply(
        [&](const auto&... atributo) {
          return (LeObrigatorio(atributo, registro) && ...) && (LeOpcional(atributo, registro) && ...);
        },
        elemento.atributos);
  }

  template <typename Registro, typename Parte, typename Descricao>
  bool LeFilho(const ElementoParte<Registro, Parte, Descricao>& filho, Registro& registro, const std::string* caminho,
               std::size_t restantes) const {
    return *caminho == filho.descricao.nome &&
           Le(filho.descricao, registro.*filho.parte, caminho + 1, restantes - 1) == S_OK;
  }

  template <typename Descricao, typename Registro>
  bool LeFilho(const ElementoDentro<Descricao>& filho, Registro& registro, const std::string* caminho,
               std::size_t restantes) const {
    return *caminho == filho.descricao.nome && Le(filho.descricao, registro, caminho + 1, restantes - 1) == S_OK;
  }

  template <typename Registro, typename Item, typename Descricao>
  bool LeFilho(const ElementosLista<Registro, Item, Descricao>& filho, Registro& registro, const std::string* caminho,
               std::size_t restantes) const {
    if (restantes != 1 || *caminho != filho.descricao.nome) return false;
    Item item;
    if (!LeAtributos(filho.descricao, item)) return false;
    (registro.*filho.lista).push_back(std::move(item));
    return true;
  }

  template <typename Registro, typename Campo, typename Codificacao>
  bool LeObrigatorio(const Atributo<Registro, Campo, Codificacao>& atributo, Registro& registro) const {
    if (atributo.falta != Falta::recusa || atributo.dispensa != nullptr) return true;
    return LeValor(atributo, registro);
  }

  template <typename Registro, typename Campo, typename Codificacao>
  bool LeOpcional(const Atributo<Registro, Campo, Codificacao>& atributo, Registro& registro) const {
    switch (atributo.falta) {
      case Falta::recusa:
        return atributo.dispensa == nullptr || registro.*atributo.dispensa || LeValor(atributo, registro);
      case Falta::esvazia:
        registro.*atributo.campo = Campo{};
        break;
      case Falta::mantem:
        break;
      case Falta::naoSeLe:
        return true;
    }
    LeValor(atributo, registro);
    return true;
  }

  template <typename Registro>
  static bool LeObrigatorio(const AtributoConstante&, Registro&) {
    return true;
  }
  template <typename Registro>
  static bool LeOpcional(const AtributoConstante&, Registro&) {
    return true;
  }

  template <typename Registro, typename Campo, typename Codificacao>
  bool LeValor(const Atributo<Registro, Campo, Codificacao>& atributo, Registro& registro) const {
    const char* texto = nullptr;
    const HRESULT busca = atributos_ == nullptr ? E_FAIL : atributos_->BuscaValor(atributo.nome, &texto);
    // An attribute that exists but does not fit into memory must not count as missing.
    if (busca == E_OUTOFMEMORY) throw std::bad_alloc();
    if (FAILED(busca)) return false;
    return atributo.codificacao.Le(texto != nullptr ? texto : "", registro.*atributo.campo);
  }

  IAtributosMarcacao* const atributos_;
};

// ---- Writing -------------------------------------------------------------------------------------------------------

// Writes elements with their children. Ignores the writer's results.
class EscritaElementos {
 public:
  explicit EscritaElementos(IEscritorMarcacao& escritor) : escritor_(escritor) {}

  // Throws std::bad_alloc if an attribute list cannot be made.
  template <typename Descricao, typename Registro>
  void Escreve(const Descricao& elemento, const Registro& registro) {
    EscreveInicio(elemento, registro);
    std::apply([&](const auto&... filho) { (EscreveFilho(filho, registro), ...); }, elemento.filhos);
    escritor_.FinalizaElemento(elemento.nome);
  }

 private:
  template <typename Descricao, typename Registro>
  void EscreveInicio(const Descricao& elemento, const Registro& registro) {
    ComPtr<IAtributosMarcacao> lista;
    if constexpr (std::tuple_size_v<decltype(elemento.atributos)> != 0) {
      if (FAILED(CoCreateInstance(CLSID_AtributosMarcacao, nullptr, CLSCTX_ALL, IID_IAtributosMarcacao,
                                  lista.OutVoid()))) {
        throw std::bad_alloc();
      }
      std::apply([&](const auto&... atributo) { (Adiciona(*lista, atributo, registro), ...); }, elemento.atributos);
    }
    escritor_.IniciaElemento(elemento.nome, lista.Get());
  }

  template <typename Registro, typename Campo, typename Codificacao>
  void Adiciona(IAtributosMarcacao& lista, const Atributo<Registro, Campo, Codificacao>& atributo,
                const Registro& registro) {
    const char* texto = atributo.codificacao.Escreve(registro.*atributo.campo, rascunho_);
    if (texto != nullptr) lista.Adiciona(atributo.nome, texto);
  }

  template <typename Registro>
  static void Adiciona(IAtributosMarcacao& lista, const AtributoConstante& atributo, const Registro& /*registro*/) {
    lista.Adiciona(atributo.nome, atributo.texto);
  }

  template <typename Registro, typename Parte, typename Descricao>
  void EscreveFilho(const ElementoParte<Registro, Parte, Descricao>& filho, const Registro& registro) {
    Escreve(filho.descricao, registro.*filho.parte);
  }

  template <typename Descricao, typename Registro>
  void EscreveFilho(const ElementoDentro<Descricao>& filho, const Registro& registro) {
    Escreve(filho.descricao, registro);
  }

  template <typename Registro, typename Item, typename Descricao>
  void EscreveFilho(const ElementosLista<Registro, Item, Descricao>& filho, const Registro& registro) {
    for (const Item& item : registro.*filho.lista) {
      if (filho.escreve == nullptr || filho.escreve(item)) Escreve(filho.descricao, item);
    }
  }

  IEscritorMarcacao& escritor_;
  Rascunho rascunho_;
};

}  // namespace kestor
