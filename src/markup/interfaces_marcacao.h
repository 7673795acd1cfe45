// The interfaces between the server and the markup component, which builds and parses trees of named elements with
// named text attributes. Objects of its three classes come from CoCreateInstance.
//
// All texts are code page 1252, end in a NUL and belong to the side that passes them. A null attribute list counts as
// an empty one. Slots named Reservado are not part of the contract: nothing calls them.
#pragma once

#include "platform/com/com.h"

namespace kestor {

// The attributes of one element.
struct IAtributosMarcacao : IUnknown {
  virtual HRESULT Reservado3() = 0;
  virtual HRESULT Reservado4() = 0;
  virtual HRESULT Reservado5() = 0;
  // Appends an attribute; both texts are copied.
  virtual HRESULT Adiciona(const char* nome, const char* valor) = 0;
  virtual HRESULT Reservado7() = 0;
  virtual HRESULT Reservado8() = 0;
  // Gives an attribute's value, valid until the next call on the list. Fails or gives null for a name that the list
  // lacks.
  virtual HRESULT BuscaValor(const char* nome, const char** valor) = 0;
  virtual HRESULT Limpa() = 0;  // removes all attributes

 protected:
  ~IAtributosMarcacao() = default;
};

// Receives what a reader finds, in document order. A failure ends the parse. A handler keeps no reference.
struct ITratadorMarcacao : IUnknown {
  virtual HRESULT InicioDocumento() = 0;
  virtual HRESULT FimDocumento() = 0;
  virtual HRESULT InicioElemento(const char* nome, IAtributosMarcacao* atributos) = 0;
  virtual HRESULT FimElemento(const char* nome) = 0;
  virtual HRESULT Notifica(std::int32_t valor) = 0;

 protected:
  ~ITratadorMarcacao() = default;
};

struct ILeitorMarcacao : IUnknown {
  virtual HRESULT DefineTratador(ITratadorMarcacao* tratador) = 0;  // the reader holds it until the next Analisa ends
  virtual HRESULT Reservado4() = 0;
  // Reads a whole document from the IStream in `fonte` (VT_UNKNOWN, the caller's) and calls the handler. Fails if the
  // bytes are no readable document, and with the handler's failure.
  virtual HRESULT Analisa(VARIANT fonte) = 0;
  // Gives an IErroMarcacao with what went wrong in the last Analisa; null and S_FALSE if nothing did.
  virtual HRESULT BuscaErro(IUnknown** erro) = 0;

 protected:
  ~ILeitorMarcacao() = default;
};

// Why a parse failed, for people.
struct IErroMarcacao : IUnknown {
  virtual HRESULT BuscaLinha(ULONG* linha) = 0;         // counted from 1
  virtual HRESULT BuscaDescricao(BSTR* descricao) = 0;  // English; the caller's

 protected:
  ~IErroMarcacao() = default;
};

struct IEscritorMarcacao : IUnknown {
  virtual HRESULT IniciaDocumento() = 0;
  virtual HRESULT FinalizaDocumento() = 0;  // everything has been written when it returns
  // Reads the list at once: the caller may clear or release it afterwards.
  virtual HRESULT IniciaElemento(const char* nome, IAtributosMarcacao* atributos) = 0;
  virtual HRESULT FinalizaElemento(const char* nome) = 0;
  virtual HRESULT Reservado7() = 0;
  virtual HRESULT Reservado8() = 0;
  virtual HRESULT Reservado9() = 0;
  virtual HRESULT Reservado10() = 0;
  virtual HRESULT DefineSaida(IStream* saida) = 0;  // the writer holds it while it lives, and only writes to it

 protected:
  ~IEscritorMarcacao() = default;
};

inline constexpr CLSID CLSID_LeitorMarcacao = {
    0x29AAA102, 0xBC7D, 0x4CC7, {0xAE, 0xB5, 0xA3, 0xCB, 0xA6, 0x5F, 0x0F, 0xFC}};
inline constexpr CLSID CLSID_EscritorMarcacao = {
    0xA6085909, 0x7494, 0x4DE6, {0xBB, 0xC4, 0x86, 0xD6, 0x67, 0x57, 0xD8, 0x89}};
inline constexpr CLSID CLSID_AtributosMarcacao = {
    0xD8057125, 0x622F, 0x4734, {0x8F, 0xE1, 0xD7, 0xF5, 0x96, 0xB1, 0x4B, 0xC2}};
inline constexpr IID IID_ILeitorMarcacao = {
    0xA3F865F8, 0x64A1, 0x4D04, {0xA1, 0xC4, 0x8C, 0x04, 0x63, 0x96, 0xF7, 0x01}};
inline constexpr IID IID_IEscritorMarcacao = {
    0xFDCAE3EA, 0x7A2F, 0x4585, {0xA0, 0xFA, 0x46, 0x65, 0x1F, 0x72, 0xD0, 0x95}};
inline constexpr IID IID_IAtributosMarcacao = {
    0x3C208923, 0x7934, 0x44FD, {0xA7, 0x99, 0x71, 0x96, 0x65, 0x91, 0xB1, 0x44}};
inline constexpr IID IID_ITratadorMarcacao = {
    0x1E945012, 0xB4D6, 0x4875, {0x93, 0x8A, 0x2A, 0x9C, 0x15, 0x25, 0x5C, 0x76}};
inline constexpr IID IID_IErroMarcacao = {0xCFD17E74, 0xAB75, 0x4D5C, {0x87, 0x5E, 0xFD, 0xA6, 0x26, 0x0A, 0x4A, 0xF4}};

}  // namespace kestor
