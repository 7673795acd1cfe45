#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/channel/channel.h"

static_assert(std::endian::native == std::endian::little, "frames are little-endian and are copied as they stand");

namespace channel {

FrameHead ReadHead(const std::byte* head) {
  FrameHead result{};
  std::memcpy(&result.payloadBytes, head, sizeof result.payloadBytes);
  std::memcpy(&result.type, head + 4, sizeof result.type);
  std::memcpy(&result.slot, head + 6, sizeof result.slot);
  return result;
}

void WriteHead(const FrameHead& head, std::byte* to) {
  std::memcpy(to, &head.payloadBytes, sizeof head.payloadBytes);
  std::memcpy(to + 4, &head.type, sizeof head.type);
  std::memcpy(to + 6, &head.slot, sizeof head.slot);
}

Buffer::~Buffer() {
  Release();
}

Buffer::Buffer(Buffer&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

Buffer& Buffer::operator=(Buffer&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  std::swap(capacity_, other.capacity_);
  return *this;
}

void Buffer::Reserve(std::size_t capacity) {
  if (capacity <= capacity_) return;
  void* grown = std::realloc(data_, capacity);
  if (grown == nullptr) throw std::bad_alloc();
  data_ = static_cast<std::byte*>(grown);
  capacity_ = capacity;
}

std::byte* Buffer::Extend(std::size_t bytes) {
  if (bytes > capacity_ - size_) Reserve(std::max({size_ + bytes, capacity_ * 2, std::size_t{256}}));
  std::byte* start = data_ + size_;
  size_ += bytes;
  return start;
}

void Buffer::Append(const void* bytes, std::size_t count) {
  if (count != 0) std::memcpy(Extend(count), bytes, count);
}

void Buffer::DropFront(std::size_t bytes) {
  size_ -= bytes;
  if (size_ != 0) std::memmove(data_, data_ + bytes, size_);
}

void Buffer::Resize(std::size_t size) {
  size_ = size;
}

void Buffer::Release() {
  std::free(data_);
  data_ = nullptr;
  size_ = 0;
  capacity_ = 0;
}

void Encoder::BeginFrame(FrameType type, std::uint16_t slot) {
  frame_ = buffer_.Size();
  U32(0);
  U16(static_cast<std::uint16_t>(type));
  U16(slot);
}

void Encoder::EndFrame() {
  const auto bytes = static_cast<std::uint32_t>(PayloadBytes());
  std::memcpy(buffer_.Data() + frame_, &bytes, sizeof bytes);
}

template <typename T>
void Encoder::Scalar(T value) {
  std::memcpy(buffer_.Extend(sizeof value), &value, sizeof value);
}
template void Encoder::Scalar(std::uint16_t);
template void Encoder::Scalar(std::uint32_t);

void Encoder::PutU32(std::size_t offset, std::uint32_t value) {
  std::memcpy(buffer_.Data() + frame_ + kHeadBytes + offset, &value, sizeof value);
}

void Encoder::Clear() {
  // Does not keep the memory of one large frame for many small ones.
  constexpr std::size_t kKeptBytes = 1u << 20;
  if (buffer_.Capacity() > kKeptBytes) buffer_.Release();
  buffer_.Resize(0);
  frame_ = 0;
}

template <typename T>
T Decoder::Scalar() {
  T value = 0;
  if (const std::byte* bytes = Bytes(sizeof value)) std::memcpy(&value, bytes, sizeof value);
  return value;
}
template std::uint8_t Decoder::Scalar();
template std::uint16_t Decoder::Scalar();
template std::uint32_t Decoder::Scalar();

const std::byte* Decoder::Bytes(std::size_t count) {
  if (!ok_ || count > left_) {
    ok_ = false;
    return nullptr;
  }
  const std::byte* start = data_;
  data_ += count;
  left_ -= count;
  return start;
}

namespace {

void AppendText(std::string_view text, Encoder* frames) {
  frames->U32(static_cast<std::uint32_t>(text.size()));
  frames->Bytes(text.data(), text.size());
}

std::string_view TakeBytes(Decoder& payload, std::size_t count) {
  const std::byte* bytes = payload.Bytes(count);
  return bytes == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(bytes), count);
}

std::string_view TakeText(Decoder& payload) {
  const std::uint32_t count = payload.U32();
  return TakeBytes(payload, count);
}

}  // namespace

void AppendNote(const Note& note, Encoder* frames) {
  frames->BeginFrame(FrameType::note);
  frames->U16(note.fate);
  frames->U32(note.done);
  frames->U32(note.total);
  AppendText(note.name, frames);
  AppendText(note.reason, frames);
  const bool fits =
      frames->PayloadBytes() + sizeof(std::uint32_t) + note.before.size() + note.after.size() <= kMaxPayloadBytes;
  AppendText(fits ? note.before : std::string_view(), frames);
  if (fits) frames->Bytes(note.after.data(), note.after.size());
  frames->EndFrame();
}

bool TakeNote(Decoder& payload, Note* note) {
  note->fate = payload.U16();
  note->done = payload.U32();
  note->total = payload.U32();
  note->name = TakeText(payload);
  note->reason = TakeText(payload);
  note->before = TakeText(payload);
  note->after = TakeBytes(payload, payload.Left());
  return payload.Ok();
}

}  // namespace channel
