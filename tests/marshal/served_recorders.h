// A server's end of calls, with recording objects behind it.
#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include "marshal/marshal.h"
#include "platform/channel/channel.h"
#include "recorder.h"

namespace served {

using Tamper = std::function<void(channel::Encoder&)>;

// A stub of the server, whose answers can be changed before they go out.
class TamperedSession final : public channel::Session {
 public:
  TamperedSession(const Tamper& tamper, std::unique_ptr<com::CallStub> stub)
      : tamper_(tamper), stub_(std::move(stub)) {}

  HRESULT Call(std::uint16_t slot, channel::Decoder& arguments, channel::Encoder& out) override {
    const HRESULT result = stub_->Invoke(slot, arguments, out);
    if (tamper_) tamper_(out);
    return result;
  }

 private:
  const Tamper& tamper_;
  std::unique_ptr<com::CallStub> stub_;
};

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
    *session = std::make_unique<TamperedSession>(tamper, MarshalerOf(iid).newStub(object.Get()));
    return S_OK;
  }

  recorder::Script script;
  Tamper tamper;
};

}  // namespace served
