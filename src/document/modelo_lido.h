// Models as a store hands them out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "common/texto_bstr.h"
#include "contract/interfaces.h"

namespace kestor {

class ModeloLido {
 public:
  // Reads the model `nome` (code page 1252). The object is false if the store has no such model or cannot read it.
  // Throws std::bad_alloc.
  ModeloLido(IZNPL_Relatorio2& repositorio, std::string_view nome) {
    REG_RELATORIO2* recebido = nullptr;
    const HRESULT resultado = repositorio.Le(NovoBstr(nome).get(), &recebido);
    if (recebido != nullptr) bytes_.reset(recebido->lpRelatorio);
    TaskBlock<REG_RELATORIO2> registro(recebido);
    if (SUCCEEDED(resultado)) registro_ = std::move(registro);
  }

  explicit operator bool() const { return registro_ != nullptr; }
  const REG_RELATORIO2& operator*() const { return *registro_; }
  const REG_RELATORIO2* operator->() const { return registro_.get(); }
  std::size_t Bytes() const { return static_cast<std::size_t>(registro_->nQtdeBytes); }

  // Hands the content over to the caller.
  TaskBlock<std::uint8_t> Conteudo() { return std::move(bytes_); }

  // Compares version and content of two models that were read.
  bool operator==(const ModeloLido& outro) const {
    return registro_->nVersao == outro->nVersao && Texto() == outro.Texto();
  }

 private:
  std::string_view Texto() const { return {reinterpret_cast<const char*>(bytes_.get()), Bytes()}; }

  TaskBlock<REG_RELATORIO2> registro_;
  TaskBlock<std::uint8_t> bytes_;
};

}  // namespace kestor
