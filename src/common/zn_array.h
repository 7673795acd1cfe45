// The common library's growable array.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <type_traits>

#include "common/zn_exception.h"

namespace ZN {

// Keeps elements in the order in which they were added. Its storage is empty at first and grows by a fixed number of
// elements.
template <typename Elemento>
class CArray {
  static_assert(std::is_trivially_copyable_v<Elemento>, "elements move with their storage");

 public:
  explicit CArray(std::size_t passo) : passo_(passo) {}
  CArray(const CArray&) = delete;
  CArray& operator=(const CArray&) = delete;

  // Throws CException if the storage cannot grow; nothing is added then.
  void Add(const Elemento& elemento) {
    const Elemento copia = elemento;  // the element may lie in the storage that is about to move
    if (quantidade_ == capacidade_) Cresce();
    elementos_.get()[quantidade_++] = copia;
  }

  std::size_t Count() const { return quantidade_; }
  std::size_t Capacity() const { return capacidade_; }
  Elemento& operator[](std::size_t posicao) { return elementos_.get()[posicao]; }
  const Elemento& operator[](std::size_t posicao) const { return elementos_.get()[posicao]; }
  const Elemento* begin() const { return elementos_.get(); }
  const Elemento* end() const { return elementos_.get() + quantidade_; }

 private:
  struct Liberacao {
    void operator()(void* bloco) const { std::free(bloco); }
  };

  static constexpr std::size_t kMaximo = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Elemento);

  void Cresce() {
    const bool cabe = passo_ <= kMaximo - capacidade_;
    void* maior = cabe ? std::realloc(elementos_.get(), (capacidade_ + passo_) * sizeof(Elemento)) : nullptr;
    if (maior == nullptr) throw CException(0, "ZN::CArray::Add - mem\xF3ria insuficiente", "common\\array", __LINE__);
    static_cast<void>(elementos_.release());  // reallocation has freed it
    elementos_.reset(static_cast<Elemento*>(maior));
    capacidade_ += passo_;
  }

  std::unique_ptr<Elemento, Liberacao> elementos_;
  std::size_t capacidade_ = 0;
  const std::size_t passo_;
  std::size_t quantidade_ = 0;
};

}  // namespace ZN
