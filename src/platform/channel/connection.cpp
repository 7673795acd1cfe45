#include <poll.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>

#include "platform/channel/channel.h"
#include "platform/kernel/results.h"
#include "socket.h"
#include "wakefulness.h"

namespace channel {

using platform::Descriptor;

namespace {

constexpr std::size_t kFirstReceiveBytes = 4096;

// Reserves room for an answer of up to this length as soon as its head arrives.
constexpr std::size_t kTrustedBytes = 1u << 20;

// Limits the wait for a stopped server, which leaves connections in its queue.
constexpr int kConnectSeconds = 30;

constexpr HRESULT kTimedOut = HRESULT_FROM_WIN32(ERROR_TIMEOUT);

void LimitWaiting(int descriptor, int option, std::chrono::milliseconds time) {
  const timeval limit{time.count() / 1000, time.count() % 1000 * 1000};
  setsockopt(descriptor, SOL_SOCKET, option, &limit, sizeof limit);
}

void LimitWaiting(int descriptor, int option, int seconds) {
  LimitWaiting(descriptor, option, std::chrono::seconds(seconds));
}

void AppendEmptyFrame(FrameType type, Encoder* frames) {
  frames->BeginFrame(type);
  frames->EndFrame();
}

bool Connect(int descriptor, const sockaddr_un& address) {
  int result = 0;
  do {
    result = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

bool SomebodyListens(const std::string& socketPath) {
  sockaddr_un address{};
  if (!SocketAddress(socketPath, &address)) return false;
  const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // EAGAIN means that the queue is full, so a server is there.
  return probe && (Connect(probe.Number(), address) || errno == EAGAIN);
}

Connection::Outcome Connection::Open(const std::string& socketPath, uid_t user, const Opening& opening, int seconds,
                                     std::unique_ptr<Connection>* connection, Decoder* answer) {
  sockaddr_un address{};
  if (!SocketAddress(socketPath, &address)) return Outcome::nobody;
  Descriptor descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!descriptor) return Outcome::nobody;
  LimitWaiting(descriptor.Number(), SO_SNDTIMEO, kConnectSeconds);
  if (opening.limit.count() != 0) LimitWaiting(descriptor.Number(), SO_SNDTIMEO, opening.limit);
  if (!Connect(descriptor.Number(), address)) {
    if (errno == EAGAIN) return Outcome::busy;
    return errno == EACCES ? Outcome::denied : Outcome::nobody;
  }
  if (!PeerIsTrusted(descriptor.Number(), user)) return Outcome::denied;

  connection->reset(new Connection(std::move(descriptor)));
  Connection& own = **connection;
  own.LimitAnswers(opening.limit);
  own.StartClock();

  AppendHello(&own.request_);
  // Waits for the server's Hello first, because an older server would reject the frame.
  const bool asksFirst = opening.type == FrameType::rehearse;
  if (!asksFirst) own.AppendOpening(opening);

  LimitWaiting(own.descriptor_.Number(), SO_SNDTIMEO, 0);
  LimitWaiting(own.descriptor_.Number(), SO_RCVTIMEO, seconds);
  const auto silence = [&own] {
    if (errno == EAGAIN) return Outcome::busy;
    return own.hasNotes_ ? Outcome::lost : Outcome::nobody;
  };
  FrameHead head{};
  // Reads on even if sending fails: a server that refuses this client may have said so and closed.
  own.Send(own.request_.Frames());
  if (!own.ReceiveFrame(&head, answer)) return silence();
  if (head.type == FrameType::hello) {
    if (answer->U32() != kMagic || answer->U16() != kProtocolVersion) return Outcome::otherVersion;
    own.knowsReasons_ = (answer->U16() & kKnowsReasons) != 0 && answer->Ok();
    if (asksFirst) {
      if (!own.knowsReasons_) return Outcome::otherVersion;
      own.request_.Clear();
      own.AppendOpening(opening);
      own.Send(own.request_.Frames());
    }
    if (!own.ReceiveAnswer(opening.receiver, &head, answer)) return silence();
  }
  if (head.type == FrameType::refusal) {
    const auto result = static_cast<HRESULT>(answer->U32());
    if (result == rpc::kVersionMismatch) return Outcome::otherVersion;
    if (result == rpc::kServerTooBusy) return Outcome::full;
    return result == E_ACCESSDENIED ? Outcome::denied : Outcome::lost;
  }
  if (head.type != (opening.type == FrameType::create ? FrameType::created : opening.type)) {
    return Outcome::otherVersion;
  }
  LimitWaiting(own.descriptor_.Number(), SO_RCVTIMEO, 0);
  return Outcome::ok;
}

void Connection::AppendOpening(const Opening& opening) {
  if (opening.receiver != nullptr) AppendEmptyFrame(FrameType::follow, &request_);
  request_.BeginFrame(opening.type);
  request_.Bytes(opening.payload, opening.payloadBytes);
  request_.EndFrame();
}

Encoder& Connection::BeginCall(std::uint16_t slot, NoteReceiver* receiver) {
  constexpr std::size_t kKeptBytes = 1u << 20;
  if (received_.Capacity() > kKeptBytes) received_.Release();
  receiver_ = knowsReasons_ ? receiver : nullptr;
  request_.Clear();
  if (receiver_ != nullptr) AppendEmptyFrame(FrameType::follow, &request_);
  request_.BeginFrame(FrameType::call, slot);
  return request_;
}

HRESULT Connection::Exchange(Decoder* out) {
  *out = Decoder();
  hasResult_ = false;
  if (request_.PayloadBytes() > kMaxPayloadBytes) return E_INVALIDARG;
  request_.EndFrame();
  StartClock();
  if (broken_ || !Send(request_.Frames())) {
    const bool isLate = !broken_ && errno == EAGAIN;
    broken_ = true;
    return isLate ? kTimedOut : rpc::kServerUnavailable;
  }
  StartReceiving();
  FrameHead head{};
  try {
    if (!ReceiveAnswer(receiver_, &head, out)) {
      broken_ = true;
      return errno == EAGAIN ? kTimedOut : rpc::kCallFailed;
    }
  } catch (const std::bad_alloc&) {
    broken_ = true;  // the rest of the answer would be taken for the next call's
    return E_OUTOFMEMORY;
  }
  if (head.type != FrameType::result && head.type != FrameType::refusal) {
    broken_ = true;
    return rpc::kCallFailed;
  }
  const auto result = static_cast<HRESULT>(out->U32());
  if (head.type == FrameType::refusal) {
    broken_ = true;
    return out->Ok() && FAILED(result) ? result : rpc::kCallFailed;
  }
  hasResult_ = out->Ok();
  return hasResult_ ? result : rpc::kBadStubData;
}

std::string Connection::AskReason() {
  if (broken_ || !hasResult_ || !knowsReasons_) return {};
  request_.Clear();
  AppendEmptyFrame(FrameType::reason, &request_);
  StartReceiving();
  StartClock();
  FrameHead head{};
  Decoder text;
  broken_ = true;  // until the whole answer has arrived
  if (!Send(request_.Frames()) || !ReceiveFrame(&head, &text) || head.type != FrameType::reason) return {};
  broken_ = false;
  const std::size_t size = text.Left();
  return {reinterpret_cast<const char*>(text.Bytes(size)), size};
}

void Connection::StartReceiving() {
  received_.Resize(0);
  consumed_ = 0;
}

// Receives the next frame that is not a note of the call. Passes the notes to `receiver`.
bool Connection::ReceiveAnswer(NoteReceiver* receiver, FrameHead* head, Decoder* payload) {
  for (;;) {
    if (!ReceiveFrame(head, payload)) return false;
    if (head->type != FrameType::note) return true;
    Note note{};
    if (receiver == nullptr || !TakeNote(*payload, &note)) {
      errno = EPROTO;
      return false;
    }
    hasNotes_ = true;
    receiver->Receive(note);
    // Drops each note, so that those of a long call do not pile up.
    received_.DropFront(consumed_);
    consumed_ = 0;
  }
}

void Connection::StartClock() {
  if (limit_.count() != 0) deadline_ = std::chrono::steady_clock::now() + limit_;
}

// Waits until the socket is ready for `events`. Returns false, with errno EAGAIN, when the time of the exchange is
// over.
bool Connection::WaitFor(short events) const {
  if (limit_.count() == 0) return true;
  pollfd socket = {descriptor_.Number(), events, 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - std::chrono::steady_clock::now());
    const auto time = std::clamp<std::int64_t>(left.count(), 0, std::numeric_limits<int>::max());
    const int ready = poll(&socket, 1, static_cast<int>(time));
    if (ready > 0) return true;
    if (ready < 0 && errno == EINTR) continue;
    errno = EAGAIN;
    return false;
  }
}

bool Connection::Send(const Buffer& frames) {
  const std::byte* next = frames.Data();
  std::size_t left = frames.Size();
  while (left > 0) {
    if (!WaitFor(POLLOUT)) return false;
    const int waits = limit_.count() == 0 ? 0 : MSG_DONTWAIT;
    const ssize_t sent = send(descriptor_.Number(), next, left, MSG_NOSIGNAL | waits);
    if (sent < 0) {
      if (errno == EINTR || (waits != 0 && errno == EAGAIN)) continue;
      return false;
    }
    next += sent;
    left -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool Connection::ReceiveFrame(FrameHead* head, Decoder* payload) {
  const std::size_t start = consumed_;
  std::size_t wanted = kHeadBytes;
  for (;;) {
    const std::size_t have = received_.Size() - start;
    if (have >= kHeadBytes) {
      *head = ReadHead(received_.Data() + start);
      if (head->payloadBytes > kMaxPayloadBytes) {
        errno = EPROTO;
        return false;
      }
      wanted = kHeadBytes + head->payloadBytes;
      if (have >= wanted) break;
    }
    // The buffer grows with what really arrives, so that a false length costs little.
    const std::size_t size = received_.Size();
    if (size == received_.Capacity()) {
      received_.Reserve(std::max(size + kFirstReceiveBytes, std::min(size * 2, start + wanted)));
    }
    if (start + wanted > received_.Capacity() && wanted <= kTrustedBytes) received_.Reserve(start + wanted);
    const auto receive = [&](int flags) {
      return recv(descriptor_.Number(), received_.Data() + size, received_.Capacity() - size, flags);
    };
    ssize_t got = -1;
    const auto tries = [&] {
      got = receive(MSG_DONTWAIT);
      return got >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    };
    if (!staysAwake_ || !IsThereInAMoment(tries)) {
      // Polling while the server is busy with other clients would take the processor from them.
      constexpr std::chrono::microseconds kSoon(50);
      const auto asleep = std::chrono::steady_clock::now();
      if (!WaitFor(POLLIN)) return false;
      got = receive(0);
      staysAwake_ = std::chrono::steady_clock::now() - asleep < kSoon;
    }
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = ECONNRESET;  // distinguishes the end from a timeout
    if (got <= 0) return false;
    received_.Extend(static_cast<std::size_t>(got));
  }
  *payload = Decoder(received_.Data() + start + kHeadBytes, head->payloadBytes);
  consumed_ = start + wanted;
  return true;
}

}  // namespace channel
