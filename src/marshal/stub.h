// The server's half: a stub decodes the calls of one client, makes them on the object and encodes the results. An
// interface is a table of its slots, one line per method; everything else is here.
#pragma once

#include <cstdlib>
#include <memory>
#include <new>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

#include "contract/results.h"
#include "platform/com/marshaler.h"
#include "wire.h"

namespace marshal {

// The kinds of arguments. In this order: Read takes the argument from the request, Check rejects what no method may be
// called with, Values returns the method's parameters, Write adds to the answer. The argument object owns what the
// method hands out and frees it on every path.
namespace served {

struct InArgument {
  static HRESULT Check(const channel::Encoder&) { return S_OK; }
  static void Write(channel::Encoder&, HRESULT) {}
};

class InText : public InArgument {
 public:
  void Read(channel::Decoder& in) { text_ = TakeText(in); }
  std::tuple<BSTR> Values() const { return {text_.get()}; }

 private:
  OwnedBstr text_;
};

template <typename Scalar>
class InValue : public InArgument {
 public:
  void Read(channel::Decoder& in) { value_ = TakeValue<Scalar>(in); }
  std::tuple<Scalar> Values() const { return {value_}; }

 private:
  Scalar value_ = 0;
};

// Items of a request, aligned for use by a method.
template <typename Item>
class ReceivedItems {
 public:
  void Hold(const ArrayBytes& array, std::size_t bytes) {
    isMissing_ = !array.isThere && bytes != 0;
    if (array.bytes == nullptr) return;
    if constexpr (alignof(Item) == 1) {
      // Uses bytes where they arrived. The interfaces have no const, but no method changes its input.
      items_ = reinterpret_cast<Item*>(const_cast<std::byte*>(array.bytes));
    } else {
      aligned_ = std::make_unique<Item[]>(bytes / sizeof(Item));
      items_ = aligned_.get();
      if (bytes != 0) std::memcpy(items_, array.bytes, bytes);
    }
  }
  HRESULT Check() const { return isMissing_ ? E_POINTER : S_OK; }
  Item* Get() const { return items_; }

 private:
  bool isMissing_ = false;
  Item* items_ = nullptr;
  std::unique_ptr<Item[]> aligned_;
};

enum class NegativeCount { isRefused, isNothing };

template <typename Count, typename Item, NegativeCount negative = NegativeCount::isRefused>
class InArray {
 public:
  void Read(channel::Decoder& in) {
    count_ = TakeValue<Count>(in);
    const std::size_t bytes = Extent<Item>(count_);
    items_.Hold(TakeArray(in, bytes), bytes);
  }
  HRESULT Check(const channel::Encoder&) const {
    if (count_ < 0 && negative == NegativeCount::isRefused) return E_INVALIDARG;
    return items_.Check();
  }
  std::tuple<Count, Item*> Values() const { return {count_, items_.Get()}; }
  static void Write(channel::Encoder&, HRESULT) {}

 private:
  Count count_ = 0;
  ReceivedItems<Item> items_;
};

// An array whose count and presence the method checks itself.
template <typename Count, typename Item>
class InUncheckedArray : public InArray<Count, Item> {
 public:
  static HRESULT Check(const channel::Encoder&) { return S_OK; }
};

template <typename Record>
class InRecord {
 public:
  void Read(channel::Decoder& in) {
    const ArrayBytes array = TakeRecord(in, &record_);
    items_.Hold(array, ArrayExtent(record_));
    SetItems(&record_, items_.Get());
  }
  HRESULT Check(const channel::Encoder&) const { return items_.Check(); }
  std::tuple<Record> Values() const { return {record_}; }
  static void Write(channel::Encoder&, HRESULT) {}

 protected:
  Record record_{};

 private:
  ReceivedItems<ItemOf<Record>> items_;
};

template <typename Record>
class InRecordPointer : public InRecord<Record> {
 public:
  void Read(channel::Decoder& in) {
    isThere_ = TakePresence(in);
    if (isThere_) InRecord<Record>::Read(in);
  }
  HRESULT Check(const channel::Encoder& out) const { return isThere_ ? InRecord<Record>::Check(out) : E_POINTER; }
  std::tuple<Record*> Values() { return {&this->record_}; }

 private:
  bool isThere_ = false;
};

struct OutArgument {
  static void Read(channel::Decoder&) {}
  static HRESULT Check(const channel::Encoder&) { return S_OK; }
};

template <typename Scalar>
class OutValue : public OutArgument {
 public:
  std::tuple<Scalar*> Values() { return {&value_}; }
  void Write(channel::Encoder& out, HRESULT) const { PutValue(out, value_); }

 private:
  Scalar value_ = 0;
};

class OutText : public OutArgument {
 public:
  OutText() = default;
  OutText(const OutText&) = delete;
  OutText& operator=(const OutText&) = delete;
  ~OutText() { SysFreeString(text_); }

  std::tuple<BSTR*> Values() { return {&text_}; }
  void Write(channel::Encoder& out, HRESULT) const { PutText(out, text_); }

 private:
  BSTR text_ = nullptr;
};

// A buffer for as many items as the client has room for. It is sent only when the call succeeds, and its memory is
// touched only where the method writes, so a count that the method rejects costs nothing. A count for which no answer
// has room reaches the method without a buffer, because only the method knows what it means.
template <typename Item>
class OutBuffer {
 public:
  void Read(channel::Decoder& in) { count_ = TakeValue<LONG>(in); }
  HRESULT Check(const channel::Encoder& out) {
    const std::size_t bytes = Extent<Item>(count_);
    if (count_ < 0 || bytes > channel::kMaxPayloadBytes - out.PayloadBytes()) return S_OK;
    items_.reset(static_cast<Item*>(std::calloc(std::max<std::size_t>(bytes, 1), 1)));
    return items_ ? S_OK : E_OUTOFMEMORY;
  }
  std::tuple<LONG, Item*> Values() const { return {count_, items_.get()}; }
  void Write(channel::Encoder& out, HRESULT result) const {
    if (FAILED(result)) return;
    if (!items_) throw FrameFull();
    PutBytes(out, items_.get(), Extent<Item>(count_));
  }

 private:
  struct Deleter {
    void operator()(Item* items) const { std::free(items); }
  };

  LONG count_ = 0;
  std::unique_ptr<Item, Deleter> items_;
};

// A record that the method fills, with an array that it allocates.
template <typename Record>
class OutFilledRecord : public OutArgument {
 public:
  OutFilledRecord() = default;
  OutFilledRecord(const OutFilledRecord&) = delete;
  OutFilledRecord& operator=(const OutFilledRecord&) = delete;
  ~OutFilledRecord() { CoTaskMemFree(Items(record_)); }

  std::tuple<Record*> Values() { return {&record_}; }
  void Write(channel::Encoder& out, HRESULT) const { PutRecord(out, record_); }

 private:
  Record record_{};
};

// A record that the method allocates, with an array that it allocates.
template <typename Record>
class OutRecord : public OutArgument {
 public:
  OutRecord() = default;
  OutRecord(const OutRecord&) = delete;
  OutRecord& operator=(const OutRecord&) = delete;
  ~OutRecord() {
    if (record_ != nullptr) CoTaskMemFree(Items(*record_));
    CoTaskMemFree(record_);
  }

  std::tuple<Record**> Values() { return {&record_}; }
  void Write(channel::Encoder& out, HRESULT) const {
    PutValue(out, std::uint8_t{record_ != nullptr});
    if (record_ != nullptr) PutRecord(out, *record_);
  }

 private:
  Record* record_ = nullptr;
};

}  // namespace served

template <typename Method>
struct ObjectOfMethod;
template <typename Interface, typename... Parameters>
struct ObjectOfMethod<HRESULT (Interface::*)(Parameters...)> {
  using Type = Interface;
};
template <auto method>
using ObjectOf = typename ObjectOfMethod<decltype(method)>::Type;

// Serves one slot of a stub: calls `method` with parameters of the kinds `Arguments`.
template <auto method, typename... Arguments>
HRESULT Serve(ObjectOf<method>& object, channel::Decoder& in, channel::Encoder& out) {
  std::tuple<Arguments...> kinds;
  return std::apply(
      [&](Arguments&... arguments) {
        (arguments.Read(in), ...);
        if (!in.AtEnd()) return rpc::kBadStubData;

        HRESULT refusal = S_OK;
        static_cast<void>(((refusal = arguments.Check(out), refusal == S_OK) && ...));
        if (refusal != S_OK) return refusal;

        const HRESULT result = std::apply([&object](auto... values) { return (object.*method)(values...); },
                                          std::tuple_cat(arguments.Values()...));
        (arguments.Write(out, result), ...);
        return result;
      },
      kinds);
}

// An entry of an interface's table, which starts with the first slot after those of IUnknown.
template <typename Interface>
using Slot = HRESULT (*)(Interface& object, channel::Decoder& in, channel::Encoder& out);

template <typename Interface>
class Stub final : public com::CallStub {
 public:
  Stub(ComPtr<Interface> object, std::span<const Slot<Interface>> slots) : object_(std::move(object)), slots_(slots) {}

  // Returns a failure without out-arguments when the answer cannot be encoded or the object throws.
  HRESULT Invoke(std::uint16_t slot, channel::Decoder& arguments, channel::Encoder& out) override {
    if (slot < kFirstSlot || slot - kFirstSlot >= slots_.size()) return rpc::kSlotOutOfRange;
    const std::size_t start = out.PayloadBytes();
    try {
      return slots_[slot - kFirstSlot](*object_.Get(), arguments, out);
    } catch (const std::bad_alloc&) {
      return ResultAlone(E_OUTOFMEMORY, out, start);
    } catch (const FrameFull&) {
      return ResultAlone(E_OUTOFMEMORY, out, start);
    } catch (...) {
      return ResultAlone(rpc::kServerFault, out, start);
    }
  }

 private:
  static constexpr std::size_t kFirstSlot = 3;  // after those of IUnknown

  static HRESULT ResultAlone(HRESULT result, channel::Encoder& out, std::size_t start) {
    out.CutPayload(start);
    return result;
  }

  ComPtr<Interface> object_;
  std::span<const Slot<Interface>> slots_;
};

// As com::Marshaler::newStub.
template <typename Interface, const IID& iid, const auto& slots>
std::unique_ptr<com::CallStub> NewStub(IUnknown* object) {
  ComPtr<Interface> own;
  if (FAILED(object->QueryInterface(iid, own.OutVoid()))) return nullptr;
  return std::make_unique<Stub<Interface>>(std::move(own), slots);
}

}  // namespace marshal
