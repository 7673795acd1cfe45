// Objects that say why a call ended as it did.
#pragma once

#include <string>

#include "platform/com/object.h"

namespace com {

// Error information that is one sentence. It has no other source of help.
class ErrorInfo : public CountedObject<IErrorInfo, IID_IErrorInfo> {
 public:
  HRESULT GetGUID(GUID* interfaceId) final;
  HRESULT GetSource(BSTR* program) final;
  HRESULT GetDescription(BSTR* description) final;
  HRESULT GetHelpFile(BSTR* path) final;
  HRESULT GetHelpContext(DWORD* context) final;

  // UTF-8. Made when somebody asks for it; a call that fails costs no more until then. Throws std::bad_alloc.
  virtual std::string Sentence() const = 0;

  // The same without what takes long to find out.
  virtual std::string BriefSentence() const { return Sentence(); }
};

// The sentence of any error information; empty when it has none.
std::string DescriptionOf(IErrorInfo& information);

// The same, brief where it is an ErrorInfo.
std::string BriefDescriptionOf(IErrorInfo& information);

// What was set for the calling thread in this process, and nothing of another process.
ComPtr<IErrorInfo> TakeOwnErrorInfo();

}  // namespace com
