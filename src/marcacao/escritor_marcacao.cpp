#include "escritor_marcacao.h"

#include <limits>
#include <new>

#include "atributos_marcacao.h"
#include "texto_marcacao.h"

namespace kestor {

namespace {

constexpr const char* kDeclaracao = R"(<?xml version="1.0" encoding="UTF-8"?>)";
constexpr std::size_t kBlanksANivel = 2;

}  // namespace

CEscritorMarcacao::~CEscritorMarcacao() {
  if (saida_ != nullptr) saida_->Release();
}

// Does a step of the document unless one before it has failed.
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
    documento_ = kDeclaracao;
    return S_OK;
  });
}

void CEscritorMarcacao::NovaLinha() {
  documento_.push_back('\n');
  documento_.append(abertos_.size() * kBlanksANivel, ' ');
}

HRESULT CEscritorMarcacao::IniciaElemento(const char* nome, IAtributosMarcacao* atributos) {
  return Executa([&]() -> HRESULT {
    const bool raizFechada = abertos_.empty() && documento_.size() > std::string_view(kDeclaracao).size();
    if (raizFechada) return E_FAIL;
    if (nome == nullptr || !NomeValido(nome)) return E_INVALIDARG;
    if (marcaAberta_) documento_.push_back('>');
    NovaLinha();
    documento_.push_back('<');
    documento_.append(nome);
    if (atributos != nullptr) {
      const CAtributosMarcacao* lista = CAtributosMarcacao::De(atributos);
      if (lista == nullptr || !lista->Completa()) return E_INVALIDARG;
      for (std::size_t i = 0; i < lista->Quantidade(); ++i) {
        const CAtributosMarcacao::Par par = lista->Atributo(i);
        documento_.push_back(' ');
        documento_.append(par.nome);
        documento_.append("=\"");
        AcrescentaValor(par.valor, documento_);
        documento_.push_back('"');
      }
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
      documento_.append("/>");
    } else {
      NovaLinha();
      documento_.append("</").append(nome).push_back('>');
    }
    marcaAberta_ = false;
    return S_OK;
  });
}

HRESULT CEscritorMarcacao::FinalizaDocumento() {
  const HRESULT resultado = Executa([&]() -> HRESULT {
    const bool temRaiz = documento_.size() > std::string_view(kDeclaracao).size();
    if (!abertos_.empty() || !temRaiz || saida_ == nullptr) return E_FAIL;
    documento_.push_back('\n');
    if (documento_.size() > std::numeric_limits<ULONG>::max()) return E_OUTOFMEMORY;
    const auto bytes = static_cast<ULONG>(documento_.size());
    ULONG escritos = 0;
    const HRESULT escrita = saida_->Write(documento_.data(), bytes, &escritos);
    return SUCCEEDED(escrita) && escritos != bytes ? E_FAIL : escrita;
  });
  documento_.clear();
  resultado_ = E_FAIL;  // until the next document begins
  return resultado;
}

}  // namespace kestor
