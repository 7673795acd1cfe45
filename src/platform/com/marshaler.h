// How the runtime learns to carry an interface between processes. Users of objects only need com.h.
#pragma once

#include <memory>
#include <mutex>

#include "platform/channel/channel.h"
#include "platform/com/com.h"
#include "platform/com/long_calls.h"

namespace com {

// The server's half: decodes calls and makes them on an object, to which it holds a reference.
class CallStub {
 public:
  virtual ~CallStub() = default;

  // As channel::Session::Call. Slots are those of the interface, counted from its IUnknown.
  virtual HRESULT Invoke(std::uint16_t slot, channel::Decoder& arguments, channel::Encoder& out) = 0;
};

// The connection to one object in another process.
struct Line {
  explicit Line(std::unique_ptr<channel::Connection> ownConnection) : connection(std::move(ownConnection)) {}

  std::mutex mutex;
  std::unique_ptr<channel::Connection> connection;
  std::uint64_t calls = 0;  // made so far
};

// Makes GetErrorInfo of the calling thread ask for the reason of the line's last call. The caller holds the line's
// mutex.
void RememberCall(const std::shared_ptr<Line>& line);

// Clears the calling thread's error information when a call begins, so that GetErrorInfo does not return that of an
// earlier call.
void ForgetCall();

// The client's half of one object in another process. A proxy owns it. Its destruction releases the object.
class RemoteObject {
 public:
  explicit RemoteObject(std::unique_ptr<channel::Connection> connection)
      : line_(std::make_shared<Line>(std::move(connection))) {}

  // One call: encode the arguments with In, Send, decode the out-arguments with Out. Calls of several threads on one
  // object run one after the other.
  class Call {
   public:
    Call(RemoteObject& object, std::uint16_t slot)
        : line_(object.line_), hold_(line_->mutex), in_(line_->connection->BeginCall(slot, Follower())) {
      ForgetCall();
    }

    channel::Encoder& In() { return in_; }
    HRESULT Send() {
      ++line_->calls;
      RememberCall(line_);
      line_->connection->LimitAnswers(TimeLimit());
      return line_->connection->Exchange(&out_);
    }
    channel::Decoder& Out() { return out_; }

   private:
    const std::shared_ptr<Line>& line_;
    std::lock_guard<std::mutex> hold_;
    channel::Encoder& in_;
    channel::Decoder out_;
  };

 private:
  const std::shared_ptr<Line> line_;
};

// Stub and proxy of one interface.
struct Marshaler {
  IID iid;
  // Asks `object` for `iid` and makes a stub that holds that reference. Null when the object lacks the interface.
  std::unique_ptr<CallStub> (*newStub)(IUnknown* object);
  // Makes a proxy with one reference, returned as a pointer to the interface; null when memory runs out.
  void* (*newProxy)(std::unique_ptr<RemoteObject> remote);
};

// Registers an interface with the runtime of this process. Replaces an earlier marshaler of the same interface.
void RegisterMarshaler(const Marshaler& marshaler);

}  // namespace com
