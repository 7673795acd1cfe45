#include "common/texto_bstr.h"

#include <string_view>

#include "platform/text/text.h"

namespace kestor {

std::string TextoDeBstr(BSTR texto) {
  if (texto == nullptr) return {};
  const std::u16string_view todo(texto, SysStringLen(texto));
  return text::FromUtf16(todo.substr(0, todo.find(u'\0')));
}

}  // namespace kestor
