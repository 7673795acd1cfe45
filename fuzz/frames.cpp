// Whatever the bytes of a frame, a stub answers with a result, and a proxy gives its caller a complete answer or
// nothing.
//
// The first byte chooses the interface and whether the rest is a request or an answer, the second the slot.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "marshal/served_recorders.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// Returns whether a request asks for a large buffer. The object then fails instead of filling it, to keep a run short.
bool AsksForMuch(channel::Decoder arguments) {
  constexpr std::uint32_t kMuch = 1u << 16;
  return arguments.U32() > kMuch;
}

void Serve(std::size_t index, std::uint16_t slot, channel::Decoder arguments) {
  recorder::Script script;
  if (AsksForMuch(arguments)) script.result = E_FAIL;
  {
    const com::Marshaler marshaler = marshal::Marshalers().at(index);
    const ComPtr<IUnknown> object = recorder::NewObject(marshaler.iid, script);
    const auto stub = marshaler.newStub(object.Get());
    channel::Encoder out;
    out.BeginFrame(channel::FrameType::result, slot);
    out.U32(0);
    const HRESULT result = stub->Invoke(slot, arguments, out);
    if (result == rpc::kBadStubData || result == rpc::kSlotOutOfRange) {
      Require(script.noted.empty());
      Require(out.PayloadBytes() == 4);
    }
  }
  Require(script.objects == 0);
}

// The out-arguments must be unchanged unless the whole answer was good.
template <typename Record>
void TakeRecord(channel::Decoder in) {
  Record* record = nullptr;
  marshal::sent::OutRecord argument(&record);
  if (marshal::TakeAnswer(S_OK, in, argument) != S_OK) {
    Require(record == nullptr);
    return;
  }
  if (record == nullptr) return;
  CoTaskMemFree(marshal::Items(*record));
  CoTaskMemFree(record);
}

void TakeFilledRecord(channel::Decoder in) {
  REG_ARRAY_RELATORIO2 record{};
  marshal::sent::OutFilledRecord argument(&record);
  if (marshal::TakeAnswer(S_OK, in, argument) != S_OK) Require(record.pregRelatorios == nullptr);
  CoTaskMemFree(record.pregRelatorios);
}

void TakeTextAndNumber(channel::Decoder in) {
  BSTR text = nullptr;
  LONG number = 0;
  marshal::sent::OutText first(&text);
  marshal::sent::OutValue second(&number);
  if (marshal::TakeAnswer(S_OK, in, first, second) != S_OK) Require(text == nullptr && number == 0);
  SysFreeString(text);
}

void TakeBuffer(channel::Decoder in) {
  unsigned char items[16] = {};
  marshal::sent::OutBuffer argument(LONG{sizeof items}, items);
  marshal::TakeAnswer(S_OK, in, argument);
}

void TakeNote(channel::Decoder in) {
  const std::size_t most = in.Left();
  channel::Note note{};
  if (channel::TakeNote(in, &note)) {
    Require(note.name.size() + note.reason.size() + note.before.size() + note.after.size() + 22 == most);
  }
}

void Receive(std::uint16_t kind, channel::Decoder answer) {
  switch (kind % 9) {
    case 0:
      return TakeRecord<tagREG_RELEXPORTACAO>(answer);
    case 1:
      return TakeRecord<tagFILTRO_RELATORIO>(answer);
    case 2:
      return TakeRecord<REG_CAMPOS_DISPONIVEIS2>(answer);
    case 3:
      return TakeRecord<REG_RELATORIO2>(answer);
    case 4:
      return TakeRecord<REG_ARRAY_RELATORIO2>(answer);
    case 5:
      return TakeFilledRecord(answer);
    case 6:
      return TakeTextAndNumber(answer);
    case 7:
      return TakeNote(answer);
    default:
      return TakeBuffer(answer);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  // A copy of exactly the payload, so that a sanitizer notices reads beyond it.
  const auto payload = std::make_unique<std::byte[]>(size - 2);
  std::memcpy(payload.get(), data + 2, size - 2);
  const channel::Decoder bytes(payload.get(), size - 2);
  if (data[0] % 4 < 3) {
    Serve(data[0] % 4, data[1], bytes);
  } else {
    Receive(data[1], bytes);
  }
  return 0;
}
