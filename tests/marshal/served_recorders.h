// A server's end of calls, with recording objects behind it.
#pragma once

#include <algorithm>

#include "marshal/marshal.h"
#include "recorder.h"

namespace served {

inline const com::Marshaler& MarshalerOf(const IID& iid) {
  static const auto all = marshal::Marshalers();
  return *std::find_if(all.begin(), all.end(), [&iid](const auto& marshaler) { return marshaler.iid == iid; });
}

class Recorders final : public channel::Service {
 public:
  HRESULT Create(const std::byte* interfaceId, std::unique_ptr<channel::Session>* session) override {
    IID iid{};
    std::memcpy(&iid, interfaceId, sizeof iid);
    ComPtr<IUnknown> object;
    if (iid == IID_IZNPL_Rel) *object.Out() = new recorder::Rel(script);
    if (iid == IID_IZNPL_Relatorio2) *object.Out() = new recorder::Relatorio2(script);
    if (iid == IID_IZNPL_RelConverte) *object.Out() = new recorder::RelConverte(script);
    *session = std::make_unique<StubSession>(MarshalerOf(iid).newStub(object.Get()), tamper);
    return S_OK;
  }

  recorder::Script script;
  std::function<void(channel::Encoder&)> tamper;  // changes answers before they go out

 private:
  struct StubSession final : channel::Session {
    StubSession(std::unique_ptr<com::CallStub> made, const std::function<void(channel::Encoder&)>& by)
        : stub(std::move(made)), tamper(by) {}

    HRESULT Call(std::uint16_t slot, channel::Decoder& arguments, channel::Encoder& out) override {
      const HRESULT result = stub->Invoke(slot, arguments, out);
      if (tamper) tamper(out);
      return result;
    }

    std::unique_ptr<com::CallStub> stub;
    const std::function<void(channel::Encoder&)>& tamper;
  };
};

}  // namespace served
