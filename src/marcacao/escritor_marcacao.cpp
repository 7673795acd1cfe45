#include "escritor_marcacao.h"

#include <algorithm>
#include <limits>
#include <new>

#include "atributos_marcacao.h"

namespace kestor {

namespace {

constexpr std::string_view kDeclaracao = R"(<?xml version="1.0" encoding="UTF-8"?>)";
constexpr std::size_t kBrancosNivel = 2;
constexpr std::size_t kBytesUsuais = 16384;  // of a document of some 60 columns
constexpr std::size_t kBytesMaximos = std::size_t{128} * 1024 * 1024;

}  // namespace

CEscritorMarcacao::~CEscritorMarcacao() {
  if (saida_ != nullptr) saida_->Release();
}

// Runs a step of the document unless an earlier one has failed.
template <typename Operacao>
HRESULT CEscritorMarcacao::Executa(const Operacao& operacao) {
  if (FAILED(resultado_)) return resultado_;
  try {
    resultado_ = operacao();
  } catch (const std::bad_alloc&) {
    resultado_ = E_OUTOFMEMORY;
  }
  return resultado_;
}

HRESULT CEscritorMarcacao::DefineSaida(IStream* saida) {
  if (saida != nullptr) saida->AddRef();
  if (saida_ != nullptr) saida_->Release();
  saida_ = saida;
  return S_OK;
}

HRESULT CEscritorMarcacao::IniciaDocumento() {
  abertos_.clear();
  marcaAberta_ = false;
  resultado_ = S_OK;
  return Executa([&] {
    documento_.Corta(0);
    documento_.Espaco(kBytesUsuais);
    documento_.Acrescenta(kDeclaracao);
    return S_OK;
  });
}

void CEscritorMarcacao::NovaLinha() {
  const std::size_t brancos = abertos_.size() * kBrancosNivel;
  char* const linha = documento_.Espaco(1 + brancos);
  *linha = '\n';
  documento_.Ocupa(std::fill_n(linha + 1, brancos, ' '));
}

HRESULT CEscritorMarcacao::IniciaElemento(const char* nome, IAtributosMarcacao* atributos) {
  return Executa([&]() -> HRESULT {
    const bool raizFechada = abertos_.empty() && documento_.Texto().size() > kDeclaracao.size();
    if (raizFechada) return E_FAIL;
    if (documento_.Texto().size() > kBytesMaximos) return E_OUTOFMEMORY;
    if (marcaAberta_) documento_.Acrescenta('>');
    NovaLinha();
    documento_.Acrescenta('<');
    if (nome == nullptr || !AcrescentaNome(nome, documento_)) return E_INVALIDARG;
    if (atributos != nullptr) {
      const CAtributosMarcacao* lista = CAtributosMarcacao::De(atributos);
      if (lista == nullptr || !lista->Completa()) return E_INVALIDARG;
      documento_.Acrescenta(lista->Marca());
    }
    abertos_.emplace_back(nome);
    marcaAberta_ = true;
    return S_OK;
  });
}

HRESULT CEscritorMarcacao::FinalizaElemento(const char* nome) {
  return Executa([&]() -> HRESULT {
    if (nome == nullptr || abertos_.empty() || abertos_.back() != nome) return E_INVALIDARG;
    abertos_.pop_back();
    if (marcaAberta_) {
      documento_.Acrescenta("/>");
    } else {
      NovaLinha();
      documento_.Acrescenta("</");
      documento_.Acrescenta(nome);
      documento_.Acrescenta('>');
    }
    marcaAberta_ = false;
    return S_OK;
  });
}

HRESULT CEscritorMarcacao::FinalizaDocumento() {
  const HRESULT resultado = Executa([&]() -> HRESULT {
    const bool temRaiz = documento_.Texto().size() > kDeclaracao.size();
    if (!abertos_.empty() || !temRaiz || saida_ == nullptr) return E_FAIL;
    documento_.Acrescenta('\n');
    if (documento_.Texto().size() > std::numeric_limits<ULONG>::max()) return E_OUTOFMEMORY;
    const auto bytes = static_cast<ULONG>(documento_.Texto().size());
    ULONG escritos = 0;
    const HRESULT escrita = saida_->Write(documento_.Texto().data(), bytes, &escritos);
    return SUCCEEDED(escrita) && escritos != bytes ? E_FAIL : escrita;
  });
  documento_.Corta(0);
  resultado_ = E_FAIL;  // until the next document begins
  return resultado;
}

}  // namespace kestor
