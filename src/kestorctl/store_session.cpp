#include "store_session.h"

#include <new>

#include "explanation.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

BSTR ToBstr(const std::u16string& text) {
  const BSTR made = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  if (made == nullptr) throw std::bad_alloc();
  return made;
}

}  // namespace

Bstr::Bstr(const std::string& utf8) : text_(ToBstr(text::Utf8ToUtf16(utf8))) {}

ReportStore::ReportStore(const std::string& module, const std::string& component) {
  RequireHome();
  result_ =
      CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2, store_.OutVoid());
  if (SUCCEEDED(result_)) result_ = store_->Inicializa(Bstr(module).Get(), Bstr(component).Get());
  if (FAILED(result_)) detail_ = Explain(result_, CLSID_ZNPL_Relatorio2, module);
}

}  // namespace kestorctl
