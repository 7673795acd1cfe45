#include "atributos_marcacao.h"

#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace kestor {

namespace {

// A list that holds more memory is not kept.
constexpr std::size_t kBytesGuardados = 65536;

// A name in the mark has a blank before it and =" after it.
constexpr std::size_t kBytesEmVolta = 3;

constexpr IID IID_Propria = {0xE36C2EF5, 0x4C0C, 0x49AB, {0x9B, 0x4A, 0x61, 0x5D, 0x5D, 0x0E, 0x2B, 0x7C}};

// The list that was released last, with its memory: a document has some hundred elements, each with a list in turn.
thread_local std::unique_ptr<CAtributosMarcacao> guardada;

}  // namespace

CAtributosMarcacao* CAtributosMarcacao::Novo() {
  return guardada ? guardada.release() : new CAtributosMarcacao;
}

void CAtributosMarcacao::Discard() {
  const std::size_t bytes =
      2 * marca_.Capacidade() + valor_.capacity() + lugares_.capacity() * (sizeof(Lugar) + sizeof(Habitual));
  if (guardada || bytes > kBytesGuardados) {
    delete this;
    return;
  }
  Limpa();
  guardada.reset(this);
}

CAtributosMarcacao* CAtributosMarcacao::De(IAtributosMarcacao* lista) {
  void* propria = nullptr;
  lista->QueryInterface(IID_Propria, &propria);
  return static_cast<CAtributosMarcacao*>(propria);
}

HRESULT CAtributosMarcacao::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr || !(iid == IID_Propria)) return CountedObject::QueryInterface(iid, object);
  *object = this;
  return S_OK;
}

std::size_t CAtributosMarcacao::Busca(std::string_view nome) const {
  const char* const marca = Marca().data();
  const auto eEste = [&](const Lugar& lugar) {
    const char* const outro = marca + lugar.nome;
    return lugar.bytesNome == nome.size() && *outro == nome.front() && nome == std::string_view(outro, nome.size());
  };
  std::size_t i = 0;
  while (i < lugares_.size() && (nome.empty() || !eEste(lugares_[i])))
    ++i;
  return i;
}

// Elements of a kind follow each other and have the same names in the same order: the name that the last list had in
// this place need not be checked again.
bool CAtributosMarcacao::EhHabitual(const char* nome) const {
  if (!saoHabituais_ || lugares_.size() == habituais_.size()) return false;
  const Habitual& habitual = habituais_[lugares_.size()];
  if (habitual.bytes == 0) return false;
  const std::size_t bytes = habitual.bytes - kBytesEmVolta;
  return std::strncmp(nome, habitual.marca.data() + 1, bytes) == 0 && nome[bytes] == '\0';
}

// Returns false for a name that no attribute can have, or that the list has already.
bool CAtributosMarcacao::AcrescentaNovo(const char* nome) {
  if (saoHabituais_) habituais_.resize(lugares_.size());
  saoHabituais_ = false;
  const std::size_t inicio = Marca().size();
  marca_.Acrescenta(' ');
  if (!AcrescentaNome(nome, marca_) || Busca(Marca().substr(inicio + 1)) != lugares_.size()) return false;
  marca_.Acrescenta('=');
  marca_.Acrescenta('"');
  if (habituais_.size() == lugares_.size()) {
    Habitual& habitual = habituais_.emplace_back();
    const std::string_view marca = Marca().substr(inicio);
    if (marca.size() <= habitual.marca.size()) habitual.bytes = marca.copy(habitual.marca.data(), marca.size());
  }
  return true;
}

HRESULT CAtributosMarcacao::Adiciona(const char* nome, const char* valor) {
  if (!completa_) return E_INVALIDARG;
  completa_ = false;
  try {
    const std::size_t inicio = Marca().size();
    if (nome == nullptr) return E_INVALIDARG;
    if (EhHabitual(nome)) {
      const Habitual& habitual = habituais_[lugares_.size()];
      char* const lugar = marca_.Espaco(habitual.marca.size());
      std::memcpy(lugar, habitual.marca.data(), habitual.marca.size());
      marca_.Ocupa(lugar + habitual.bytes);
    } else if (!AcrescentaNovo(nome)) {
      return E_INVALIDARG;
    }
    const std::size_t bytes = Marca().size() - inicio - kBytesEmVolta;
    if (Marca().size() > std::numeric_limits<std::uint32_t>::max()) return E_OUTOFMEMORY;
    lugares_.push_back({static_cast<std::uint32_t>(inicio + 1), static_cast<std::uint32_t>(bytes)});
    AcrescentaValor(valor != nullptr ? valor : "", marca_);
    marca_.Acrescenta('"');
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  completa_ = true;
  return S_OK;
}

HRESULT CAtributosMarcacao::BuscaValor(const char* nome, const char** valor) {
  if (nome == nullptr || valor == nullptr) return E_POINTER;
  *valor = nullptr;
  const std::size_t i = Busca(nome);
  if (!completa_ || i == lugares_.size()) return E_FAIL;
  // The name is followed by =" and the value, whose own quotes are references.
  const std::size_t inicio = lugares_[i].nome + lugares_[i].bytesNome + 2;
  try {
    *valor = ValorDe(Marca().substr(inicio, Marca().find('"', inicio) - inicio), valor_);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CAtributosMarcacao::Limpa() {
  marca_.Corta(0);
  lugares_.clear();
  saoHabituais_ = true;
  completa_ = true;
  return S_OK;
}

}  // namespace kestor
