#include "common/texto_bstr.h"

#include <new>

#include "platform/text/text.h"

namespace kestor {

std::string TextoDeBstr(BSTR texto) {
  return text::FromUtf16(VisaoDeBstr(texto));
}

std::u16string_view VisaoDeBstr(BSTR texto) {
  if (texto == nullptr) return {};
  const std::u16string_view todo(texto, SysStringLen(texto));
  return todo.substr(0, todo.find(u'\0'));
}

OwnedBstr NovoBstr(std::string_view texto) {
  return NovoBstr(std::u16string_view(text::ToUtf16(texto)));
}

OwnedBstr NovoBstr(std::u16string_view texto) {
  OwnedBstr novo(SysAllocStringLen(texto.data(), static_cast<UINT>(texto.size())));
  if (!novo) throw std::bad_alloc();
  return novo;
}

}  // namespace kestor
