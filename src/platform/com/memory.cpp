#include <cstdlib>
#include <limits>
#include <string_view>

#include "com.h"

namespace {

using BstrLength = std::uint32_t;  // precedes a BSTR's text: its length in bytes without the NUL

// Room after the text for a NUL of a whole character, which starts one byte late when the text has an odd number of
// bytes.
constexpr std::size_t kTailBytes = 2 * sizeof(OLECHAR) - 1;

constexpr BstrLength kMaxTextBytes = std::numeric_limits<BstrLength>::max() - sizeof(BstrLength) - kTailBytes;

// Allocates a BSTR with `bytes` bytes of uninitialised text.
BSTR AllocateBstr(std::size_t bytes) {
  if (bytes > kMaxTextBytes) return nullptr;
  const auto length = static_cast<BstrLength>(bytes);
  auto* block = static_cast<std::byte*>(std::malloc(sizeof length + bytes + kTailBytes));
  if (block == nullptr) return nullptr;
  std::memcpy(block, &length, sizeof length);
  std::memset(block + sizeof length + bytes, 0, kTailBytes);
  return reinterpret_cast<BSTR>(block + sizeof length);
}

}  // namespace

void* CoTaskMemAlloc(std::size_t bytes) {
  return std::malloc(bytes == 0 ? 1 : bytes);
}

void CoTaskMemFree(void* block) {
  std::free(block);
}

BSTR SysAllocString(const OLECHAR* text) {
  if (text == nullptr) return nullptr;
  const std::size_t bytes = std::u16string_view(text).size() * sizeof(OLECHAR);
  const BSTR copy = AllocateBstr(bytes);
  if (copy != nullptr) std::memcpy(copy, text, bytes);
  return copy;
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT characters) {
  const std::size_t bytes = std::size_t{characters} * sizeof(OLECHAR);
  const BSTR copy = AllocateBstr(bytes);
  if (copy != nullptr && text != nullptr) std::memcpy(copy, text, bytes);
  return copy;
}

BSTR SysAllocStringByteLen(const char* bytes, UINT count) {
  const BSTR copy = AllocateBstr(count);
  if (copy != nullptr && bytes != nullptr) std::memcpy(copy, bytes, count);
  return copy;
}

void SysFreeString(BSTR text) {
  if (text != nullptr) std::free(reinterpret_cast<std::byte*>(text) - sizeof(BstrLength));
}

UINT SysStringLen(BSTR text) {
  return SysStringByteLen(text) / sizeof(OLECHAR);
}

UINT SysStringByteLen(BSTR text) {
  if (text == nullptr) return 0;
  BstrLength length = 0;
  std::memcpy(&length, reinterpret_cast<const std::byte*>(text) - sizeof length, sizeof length);
  return length;
}

void VariantInit(VARIANT* value) {
  *value = VARIANT{};
}

HRESULT VariantClear(VARIANT* value) {
  if (value == nullptr) return E_INVALIDARG;
  switch (value->vt) {
    case VT_EMPTY:
    case VT_I4:
      break;
    case VT_BSTR:
      SysFreeString(value->bstrVal);
      break;
    case VT_UNKNOWN:
      if (value->punkVal != nullptr) value->punkVal->Release();
      break;
    default:
      return E_INVALIDARG;
  }
  VariantInit(value);
  return S_OK;
}
