
#include "platform/com/error_info.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "platform/com/marshaler.h"
#include "platform/text/text.h"

namespace {

class ReceivedReason final : public com::ErrorInfo {
 public:
  explicit ReceivedReason(std::string sentence) : sentence_(std::move(sentence)) {}
  std::string Sentence() const override { return sentence_; }

 private:
  const std::string sentence_;
};

// The calling thread's own information, and its last call on an object of another process, which holds that call's
// information.
thread_local ComPtr<IErrorInfo> own;
thread_local std::weak_ptr<com::Line> lastLine;
thread_local std::uint64_t lastCall = 0;

std::string ReasonOfLastCall() {
  const std::shared_ptr<com::Line> line = std::exchange(lastLine, {}).lock();
  if (!line) return {};
  const std::lock_guard hold(line->mutex);
  return line->calls == lastCall ? line->connection->AskReason() : std::string();
}

}  // namespace

namespace com {

HRESULT ErrorInfo::GetGUID(GUID* interfaceId) {
  *interfaceId = {};
  return S_OK;
}

HRESULT ErrorInfo::GetSource(BSTR* program) {
  *program = nullptr;
  return S_OK;
}

HRESULT ErrorInfo::GetDescription(BSTR* description) {
  *description = nullptr;
  try {
    const std::u16string sentence = text::Utf8ToUtf16(Sentence());
    *description = SysAllocStringLen(sentence.data(), static_cast<UINT>(sentence.size()));
  } catch (const std::bad_alloc&) {
  }
  return *description == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT ErrorInfo::GetHelpFile(BSTR* path) {
  *path = nullptr;
  return S_OK;
}

HRESULT ErrorInfo::GetHelpContext(DWORD* context) {
  *context = 0;
  return S_OK;
}

void ForgetCall() {
  own.Reset();
  lastLine.reset();
}

void RememberCall(const std::shared_ptr<Line>& line) {
  lastLine = line;
  lastCall = line->calls;
}

std::string DescriptionOf(IErrorInfo& information) {
  BSTR description = nullptr;
  if (FAILED(information.GetDescription(&description)) || description == nullptr) return {};
  const OwnedBstr owner(description);
  return text::Utf16ToUtf8({description, SysStringLen(description)});
}

std::string BriefDescriptionOf(IErrorInfo& information) {
  const auto* own = dynamic_cast<const ErrorInfo*>(&information);
  return own != nullptr ? own->BriefSentence() : DescriptionOf(information);
}

ComPtr<IErrorInfo> TakeOwnErrorInfo() {
  return std::move(own);
}

}  // namespace com

HRESULT SetErrorInfo(ULONG /*reserved*/, IErrorInfo* information) {
  lastLine.reset();
  if (information != nullptr) information->AddRef();
  *own.Out() = information;
  return S_OK;
}

HRESULT GetErrorInfo(ULONG /*reserved*/, IErrorInfo** information) {
  if (information == nullptr) return E_INVALIDARG;
  *information = nullptr;
  try {
    ComPtr<IErrorInfo> taken = com::TakeOwnErrorInfo();
    if (!taken) {
      std::string reason = ReasonOfLastCall();
      if (reason.empty()) return S_FALSE;
      const HRESULT made = com::CreateObject([&]() -> IUnknown& { return *new ReceivedReason(std::move(reason)); },
                                             IID_IErrorInfo, taken.OutVoid());
      if (FAILED(made)) return made;
    }
    taken->AddRef();
    *information = taken.Get();
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}
