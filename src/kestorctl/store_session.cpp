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

void StoreSession::Open(REFCLSID clsid, REFIID iid, void** store, const std::string& module,
                        const std::function<HRESULT()>& initialise) {
  RequireHome();
  result_ = CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER, iid, store);
  if (SUCCEEDED(result_)) result_ = initialise();
  if (FAILED(result_)) detail_ = Explain(result_, clsid, module);
}

ReportStore::ReportStore(const std::string& module, const std::string& component) {
  Open(CLSID_ZNPL_Relatorio2, IID_IZNPL_Relatorio2, store_.OutVoid(), module,
       [&] { return store_->Inicializa(Bstr(module).Get(), Bstr(component).Get()); });
}

LegacyStore::LegacyStore(const std::string& module, const std::string& component) {
  Open(CLSID_ZNPL_Rel, IID_IZNPL_Rel, store_.OutVoid(), module,
       [&] { return store_->Inicializa(nullptr, Bstr(module).Get(), Bstr(component).Get()); });
}

FieldConverter::FieldConverter() {
  Open(CLSID_ZNPL_RelConverte, IID_IZNPL_RelConverte, converter_.OutVoid(), {}, [] { return S_OK; });
}

}  // namespace kestorctl
