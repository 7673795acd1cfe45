// Reading a block of bytes from front to back.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "automatic_array_exception.h"
#include "contract/campo_texto.h"

namespace kestor {

// Numbers are little-endian and need no alignment. A read beyond the end of the bytes consumes nothing and throws
// XUtil::CAutomaticArrayException. The bytes must outlive the reader and the views that it returns.
class LeitorBytes {
 public:
  explicit LeitorBytes(std::string_view bytes) : bytes_(bytes) {}

  std::string_view Bytes(std::size_t quantidade) {
    Exige(quantidade <= Restante().size());
    const std::string_view lidos = bytes_.substr(posicao_, quantidade);
    posicao_ += quantidade;
    return lidos;
  }

  template <typename Valor>
  Valor Le() {
    static_assert(std::is_arithmetic_v<Valor>);
    Valor valor{};
    std::memcpy(&valor, Bytes(sizeof valor).data(), sizeof valor);
    return valor;
  }

  std::string_view Texto(std::size_t largura) { return TextoDoCampo(Bytes(largura)); }

  // Reads `quantidade` records of `largura` bytes, all or none.
  std::string_view Registros(std::size_t quantidade, std::size_t largura) {
    Exige(quantidade <= Restante().size() / largura);
    return Bytes(quantidade * largura);
  }

  std::string_view Restante() const { return bytes_.substr(posicao_); }  // what is still to be read

 private:
  static void Exige(bool haBytes) {
    if (!haBytes) throw XUtil::CAutomaticArrayException(XUtil::CAutomaticArrayException::kAlemDoFim);
  }

  std::string_view bytes_;
  std::size_t posicao_ = 0;
};

}  // namespace kestor
