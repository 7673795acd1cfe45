#include "store_session.h"

#include "common/texto_bstr.h"
#include "explanation.h"
#include "platform/com/error_info.h"
#include "platform/com/long_calls.h"
#include "platform/text/text.h"

namespace kestorctl {

OwnedBstr ToBstr(const std::string& utf8) {
  return kestor::NovoBstr(text::Utf8ToUtf16(utf8));
}

std::string ReasonOfLastCall() {
  ComPtr<IErrorInfo> information;
  return GetErrorInfo(0, information.Out()) == S_OK ? com::DescriptionOf(*information) : std::string();
}

bool ServerIsOlder() {
  return com::Rehearse(CLSID_ZNPL_Rel, nullptr, 0, nullptr) == rpc::kVersionMismatch;
}

void StoreSession::Open(REFCLSID clsid, REFIID iid, void** store, const std::function<HRESULT()>& initialise) {
  RequireHome();
  result_ = CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER, iid, store);
  if (FAILED(result_)) {
    detail_ = ExplainActivation(result_, clsid);
    return;
  }
  result_ = initialise();
  detail_ = ReasonOfLastCall();
}

ReportStore::ReportStore(const std::string& module, const std::string& component) {
  Open(CLSID_ZNPL_Relatorio2, IID_IZNPL_Relatorio2, store_.OutVoid(), [&] {
    const com::Following following(&migration_);
    return store_->Inicializa(ToBstr(module).get(), ToBstr(component).get());
  });
}

LegacyStore::LegacyStore(const std::string& module, const std::string& component) {
  Open(CLSID_ZNPL_Rel, IID_IZNPL_Rel, store_.OutVoid(),
       [&] { return store_->Inicializa(nullptr, ToBstr(module).get(), ToBstr(component).get()); });
}

FieldConverter::FieldConverter() {
  Open(CLSID_ZNPL_RelConverte, IID_IZNPL_RelConverte, converter_.OutVoid(), [] { return S_OK; });
}

}  // namespace kestorctl
