// The client's half: a proxy implements an interface whose methods run in another process. Its methods name their slot
// and the kinds of their arguments; everything else is here.
#pragma once

#include <memory>
#include <new>
#include <utility>

#include "platform/com/marshaler.h"
#include "platform/com/object.h"
#include "wire.h"

namespace marshal {

// The kinds of arguments; each wraps what the caller passed. In this order: Prepare sets the caller's out-argument to
// null or zero (false: the caller has no place for one), Encode adds to the request, Decode reads the answer into the
// argument object, Deliver passes it to the caller. Deliver cannot fail: a caller gets all of an answer or nothing of
// it.
namespace sent {

struct InArgument {
  static bool Prepare() { return true; }
  static void Decode(channel::Decoder&, HRESULT) {}
  static void Deliver() {}
};

class InText : public InArgument {
 public:
  explicit InText(BSTR text) : text_(text) {}
  void Encode(channel::Encoder& out) const { PutText(out, text_); }

 private:
  BSTR text_;
};

template <typename Scalar>
class InValue : public InArgument {
 public:
  explicit InValue(Scalar value) : value_(value) {}
  void Encode(channel::Encoder& out) const { PutValue(out, value_); }

 private:
  Scalar value_;
};

template <typename Count, typename Item>
class InArray : public InArgument {
 public:
  InArray(Count count, const Item* items) : count_(count), items_(items) {}
  void Encode(channel::Encoder& out) const {
    PutValue(out, count_);
    PutArray(out, items_, Extent<Item>(count_));
  }

 private:
  Count count_;
  const Item* items_;
};

template <typename Record>
class InRecord : public InArgument {
 public:
  explicit InRecord(const Record& record) : record_(record) {}
  void Encode(channel::Encoder& out) const { PutRecord(out, record_); }

 private:
  const Record& record_;
};

template <typename Record>
class InRecordPointer : public InArgument {
 public:
  explicit InRecordPointer(const Record* record) : record_(record) {}
  void Encode(channel::Encoder& out) const {
    PutValue(out, std::uint8_t{record_ != nullptr});
    if (record_ != nullptr) PutRecord(out, *record_);
  }

 private:
  const Record* record_;
};

struct OutArgument {
  static void Encode(channel::Encoder&) {}
};

template <typename Scalar>
class OutValue : public OutArgument {
 public:
  explicit OutValue(Scalar* target) : target_(target) {}
  bool Prepare() const {
    if (target_ != nullptr) *target_ = 0;
    return target_ != nullptr;
  }
  void Decode(channel::Decoder& in, HRESULT) { value_ = TakeValue<Scalar>(in); }
  void Deliver() const { *target_ = value_; }

 private:
  Scalar* target_;
  Scalar value_ = 0;
};

class OutText : public OutArgument {
 public:
  explicit OutText(BSTR* target) : target_(target) {}
  bool Prepare() const {
    if (target_ != nullptr) *target_ = nullptr;
    return target_ != nullptr;
  }
  void Decode(channel::Decoder& in, HRESULT) { text_ = TakeText(in); }
  void Deliver() { *target_ = text_.release(); }

 private:
  BSTR* target_;
  OwnedBstr text_;
};

// A buffer of the caller for `count` items, filled when the call succeeds.
template <typename Item>
class OutBuffer {
 public:
  OutBuffer(LONG count, Item* target) : count_(count), target_(target) {}
  bool Prepare() const { return target_ != nullptr || count_ <= 0; }
  void Encode(channel::Encoder& out) const { PutValue(out, count_); }
  void Decode(channel::Decoder& in, HRESULT result) {
    if (SUCCEEDED(result)) bytes_ = in.Bytes(Extent<Item>(count_));
  }
  void Deliver() const {
    if (bytes_ != nullptr && count_ > 0) std::memcpy(target_, bytes_, Extent<Item>(count_));
  }

 private:
  LONG count_;
  Item* target_;
  const std::byte* bytes_ = nullptr;
};

// A record of an answer, with its array in a task block.
template <typename Record>
class ReceivedRecord {
 public:
  void Decode(channel::Decoder& in) {
    const ArrayBytes array = TakeRecord(in, &record_);
    const std::size_t bytes = ArrayExtent(record_);
    // A count without items would mislead the caller.
    if (ArrayOf<Record>::Count(record_) < 0 || (!array.isThere && bytes != 0)) in.Fail();
    if (!in.Ok() || !array.isThere) return;
    items_ = NewTaskBlock<ItemOf<Record>>(bytes);
    if (bytes != 0) std::memcpy(items_.get(), array.bytes, bytes);
  }
  void MoveTo(Record* target) {
    SetItems(&record_, items_.release());
    *target = record_;
  }

 private:
  Record record_{};
  TaskBlock<ItemOf<Record>> items_;
};

// A record that the caller provides.
template <typename Record>
class OutFilledRecord : public OutArgument {
 public:
  explicit OutFilledRecord(Record* target) : target_(target) {}
  bool Prepare() const {
    if (target_ != nullptr) *target_ = {};
    return target_ != nullptr;
  }
  void Decode(channel::Decoder& in, HRESULT) { record_.Decode(in); }
  void Deliver() { record_.MoveTo(target_); }

 private:
  Record* target_;
  ReceivedRecord<Record> record_;
};

// A record that is handed out as a task block.
template <typename Record>
class OutRecord : public OutArgument {
 public:
  explicit OutRecord(Record** target) : target_(target) {}
  bool Prepare() const {
    if (target_ != nullptr) *target_ = nullptr;
    return target_ != nullptr;
  }
  void Decode(channel::Decoder& in, HRESULT) {
    if (!TakePresence(in)) return;
    record_.Decode(in);
    block_ = NewTaskBlock<Record>(sizeof(Record));
  }
  void Deliver() {
    if (block_) record_.MoveTo(block_.get());
    *target_ = block_.release();
  }

 private:
  Record** target_;
  ReceivedRecord<Record> record_;
  TaskBlock<Record> block_;
};

}  // namespace sent

// Passes an answer to the caller. `in` holds the out-arguments that came with `result`; a failure may come without any.
template <typename... Arguments>
HRESULT TakeAnswer(HRESULT result, channel::Decoder& in, Arguments&... arguments) {
  if (FAILED(result) && in.Left() == 0) return result;
  (arguments.Decode(in, result), ...);
  if (!in.AtEnd()) return rpc::kBadStubData;
  (arguments.Deliver(), ...);
  return result;
}

// One object of another process. Releasing the last reference releases the object there. Any thread may call the
// methods.
template <typename Interface, const IID& iid>
class Proxy : public com::CountedObject<Interface, iid> {
 public:
  explicit Proxy(std::unique_ptr<com::RemoteObject> remote) : remote_(std::move(remote)) {}

 protected:
  // Makes one call. Returns E_POINTER when an out-argument has no place, E_INVALIDARG when the arguments do not fit
  // into a frame, else the result of the method or of the transport.
  template <typename... Arguments>
  HRESULT Call(std::uint16_t slot, Arguments... arguments) {
    bool prepared = true;
    ((prepared = arguments.Prepare() && prepared), ...);
    if (!prepared) return E_POINTER;
    try {
      com::RemoteObject::Call call(*remote_, slot);
      if (!Encode(call.In(), arguments...)) return E_INVALIDARG;
      const HRESULT result = call.Send();
      return TakeAnswer(result, call.Out(), arguments...);
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    }
  }

 private:
  template <typename... Arguments>
  static bool Encode(channel::Encoder& out, const Arguments&... arguments) {
    try {
      (arguments.Encode(out), ...);
      return true;
    } catch (const FrameFull&) {
      return false;
    }
  }

  const std::unique_ptr<com::RemoteObject> remote_;
};

// As com::Marshaler::newProxy.
template <typename Interface, typename InterfaceProxy>
void* NewProxy(std::unique_ptr<com::RemoteObject> remote) {
  Interface* proxy = new (std::nothrow) InterfaceProxy(std::move(remote));
  if (proxy != nullptr) proxy->AddRef();
  return proxy;
}

}  // namespace marshal
