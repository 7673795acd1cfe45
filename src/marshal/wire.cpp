#include "wire.h"

#include <new>

namespace marshal {

namespace {

// In the place of a text's length.
constexpr std::uint32_t kNullText = 0xFFFFFFFF;

}  // namespace

void PutBytes(channel::Encoder& out, const void* bytes, std::size_t count) {
  if (count > channel::kMaxPayloadBytes - out.PayloadBytes()) throw FrameFull();
  out.Bytes(bytes, count);
}

void PutText(channel::Encoder& out, BSTR text) {
  if (text == nullptr) {
    PutValue(out, kNullText);
    return;
  }
  const UINT bytes = SysStringByteLen(text);
  PutValue(out, bytes);
  PutBytes(out, text, bytes);
}

OwnedBstr TakeText(channel::Decoder& in) {
  const std::uint32_t length = in.U32();
  if (!in.Ok() || length == kNullText) return nullptr;
  const std::byte* bytes = in.Bytes(length);
  if (bytes == nullptr) return nullptr;
  OwnedBstr text(SysAllocStringByteLen(reinterpret_cast<const char*>(bytes), length));
  if (!text) throw std::bad_alloc();
  return text;
}

bool TakePresence(channel::Decoder& in) {
  const std::uint8_t presence = in.U8();
  if (presence > 1) in.Fail();
  return presence == 1;
}

void PutArray(channel::Encoder& out, const void* items, std::size_t bytes) {
  PutValue(out, std::uint8_t{items != nullptr});
  if (items != nullptr) PutBytes(out, items, bytes);
}

ArrayBytes TakeArray(channel::Decoder& in, std::size_t bytes) {
  const bool isThere = TakePresence(in);
  return {isThere, isThere ? in.Bytes(bytes) : nullptr};
}

}  // namespace marshal
