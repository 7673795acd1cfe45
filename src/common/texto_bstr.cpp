#include "common/texto_bstr.h"

#include "platform/text/text.h"

namespace kestor {

std::string TextoDeBstr(BSTR texto) {
  const std::u16string_view todo = VisaoDeBstr(texto);
  return text::FromUtf16(todo.substr(0, todo.find(u'\0')));
}

std::u16string_view VisaoDeBstr(BSTR texto) {
  return texto == nullptr ? std::u16string_view() : std::u16string_view(texto, SysStringLen(texto));
}

BSTR BstrDeTexto(std::string_view texto) {
  const std::u16string largo = text::ToUtf16(texto);
  return SysAllocStringLen(largo.data(), static_cast<UINT>(largo.size()));
}

}  // namespace kestor
