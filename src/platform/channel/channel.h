// The local-socket transport below the component-object runtime. It carries frames between a client and the server
// process and feeds the server's message loop. It knows frames and peers; proxies and stubs interpret the arguments in
// a frame. docs/protocol.md describes every byte.
//
// One connection carries one object. A frame is an 8-byte head (payload length, type, slot) and its payload, all
// numbers little-endian. The client opens with Hello and then Create, Status or Rehearse; after Created it sends Call
// frames, each answered by one Result. Spare fields are sent as zero, and receivers ignore them, so that a later
// version can use them. The slot of a frame that is neither Call nor Result is spare.
//
// A server whose Hello says so also tells why the client's last call ended as it did. During a long call it can report
// what becomes of each part.
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

// The longest payload of a frame. A receiver ends the connection when a frame announces a longer one.
inline constexpr std::uint32_t kMaxPayloadBytes = 128u << 20;

enum class FrameType : std::uint16_t {
  hello = 1,     // both ways, first: magic (4), protocol version (2), extensions that the sender knows (2)
  create = 2,    // client: interface identity (16)
  created = 3,   // server: result (4)
  call = 4,      // client: arguments; the head names the slot
  result = 5,    // server: result (4), out-arguments
  refusal = 6,   // server, last: result (4), reason in UTF-8
  status = 7,    // client: spare; server: process id (4), live objects (4)
  reason = 8,    // client, after a Result: spare; server: why the call ended as it did, UTF-8, may be empty
  follow = 9,    // client, before a Call or Rehearse: spare; asks for Notes of that call
  note = 10,     // server, before a Result: a Note
  rehearse = 11  // client, instead of Create: arguments; server: result (4)
};

// Bit of the extensions in Hello: the sender knows the frame types from reason to rehearse.
inline constexpr std::uint16_t kKnowsReasons = 1;

// The longest reason that a server sends, in bytes. A longer one is cut.
inline constexpr std::size_t kMaxReasonBytes = 16u << 10;

struct FrameHead {
  std::uint32_t payloadBytes;
  FrameType type;
  std::uint16_t slot;
};

FrameHead ReadHead(const std::byte* head);
void WriteHead(const FrameHead& head, std::byte* to);

// A growable byte buffer that leaves its bytes uninitialised. Growing throws std::bad_alloc.
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
  std::byte* Extend(std::size_t bytes);  // returns the new, uninitialised bytes
  void Append(const void* bytes, std::size_t count);
  void DropFront(std::size_t bytes);
  void Reserve(std::size_t capacity);
  void Resize(std::size_t size);  // at most to the capacity
  void Release();                 // empties the buffer and frees its memory

 private:
  std::byte* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// Builds frames one after the other.
class Encoder {
 public:
  void BeginFrame(FrameType type, std::uint16_t slot = 0);
  void EndFrame();  // fills in the payload's length

  void U16(std::uint16_t value) { Scalar(value); }
  void U32(std::uint32_t value) { Scalar(value); }
  void Bytes(const void* bytes, std::size_t count) { buffer_.Append(bytes, count); }
  std::byte* Space(std::size_t count) { return buffer_.Extend(count); }  // `count` bytes for the caller to fill

  // CutPayload drops everything after the first `size` bytes of the current frame's payload.
  std::size_t PayloadBytes() const { return buffer_.Size() - frame_ - kHeadBytes; }
  void CutPayload(std::size_t size) { buffer_.Resize(frame_ + kHeadBytes + size); }

  // Overwrites 4 bytes at `offset` in the current frame's payload.
  void PutU32(std::size_t offset, std::uint32_t value);

  void Clear();
  Buffer& Frames() { return buffer_; }

 private:
  template <typename T>
  void Scalar(T value);

  Buffer buffer_;
  std::size_t frame_ = 0;  // where the current frame starts
};

// Reads a payload and checks every length against what is left. A read beyond the end returns zero (null for Bytes) and
// fails the decoder, so that a caller can read on and check Ok once.
class Decoder {
 public:
  Decoder() = default;
  Decoder(const std::byte* data, std::size_t size) : data_(data), left_(size) {}

  std::uint8_t U8() { return Scalar<std::uint8_t>(); }
  std::uint16_t U16() { return Scalar<std::uint16_t>(); }
  std::uint32_t U32() { return Scalar<std::uint32_t>(); }
  const std::byte* Bytes(std::size_t count);  // points into the payload

  // Marks the payload as malformed.
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

// A server's report on one part of a long call. All texts are UTF-8. On the wire: fate (2), done (4), total (4); name,
// reason and before, each preceded by its length in bytes (4); after, up to the end of the payload.
struct Note {
  std::uint16_t fate;       // what became of the part; the method defines the numbers
  std::uint32_t done;       // finished parts of the call, this one included
  std::uint32_t total;      // all parts of the call
  std::string_view name;    // of the part
  std::string_view reason;  // where the fate alone does not say why; may be empty
  std::string_view before;  // content of the part before and after, in a rehearsal
  std::string_view after;
};

// Leaves out both contents when they do not fit into a frame. Throws std::bad_alloc.
void AppendNote(const Note& note, Encoder* frames);

// Returns false when the payload is malformed. The texts point into the payload.
bool TakeNote(Decoder& payload, Note* note);

// ---- Client --------------------------------------------------------------------------------------------------------

// Returns true when a process listens on the socket. Sends nothing.
bool SomebodyListens(const std::string& socketPath);

// Receives the notes of a call in the client.
class NoteReceiver {
 public:
  virtual void Receive(const Note& note) = 0;  // must not throw

 protected:
  ~NoteReceiver() = default;
};

// A client's end of one connection. One exchange at a time.
class Connection {
 public:
  enum class Outcome {
    ok,
    nobody,       // no server listens there, or it went away before it answered the opening
    busy,         // a server listens but did not answer in time
    lost,         // the connection failed after the first note of a rehearsal, or the server refused for another reason
    full,         // the server has as many connections as it can take
    denied,       // the socket belongs to another user, or the server refuses this one
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

  // Connects to a process of `user` and exchanges the opening frames. Accepts a process of root too, unless this
  // process is root and `user` is not. `*answer` reads the payload of the answer and is valid until the next exchange.
  // Waits `seconds` for the answer; 0 waits as long as the server lives, because it may be serving another client.
  // Sends no rehearsal to a server that does not know the frame: otherVersion.
  static Outcome Open(const std::string& socketPath, uid_t user, const Opening& opening, int seconds,
                      std::unique_ptr<Connection>* connection, Decoder* answer);

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Limits every later exchange. One that takes longer fails with 0x800705B4 (Outcome::busy in Open) and breaks the
  // connection. 0: no limit.
  void LimitAnswers(std::chrono::milliseconds limit) { limit_ = limit; }

  // Starts the request for a slot; the caller then encodes the arguments and calls Exchange. `receiver` (may be null)
  // gets the notes of the call if the server knows how to send them.
  Encoder& BeginCall(std::uint16_t slot, NoteReceiver* receiver = nullptr);

  // Sends the request, waits for the answer and returns the method's result or an error of the transport. `*out` reads
  // the out-arguments and is valid until the next BeginCall or AskReason.
  HRESULT Exchange(Decoder* out);

  // Asks the server why the last call ended as it did. Returns UTF-8; empty when the server gives no reason or does not
  // know the frame. Throws std::bad_alloc.
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
  std::chrono::steady_clock::time_point deadline_{};  // of the current exchange, if there is a limit
  bool broken_ = false;
  bool staysAwake_ = true;            // polls before it sleeps: the last answer came soon
  bool hasNotes_ = false;             // a note has arrived
  bool hasResult_ = false;            // the server has answered the last call
  bool knowsReasons_ = false;         // the server knows the frame types from reason to rehearse
  NoteReceiver* receiver_ = nullptr;  // of the current call
  Encoder request_;
  Buffer received_;           // the answers of the current exchange
  std::size_t consumed_ = 0;  // where the next frame starts in `received_`
};

// ---- Server --------------------------------------------------------------------------------------------------------

// The peer whose call is being served.
class Caller {
 public:
  virtual uid_t User() const = 0;
  virtual pid_t Process() const = 0;

  // Sends a note to the peer, without blocking, if the peer follows the call. A peer that lets too many notes pile up
  // loses its connection. Throws nothing.
  virtual void Tell(const Note& note) = 0;

 protected:
  ~Caller() = default;
};

// The server's state of one connection that carries an object. Destroyed when the connection ends, for whatever reason,
// which releases the object.
class Session {
 public:
  virtual ~Session() = default;

  // Serves one call: decodes the arguments, calls the method, appends the out-arguments to `out` and returns the
  // method's result. Returns rpc::kBadStubData without calling the method when the arguments do not decode.
  virtual HRESULT Call(Caller& caller, std::uint16_t slot, Decoder& arguments, Encoder& out) = 0;

  // Returns why the last call ended as it did: UTF-8, may be empty.
  virtual std::string Reason() { return {}; }
};

// Serves the connections of one listening socket.
class Service {
 public:
  virtual HRESULT Create(const std::byte* interfaceId, std::unique_ptr<Session>* session) = 0;

  // Sends the caller notes of what a call would do, without doing it.
  virtual HRESULT Rehearse(Caller& /*caller*/, Decoder& /*arguments*/) { return E_NOTIMPL; }

  // Called when the socket file has disappeared. Recreates its folder or gives the socket another path. Returns false
  // when neither works.
  virtual bool RestoreFolder(std::string* /*socketPath*/) { return true; }

 protected:
  ~Service() = default;
};

// The server's sockets and peers. Lives on the thread whose message loop it feeds; every call runs there. Peers do not
// block each other: one that sends half a frame or does not read its answer delays no other. Partial frames and unread
// answers of all peers together may take kHeldBytes; beyond that, the peer that takes most is dropped. A peer for which
// no descriptor is left is told so and dropped. A socket file that disappears is recreated within seconds.
class Server final : public platform::MessageSource {
 public:
  static constexpr std::size_t kHeldBytes = 512u << 20;

  Server();
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Listens at `socketPath` for `service` (not owned). Replaces a stale socket file; the caller ensures that no other
  // process listens there. Returns false when the system refuses.
  bool Listen(const std::string& socketPath, Service* service);

  // Stops listening at `socketPath` and closes its connections that carry no object yet, so that their clients turn to
  // another server at once.
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
  platform::Descriptor spare_;  // lent to a peer that is told that no descriptor is left
  int wakeDescriptor_ = -1;
  std::chrono::steady_clock::time_point namesSeen_;
  bool listenersPaused_ = false;
  std::chrono::steady_clock::time_point pausedSince_;
  bool readyIsNext_ = false;
  bool hasServed_ = false;  // since the last wait
  std::uint64_t nextKey_ = 1;
  std::unordered_map<std::uint64_t, std::unique_ptr<Listener>> listeners_;
  std::unordered_map<std::uint64_t, std::unique_ptr<Peer>> peers_;
  std::deque<std::uint64_t> ready_;  // peers with a complete frame in their own buffer
  Buffer received_;                  // what the last read returned; holds the frame until it is dispatched
  Encoder answer_;
  Encoder note_;
  std::size_t heldBytes_ = 0;
  std::uint32_t liveObjects_ = 0;
};

}  // namespace channel
