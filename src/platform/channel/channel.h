// The local-socket transport under the component-object runtime: frames between a client and the server process, and
// the other half of the server's message loop. It knows frames and peers; what a frame's arguments mean is the affair
// of those who encode and decode them. docs/protocol.md describes every byte.
//
// One connection carries one object. A frame is an 8-byte head (payload length, type, slot) and its payload, all
// numbers little-endian. The client opens with Hello and then Create, Status or Rehearse; after Created it sends Call
// frames, each answered by one Result. Spare fields are sent as zero, and receivers ignore them, so that a later
// version can use them. The slot of a frame that is neither Call nor Result is spare.
//
// A client may ask for more where the server's Hello says that it knows of it: why its last call ended as it did, and
// what becomes of the parts of a long call while it runs.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/host/descriptor.h"
#include "platform/kernel/kernel.h"
#include "platform/kernel/results.h"

namespace channel {

inline constexpr std::uint32_t kMagic = 0x5254534B;  // the bytes "KSTR"
inline constexpr std::uint16_t kProtocolVersion = 1;
inline constexpr std::size_t kHeadBytes = 8;

// The longest payload of a frame. A side that is told of a longer one ends the connection.
inline constexpr std::uint32_t kMaxPayloadBytes = 128u << 20;

enum class FrameType : std::uint16_t {
  hello = 1,     // both ways, first: magic (4), protocol version (2), extensions that the sender knows (2)
  create = 2,    // client: interface identity (16)
  created = 3,   // server: result (4)
  call = 4,      // client: arguments; the head names the slot
  result = 5,    // server: result (4), out-arguments
  refusal = 6,   // server, last: result (4), reason in UTF-8
  status = 7,    // client: spare; server: process id (4), live objects (4)
  reason = 8,    // client, after a Result: spare; server: why that call ended so, in UTF-8, or nothing
  follow = 9,    // client, before a Call or Rehearse: spare; the server sends Notes of that one
  note = 10,     // server, before a Result: a Note
  rehearse = 11  // client, in the place of Create: arguments; server: result (4)
};

// Bits of Hello: the sender knows the frames from Reason to Rehearse.
inline constexpr std::uint16_t kKnowsReasons = 1;

// The bytes of a reason that a server sends; what is longer is cut.
inline constexpr std::size_t kMaxReasonBytes = 16u << 10;

struct FrameHead {
  std::uint32_t payloadBytes;
  FrameType type;
  std::uint16_t slot;
};

FrameHead ReadHead(const std::byte* head);
void WriteHead(const FrameHead& head, std::byte* to);

// Growable bytes without initialisation. Growing throws std::bad_alloc.
class Buffer {
 public:
  Buffer() = default;
  ~Buffer();
  Buffer(Buffer&& other) noexcept;
  Buffer& operator=(Buffer&& other) noexcept;

  std::byte* Data() { return data_; }
  const std::byte* Data() const { return data_; }
  std::size_t Size() const { return size_; }
  std::size_t Capacity() const { return capacity_; }
  std::byte* Extend(std::size_t bytes);  // the new bytes at the end, unset
  void Append(const void* bytes, std::size_t count);
  void DropFront(std::size_t bytes);
  void Reserve(std::size_t capacity);
  void Resize(std::size_t size);  // only downwards, or within the capacity
  void Release();                 // empty, memory given back

 private:
  std::byte* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// Builds frames one after the other.
class Encoder {
 public:
  void BeginFrame(FrameType type, std::uint16_t slot = 0);
  void EndFrame();  // enters the payload's length

  void U16(std::uint16_t value) { Scalar(value); }
  void U32(std::uint32_t value) { Scalar(value); }
  void Bytes(const void* bytes, std::size_t count) { buffer_.Append(bytes, count); }
  std::byte* Space(std::size_t count) { return buffer_.Extend(count); }  // `count` bytes for the caller to fill

  // Drops what was encoded after `size` bytes of the payload of the frame that is being built.
  std::size_t PayloadBytes() const { return buffer_.Size() - frame_ - kHeadBytes; }
  void CutPayload(std::size_t size) { buffer_.Resize(frame_ + kHeadBytes + size); }

  // Writes over 4 bytes at `offset` of the payload of the frame that is being built.
  void PutU32(std::size_t offset, std::uint32_t value);

  void Clear();
  Buffer& Frames() { return buffer_; }

 private:
  template <typename T>
  void Scalar(T value);

  Buffer buffer_;
  std::size_t frame_ = 0;  // where the frame that is being built starts
};

// Reads a payload. Every length is checked against what is there: a read beyond the end gives zeros (null for Bytes)
// and leaves the decoder failed, so that a caller can read on and look at Ok once.
class Decoder {
 public:
  Decoder() = default;
  Decoder(const std::byte* data, std::size_t size) : data_(data), left_(size) {}

  std::uint8_t U8() { return Scalar<std::uint8_t>(); }
  std::uint16_t U16() { return Scalar<std::uint16_t>(); }
  std::uint32_t U32() { return Scalar<std::uint32_t>(); }
  const std::byte* Bytes(std::size_t count);  // points into the payload

  // What was read makes no sense.
  void Fail() { ok_ = false; }
  bool Ok() const { return ok_; }
  bool AtEnd() const { return ok_ && left_ == 0; }
  std::size_t Left() const { return left_; }

 private:
  template <typename T>
  T Scalar();

  const std::byte* data_ = nullptr;
  std::size_t left_ = 0;
  bool ok_ = true;
};

// What a server tells of one part of a long call. All texts are UTF-8. On the wire: fate (2), done (4), total (4), name
// and reason and before, each with its length in bytes (4) in front, after.
struct Note {
  std::uint16_t fate;       // what became of it; the numbers are those of the method
  std::uint32_t done;       // parts of the call that are done, this one included
  std::uint32_t total;      // all parts of the call
  std::string_view name;    // of the part
  std::string_view reason;  // why, where the fate does not say it; may be empty
  std::string_view before;  // content of the part before and after, where a rehearsal shows it
  std::string_view after;
};

// Where the two contents are too long for a frame, both are left out. Throws std::bad_alloc.
void AppendNote(const Note& note, Encoder* frames);

// False when the payload is no Note. The texts lie in the payload.
bool TakeNote(Decoder& payload, Note* note);

// ---- Client --------------------------------------------------------------------------------------------------------

// True when a process listens at the socket. Nothing is sent.
bool SomebodyListens(const std::string& socketPath);

// What a client does with the notes of a call.
class NoteReceiver {
 public:
  virtual void Receive(const Note& note) = 0;  // throws nothing

 protected:
  ~NoteReceiver() = default;
};

// A client's end of one connection. One exchange at a time.
class Connection {
 public:
  enum class Outcome {
    ok,
    nobody,       // no server listens there, or it went away before it answered the opening
    busy,         // a server listens, but gave no answer in the time that there was
    lost,         // the server went away in an exchange, or in a rehearsal of which it had told something
    full,         // the server has as many connections as it can have
    denied,       // the socket is another user's
    otherVersion  // the peer speaks another version of the protocol
  };

  // The frame that follows Hello.
  struct Opening {
    FrameType type;  // create, status or rehearse
    const void* payload;
    std::size_t payloadBytes;
    NoteReceiver* receiver = nullptr;   // gets the notes of a rehearsal
    std::chrono::milliseconds limit{};  // as LimitAnswers
  };

  // Connects to a process of `user` (or of root, where root does not act for a user) and exchanges the opening frames;
  // `*answer` receives the payload of the opening's answer, valid until the next exchange. Waits `seconds` for it; 0:
  // as long as the server is there, since it may be at work for another client. A rehearsal is not sent to a server
  // that does not know of it: otherVersion.
  static Outcome Open(const std::string& socketPath, uid_t user, const Opening& opening, int seconds,
                      std::unique_ptr<Connection>* connection, Decoder* answer);

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // From now on an exchange that takes longer than this ends with the connection: Outcome::busy, or 0x800705B4. 0:
  // none.
  void LimitAnswers(std::chrono::milliseconds limit) { limit_ = limit; }

  // Starts the request for a slot; the caller encodes the arguments and calls Exchange. `receiver` (unless null) gets
  // the notes of the call, where the server knows of them.
  Encoder& BeginCall(std::uint16_t slot, NoteReceiver* receiver = nullptr);

  // Sends the request and waits for its result: the method's, with `*out` at the out-arguments after it (valid until
  // the next BeginCall or AskReason), or one of the transport's own.
  HRESULT Exchange(Decoder* out);

  // Why the last call ended as it did: UTF-8, empty when the server has nothing to say or does not know of reasons.
  // Throws std::bad_alloc.
  std::string AskReason();

 private:
  explicit Connection(platform::Descriptor descriptor) : descriptor_(std::move(descriptor)) {}
  void AppendOpening(const Opening& opening);
  void StartReceiving();
  void StartClock();
  bool WaitFor(short events) const;
  bool Send(const Buffer& frames);
  bool ReceiveAnswer(NoteReceiver* receiver, FrameHead* head, Decoder* payload);
  bool ReceiveFrame(FrameHead* head, Decoder* payload);

  const platform::Descriptor descriptor_;
  std::chrono::milliseconds limit_{};                 // of an exchange; 0: none
  std::chrono::steady_clock::time_point deadline_{};  // of the one that is going on, where there is a limit
  bool broken_ = false;
  bool staysAwake_ = true;            // while it waits: the last answer came soon
  bool hasNotes_ = false;             // some came
  bool hasResult_ = false;            // the server has answered the last call
  bool knowsReasons_ = false;         // the server
  NoteReceiver* receiver_ = nullptr;  // of the call that is being made
  Encoder request_;
  Buffer received_;           // from the last frame on
  std::size_t consumed_ = 0;  // bytes of `received_` that the last frame took
};

// ---- Server --------------------------------------------------------------------------------------------------------

// The peer whose call is being served.
class Caller {
 public:
  virtual uid_t User() const = 0;
  virtual pid_t Process() const = 0;

  // Tells the peer at once, without waiting for it, if it follows the call. A peer that lets too much of it pile up
  // loses its connection. Throws nothing.
  virtual void Tell(const Note& note) = 0;

 protected:
  ~Caller() = default;
};

// What a server keeps for one connection that carries an object. Destroyed when the connection ends, for whatever
// reason: the object's references go with it.
class Session {
 public:
  virtual ~Session() = default;

  // Serves one call: reads the arguments, appends the out-arguments to `out`, gives the method's result. When the
  // arguments do not decode, nothing is called and the result is rpc::kBadStubData.
  virtual HRESULT Call(Caller& caller, std::uint16_t slot, Decoder& arguments, Encoder& out) = 0;

  // Why the last call ended as it did: UTF-8, or empty.
  virtual std::string Reason() { return {}; }
};

// What one listening socket leads to.
class Service {
 public:
  virtual HRESULT Create(const std::byte* interfaceId, std::unique_ptr<Session>* session) = 0;

  // Tells the caller, note by note, what a call would do, and does nothing of it.
  virtual HRESULT Rehearse(Caller& /*caller*/, Decoder& /*arguments*/) { return E_NOTIMPL; }

  // Called when the name of the socket is lost: makes its folder again where that is gone, or gives the socket another
  // path. False when it is not to be had.
  virtual bool RestoreFolder(std::string* /*socketPath*/) { return true; }

 protected:
  ~Service() = default;
};

// The server's sockets and peers. Lives on the thread whose message loop it feeds; every call runs there. Peers are
// held apart: one that sends half a frame or does not read its answer holds up no other. What all of them together make
// the server hold of half frames and unread answers is limited: beyond kHeldBytes the peer that has the most goes. A
// peer for which no descriptor is left is told so and goes. Sockets whose names are lost get them again in a moment.
class Server final : public platform::MessageSource {
 public:
  static constexpr std::size_t kHeldBytes = 512u << 20;

  Server();
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Listens at `socketPath` for `service` (not owned). A dead socket file in the way is replaced: the caller sees to it
  // that no other process listens there. False when the system refuses.
  bool Listen(const std::string& socketPath, Service* service);

  // Stops listening there and ends the connections that came that way and carry no object yet, at once, so that their
  // clients turn to another server without waiting.
  void Withdraw(const std::string& socketPath);

  std::uint32_t LiveObjects() const { return liveObjects_; }

  bool Wait(int wakeDescriptor, MSG* message) override;
  void Dispatch(const MSG& message) override;

 private:
  struct Listener;
  struct Peer;
  class PeerAsCaller;

  bool Bind(Listener& listener);
  void RestoreNames();
  bool Watch(int descriptor, std::uint32_t events, std::uint64_t key);
  void WatchFor(int descriptor, std::uint32_t events, std::uint64_t key);
  bool TakeReady(MSG* message);
  void HandleEvent(std::uint64_t key, bool writable);
  void Accept(std::uint64_t listenerKey, const Listener& listener);
  void TurnAwayNext(const Listener& listener);
  static void Turn(int descriptor, HRESULT result, std::string_view reason);
  void PauseListeners();
  void ResumeListeners();
  void Receive(Peer& peer);
  void ForgoCall(Peer& peer);
  void SkipCall(Peer& peer);
  void TellLackOfMemory(Peer& peer, std::uint16_t slot);
  static std::size_t WholeFrame(const std::byte* bytes, std::size_t size);
  void QueueNextFrame(Peer& peer);
  bool Hold(Peer& peer);
  void ServeNext(Peer& peer, bool fromPeer);
  void Serve(Peer& peer, const FrameHead& head, const std::byte* payload);
  void ServeOpening(Peer& peer, FrameType type, Decoder payload);
  void ServeRehearsal(Peer& peer, Decoder arguments);
  void ServeCall(Peer& peer, std::uint16_t slot, Decoder arguments);
  void ServeReason(Peer& peer);
  void Tell(Peer& peer, const Note& note);
  static bool SendNow(const Peer& peer, const std::byte* bytes, std::size_t count, std::size_t* sent);
  static bool SendWaiting(Peer& peer);
  void Refuse(Peer& peer, HRESULT result, std::string_view reason);
  void Answer(Peer& peer);
  void Flush(Peer& peer);
  void Drop(std::uint64_t key);

  const platform::Descriptor epoll_;
  const std::size_t mostPeers_;
  platform::Descriptor spare_;  // given up for the moment in which a peer is told that there is no other
  int wakeDescriptor_ = -1;
  std::chrono::steady_clock::time_point namesSeen_;
  bool listenersPaused_ = false;
  std::chrono::steady_clock::time_point pausedSince_;
  bool readyIsNext_ = false;
  bool hasServed_ = false;  // since the last waiting
  std::uint64_t nextKey_ = 1;
  std::unordered_map<std::uint64_t, std::unique_ptr<Listener>> listeners_;
  std::unordered_map<std::uint64_t, std::unique_ptr<Peer>> peers_;
  std::deque<std::uint64_t> ready_;  // peers with a whole frame in their own buffer
  Buffer received_;                  // what the last reading brought; holds the frame until it is dispatched
  Encoder answer_;
  Encoder note_;
  std::size_t heldBytes_ = 0;
  std::uint32_t liveObjects_ = 0;
};

}  // namespace channel
