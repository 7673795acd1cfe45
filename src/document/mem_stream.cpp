#include "document/mem_stream.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace kestor {

namespace {

constexpr ULONG kPasso = 1024;

}  // namespace

CMemStream::CMemStream() : buffer_(static_cast<std::uint8_t*>(std::malloc(kPasso))) {
  if (buffer_ != nullptr) capacity_ = kPasso;
}

CMemStream::CMemStream(const void* bytes, ULONG quantidade)
    : buffer_(static_cast<std::uint8_t*>(std::malloc(quantidade))) {
  if (buffer_ == nullptr || quantidade == 0) return;
  std::memcpy(buffer_, bytes, quantidade);
  capacity_ = quantidade;
  size_ = quantidade;
}

CMemStream::~CMemStream() {
  std::free(buffer_);
}

HRESULT CMemStream::Read(void* destination, ULONG count, ULONG* countRead) {
  const ULONG n = std::min(count, size_ - position_);
  if (n > 0) std::memcpy(destination, buffer_ + position_, n);
  position_ += n;
  if (countRead != nullptr) *countRead = n;
  return S_OK;
}

HRESULT CMemStream::Write(const void* source, ULONG count, ULONG* countWritten) {
  if (countWritten != nullptr) *countWritten = 0;
  const ULONG room = capacity_ - size_;
  if (count > room) {
    const std::uint64_t steps = (std::uint64_t{count} - room + kPasso - 1) / kPasso;
    const std::uint64_t capacity = capacity_ + steps * kPasso;
    if (capacity > std::numeric_limits<ULONG>::max()) return E_OUTOFMEMORY;
    auto* grown = static_cast<std::uint8_t*>(std::realloc(buffer_, capacity));
    if (grown == nullptr) return E_OUTOFMEMORY;
    buffer_ = grown;
    capacity_ = static_cast<ULONG>(capacity);
  }
  if (count > 0) std::memcpy(buffer_ + size_, source, count);
  size_ += count;
  if (countWritten != nullptr) *countWritten = count;
  return S_OK;
}

HRESULT CMemStream::Stat(STATSTG* status, DWORD /*flag*/) {
  if (status == nullptr) return E_POINTER;
  *status = {};
  status->type = STGTY_STREAM;
  status->cbSize = size_;
  return S_OK;
}

}  // namespace kestor
