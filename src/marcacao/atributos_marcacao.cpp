#include "atributos_marcacao.h"

#include <new>

#include "texto_marcacao.h"

namespace kestor {

namespace {

// What an ordinary element needs, so that its list is made in one piece.
constexpr std::size_t kBytesUsuais = 256;
constexpr std::size_t kAtributosUsuais = 10;

constexpr IID IID_Propria = {0xE36C2EF5, 0x4C0C, 0x49AB, {0x9B, 0x4A, 0x61, 0x5D, 0x5D, 0x0E, 0x2B, 0x7C}};

}  // namespace

CAtributosMarcacao::CAtributosMarcacao() {
  textos_.reserve(kBytesUsuais);
  lugares_.reserve(kAtributosUsuais);
}

CAtributosMarcacao* CAtributosMarcacao::De(IAtributosMarcacao* lista) {
  void* propria = nullptr;
  if (FAILED(lista->QueryInterface(IID_Propria, &propria))) return nullptr;
  lista->Release();  // the caller's reference holds it
  return static_cast<CAtributosMarcacao*>(propria);
}

HRESULT CAtributosMarcacao::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr || !(iid == IID_Propria)) return ObjetoMarcacao::QueryInterface(iid, object);
  *object = this;
  AddRef();
  return S_OK;
}

CAtributosMarcacao::Par CAtributosMarcacao::Atributo(std::size_t posicao) const {
  const Lugar& lugar = lugares_[posicao];
  const std::string_view textos(textos_);
  return {textos.substr(lugar.inicio, lugar.bytesNome),
          textos.substr(lugar.inicio + lugar.bytesNome + 1, lugar.bytesValor)};
}

bool CAtributosMarcacao::Contem(std::string_view nome) const {
  for (std::size_t i = 0; i < lugares_.size(); ++i) {
    if (lugares_[i].bytesNome == nome.size() && Atributo(i).nome == nome) return true;
  }
  return false;
}

HRESULT CAtributosMarcacao::Adiciona(const char* nome, const char* valor) {
  completa_ = completa_ && nome != nullptr && NomeValido(nome) && !Contem(nome);
  if (!completa_) return E_INVALIDARG;
  const std::string_view textoNome(nome);
  const std::string_view textoValor(valor != nullptr ? valor : "");
  const std::size_t inicio = textos_.size();
  try {
    textos_.append(textoNome).push_back('\0');
    textos_.append(textoValor).push_back('\0');
    lugares_.push_back({inicio, textoNome.size(), textoValor.size()});
    return S_OK;
  } catch (const std::bad_alloc&) {
    completa_ = false;
    return E_OUTOFMEMORY;
  }
}

HRESULT CAtributosMarcacao::BuscaValor(const char* nome, const char** valor) {
  if (nome == nullptr || valor == nullptr) return E_POINTER;
  *valor = nullptr;
  for (std::size_t i = 0; i < lugares_.size(); ++i) {
    const Par par = Atributo(i);
    if (par.nome != nome) continue;
    *valor = par.valor.data();
    return S_OK;
  }
  return E_FAIL;
}

HRESULT CAtributosMarcacao::Limpa() {
  textos_.clear();
  lugares_.clear();
  completa_ = true;
  return S_OK;
}

}  // namespace kestor
