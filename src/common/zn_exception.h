// The exception that the common library's containers throw.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ZN {

// Stores its texts inline, because it is thrown when memory has run out. Texts are code page 1252.
class CException {
 public:
  static constexpr std::size_t kMaximoMensagem = 149;
  static constexpr std::size_t kMaximoFonte = 259;

  // Cuts texts that are too long.
  CException(std::uint32_t codigo, const char* mensagem, const char* fonte, std::uint32_t linha)
      : codigo_(codigo), linha_(linha) {
    std::strncpy(mensagem_.data(), mensagem, kMaximoMensagem);
    std::strncpy(fonte_.data(), fonte, kMaximoFonte);
  }

  std::uint32_t Codigo() const { return codigo_; }
  const char* Mensagem() const { return mensagem_.data(); }
  const char* Fonte() const { return fonte_.data(); }  // name of the source that threw it
  std::uint32_t Linha() const { return linha_; }       // and the line there

 private:
  std::uint32_t codigo_;
  std::uint32_t linha_;
  std::array<char, kMaximoMensagem + 1> mensagem_{};
  std::array<char, kMaximoFonte + 1> fonte_{};
};

}  // namespace ZN
