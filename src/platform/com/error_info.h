// Objects that say why a call ended as it did.
#pragma once

#include <string>

#include "platform/com/object.h"

namespace com {

// Error information that is one sentence, without a program, a help file or a help context.
class ErrorInfo : public CountedObject<IErrorInfo, IID_IErrorInfo> {
 public:
  HRESULT GetGUID(GUID* interfaceId) final;
  HRESULT GetSource(BSTR* program) final;
  HRESULT GetDescription(BSTR* description) final;
  HRESULT GetHelpFile(BSTR* path) final;
  HRESULT GetHelpContext(DWORD* context) final;

  // Returns the sentence in UTF-8. It is composed only on request, so that a failing call costs no more than its
  // result. Throws std::bad_alloc.
  virtual std::string Sentence() const = 0;

  // Returns the sentence without what takes long to find out.
  virtual std::string BriefSentence() const { return Sentence(); }
};

// Returns the sentence of any error information; empty when it has none.
std::string DescriptionOf(IErrorInfo& information);

// Like DescriptionOf, but brief for an ErrorInfo.
std::string BriefDescriptionOf(IErrorInfo& information);

// Takes what was set for the calling thread in this process. Asks no other process.
ComPtr<IErrorInfo> TakeOwnErrorInfo();

}  // namespace com
