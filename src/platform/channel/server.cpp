#include <sys/epoll.h>
#include <sys/resource.h>

#include <cerrno>
#include <new>
#include <system_error>

#include "platform/channel/channel.h"
#include "socket.h"

namespace channel {

namespace {

constexpr std::uint64_t kWakeKey = 0;
constexpr std::size_t kReceiveBytes = 64u << 10;
constexpr UINT kCallMessage = WM_USER;
constexpr std::size_t kInterfaceIdBytes = 16;

// Where the frame of a call message lies.
constexpr LPARAM kInReceived = 0;
constexpr LPARAM kInPeer = 1;

// How many peers may be connected: every one costs a descriptor, and some stay free for the files that calls open. The
// usual soft limit is low and is raised first.
std::size_t AllowPeers() {
  constexpr std::size_t kForFiles = 64;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1024 - kForFiles;
  if (limit.rlim_cur != limit.rlim_max) {
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) limit.rlim_cur = before;
  }
  return limit.rlim_cur > 2 * kForFiles ? limit.rlim_cur - kForFiles : kForFiles;
}

}  // namespace

struct Server::Listener {
  Listener(int socket, std::string at, Service* behind) : descriptor(socket), path(std::move(at)), service(behind) {}

  Descriptor descriptor;
  std::string path;
  Service* service;
};

struct Server::Peer {
  Peer(int socket, std::uint64_t ownKey, std::uint64_t listenerKey, Service* behind)
      : descriptor(socket), key(ownKey), listener(listenerKey), service(behind) {}

  Descriptor descriptor;
  const std::uint64_t key;
  const std::uint64_t listener;
  Service* service;
  bool greeted = false;    // its Hello was right
  bool queued = false;     // a whole frame of its own buffer waits in ready_; nothing more is read meanwhile
  bool leaving = false;    // to be dropped once its output is out
  Buffer input;            // what arrived behind, or of, a frame that is not served yet
  std::size_t served = 0;  // bytes at the front of `input` that are done with
  Buffer output;           // answers that the peer has not read yet; nothing is read from it meanwhile
  std::size_t sent = 0;    // bytes at the front of `output` that it has
  std::size_t held = 0;    // what `input` and `output` take
  std::unique_ptr<Session> session;
};

Server::Server() : epoll_(epoll_create1(EPOLL_CLOEXEC)), mostPeers_(AllowPeers()) {
  if (epoll_ < 0) throw std::system_error(errno, std::generic_category(), "epoll");
  received_.Reserve(kReceiveBytes);
}

Server::~Server() {
  peers_.clear();
  for (const auto& [key, listener] : listeners_)
    unlink(listener->path.c_str());
  close(epoll_);
}

bool Server::Listen(const std::string& socketPath, Service* service) {
  sockaddr_un address{};
  if (!SocketAddress(socketPath, &address)) return false;
  auto listener =
      std::make_unique<Listener>(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), socketPath, service);
  if (!listener->descriptor) return false;
  unlink(socketPath.c_str());
  if (bind(listener->descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener->descriptor.Get(), SOMAXCONN) != 0) {
    return false;
  }
  const std::uint64_t key = nextKey_++;
  Watch(listener->descriptor.Get(), EPOLLIN, key, true);
  listeners_.emplace(key, std::move(listener));
  return true;
}

void Server::Withdraw(const std::string& socketPath) {
  for (auto it = listeners_.begin(); it != listeners_.end(); ++it) {
    if (it->second->path != socketPath) continue;
    // The name goes first: whoever comes now must not find a socket that nobody will serve.
    unlink(socketPath.c_str());
    const std::uint64_t key = it->first;
    listeners_.erase(it);
    std::erase_if(peers_, [this, key](const auto& entry) {
      const Peer& peer = *entry.second;
      if (peer.listener != key || peer.session) return false;
      heldBytes_ -= peer.held;
      return true;
    });
    return;
  }
}

void Server::Watch(int descriptor, std::uint32_t events, std::uint64_t key, bool isNew) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = key;
  epoll_ctl(epoll_, isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, descriptor, &event);
}

bool Server::Wait(int wakeDescriptor, MSG* message) {
  if (wakeDescriptor != wakeDescriptor_) {
    wakeDescriptor_ = wakeDescriptor;
    Watch(wakeDescriptor, EPOLLIN, kWakeKey, true);
  }

  // One event a round: the frame that it brings is served out of received_ before the next one is read. While frames
  // wait in peers' own buffers the sockets are only glanced at, so that neither side starves the other.
  received_.Resize(0);
  epoll_event event{};
  const int count = epoll_wait(epoll_, &event, 1, ready_.empty() ? -1 : 0);
  if (count == 1 && event.data.u64 != kWakeKey) {
    HandleEvent(event.data.u64, (event.events & EPOLLOUT) != 0);
    if (received_.Size() != 0) {
      *message = {nullptr, kCallMessage, event.data.u64, kInReceived};
      return true;
    }
  }
  if (ready_.empty()) return false;
  *message = {nullptr, kCallMessage, ready_.front(), kInPeer};
  ready_.pop_front();
  return true;
}

void Server::HandleEvent(std::uint64_t key, bool writable) {
  if (const auto listener = listeners_.find(key); listener != listeners_.end()) {
    Accept(key, *listener->second);
    return;
  }
  const auto found = peers_.find(key);
  if (found == peers_.end()) return;
  try {
    if (writable) {
      Flush(*found->second);
    } else {
      Receive(*found->second);
    }
  } catch (const std::bad_alloc&) {
    received_.Resize(0);
    Drop(key);
  }
}

void Server::Accept(std::uint64_t listenerKey, const Listener& listener) {
  Descriptor descriptor(accept4(listener.descriptor.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!descriptor) {
    // Out of descriptors: who waits in the queue goes on waiting until somebody leaves.
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) PauseListeners(true);
    return;
  }
  try {
    const std::uint64_t key = nextKey_++;
    auto peer = std::make_unique<Peer>(descriptor.Get(), key, listenerKey, listener.service);
    descriptor.Take();
    Peer& accepted = *peer;
    peers_.emplace(key, std::move(peer));
    Watch(accepted.descriptor.Get(), EPOLLIN, key, true);
    if (!PeerIsTrusted(accepted.descriptor.Get())) {
      answer_.Clear();
      AppendHello(&answer_);
      Refuse(accepted, kAccessDenied, "this server serves its owner only");
      Answer(accepted);
    }
  } catch (const std::bad_alloc&) {
    // The connection is closed; its client turns to activation and comes again.
  }
  if (peers_.size() >= mostPeers_) PauseListeners(true);
}

void Server::PauseListeners(bool pause) {
  if (listenersPaused_ == pause) return;
  listenersPaused_ = pause;
  for (const auto& [key, listener] : listeners_) {
    Watch(listener->descriptor.Get(), pause ? 0u : std::uint32_t{EPOLLIN}, key, false);
  }
}

// Reads once. A whole frame that came with nothing in front of it stays in received_ to be served from there; anything
// else goes to the peer's own buffer.
void Server::Receive(Peer& peer) {
  const bool intoReceived = peer.input.Size() == 0;
  Buffer& target = intoReceived ? received_ : peer.input;
  if (peer.served != 0) {
    target.DropFront(peer.served);
    peer.served = 0;
  }
  const std::size_t before = target.Size();
  const ssize_t got = recv(peer.descriptor.Get(), target.Extend(kReceiveBytes), kReceiveBytes, 0);
  target.Resize(before + (got > 0 ? static_cast<std::size_t>(got) : 0));
  if (got <= 0) {
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) Drop(peer.key);
    return;
  }

  if (intoReceived) {
    const std::size_t whole = WholeFrame(received_.Data(), received_.Size());
    peer.input.Append(received_.Data() + whole, received_.Size() - whole);
    received_.Resize(whole);
    if (whole != 0) return;
  }
  QueueNextFrame(peer);
}

std::size_t Server::WholeFrame(const std::byte* bytes, std::size_t size) {
  if (size < kHeadBytes) return 0;
  const std::size_t whole = kHeadBytes + ReadHead(bytes).payloadBytes;
  return size >= whole && whole <= kHeadBytes + kMaxPayloadBytes ? whole : 0;
}

// Looks at what the peer's own buffer begins with, and keeps account of what the peer makes the server hold.
void Server::QueueNextFrame(Peer& peer) {
  const std::size_t left = peer.input.Size() - peer.served;
  if (left == 0) {
    peer.input.Release();
    peer.served = 0;
  }
  if (!Hold(peer)) {
    Drop(peer.key);
    return;
  }
  if (peer.output.Size() != 0 || peer.queued) return;
  const std::byte* next = peer.input.Data() + peer.served;
  if (WholeFrame(next, left) != 0) {
    peer.queued = true;
    ready_.push_back(peer.key);
    Watch(peer.descriptor.Get(), 0, peer.key, false);
  } else if (left >= kHeadBytes && ReadHead(next).payloadBytes > kMaxPayloadBytes) {
    answer_.Clear();
    Refuse(peer, kBadStubData, "a frame longer than the protocol allows");
    Answer(peer);
  }
}

// Accounts for what the peer makes the server hold. False when that is too much.
bool Server::Hold(Peer& peer) {
  const std::size_t now = peer.input.Capacity() + peer.output.Capacity();
  heldBytes_ += now - peer.held;
  peer.held = now;
  return heldBytes_ <= kHeldBytes;
}

void Server::Dispatch(const MSG& message) {
  const std::uint64_t key = message.wParam;
  const auto found = peers_.find(key);
  if (found == peers_.end()) return;
  try {
    ServeNext(*found->second, message.lParam == kInPeer);
  } catch (const std::bad_alloc&) {
    Drop(key);
  }
}

void Server::ServeNext(Peer& peer, bool fromPeer) {
  const std::uint64_t key = peer.key;
  const std::byte* frame = fromPeer ? peer.input.Data() + peer.served : received_.Data();
  Serve(peer, ReadHead(frame), frame + kHeadBytes);
  if (peers_.find(key) == peers_.end()) return;
  if (fromPeer) {
    peer.served += kHeadBytes + ReadHead(frame).payloadBytes;
    peer.queued = false;
    if (peer.output.Size() == 0) Watch(peer.descriptor.Get(), EPOLLIN, key, false);
  }
  if (peer.input.Capacity() != 0) QueueNextFrame(peer);
}

void Server::Serve(Peer& peer, const FrameHead& head, const std::byte* payload) {
  answer_.Clear();
  if (!peer.session) {
    ServeOpening(peer, head.type, Decoder(payload, head.payloadBytes));
  } else if (head.type == FrameType::call) {
    ServeCall(peer, head.slot, Decoder(payload, head.payloadBytes));
  } else {
    Refuse(peer, kBadStubData, "a frame that has no place here");
  }
  Answer(peer);
}

void Server::ServeOpening(Peer& peer, FrameType type, Decoder payload) {
  if (!peer.greeted) {
    AppendHello(&answer_);
    peer.greeted = type == FrameType::hello && payload.U32() == kMagic && payload.U16() == kProtocolVersion;
    if (!peer.greeted) Refuse(peer, kVersionMismatch, "another protocol, or another version of it");
    return;
  }
  if (type == FrameType::create && payload.Left() == kInterfaceIdBytes) {
    const HRESULT result = peer.service->Create(payload.Bytes(kInterfaceIdBytes), &peer.session);
    if (peer.session) ++liveObjects_;
    answer_.BeginFrame(FrameType::created);
    answer_.U32(static_cast<std::uint32_t>(result));
    answer_.EndFrame();
  } else if (type == FrameType::status) {
    answer_.BeginFrame(FrameType::status);
    answer_.U32(static_cast<std::uint32_t>(getpid()));
    answer_.U32(liveObjects_);
    answer_.EndFrame();
  } else {
    Refuse(peer, kBadStubData, "a frame that has no place here");
  }
}

void Server::ServeCall(Peer& peer, std::uint16_t slot, Decoder arguments) {
  answer_.BeginFrame(FrameType::result, slot);
  answer_.U32(0);
  HRESULT result = 0;
  try {
    result = peer.session->Call(slot, arguments, answer_);
  } catch (const std::bad_alloc&) {
    result = kOutOfMemory;
    answer_.CutPayload(sizeof(std::uint32_t));
  }
  if (answer_.PayloadBytes() > kMaxPayloadBytes) {
    result = kOutOfMemory;
    answer_.CutPayload(sizeof(std::uint32_t));
  }
  answer_.PutU32(0, static_cast<std::uint32_t>(result));
  answer_.EndFrame();
}

void Server::Refuse(Peer& peer, HRESULT result, std::string_view reason) {
  answer_.BeginFrame(FrameType::refusal);
  answer_.U32(static_cast<std::uint32_t>(result));
  answer_.Bytes(reason.data(), reason.size());
  answer_.EndFrame();
  peer.leaving = true;
}

// Sends what was encoded; what the peer does not take now waits with it, and nothing more is read from it until then.
void Server::Answer(Peer& peer) {
  Buffer& frames = answer_.Frames();
  ssize_t sent = send(peer.descriptor.Get(), frames.Data(), frames.Size(), MSG_NOSIGNAL);
  if (sent < 0) {
    if (errno != EAGAIN && errno != EINTR) {
      Drop(peer.key);
      return;
    }
    sent = 0;
  }
  if (static_cast<std::size_t>(sent) == frames.Size()) {
    if (peer.leaving) Drop(peer.key);
    return;
  }
  peer.output = std::move(frames);
  peer.sent = static_cast<std::size_t>(sent);
  answer_.Clear();
  if (!Hold(peer)) {
    Drop(peer.key);
    return;
  }
  Watch(peer.descriptor.Get(), EPOLLOUT, peer.key, false);
}

void Server::Flush(Peer& peer) {
  const ssize_t sent =
      send(peer.descriptor.Get(), peer.output.Data() + peer.sent, peer.output.Size() - peer.sent, MSG_NOSIGNAL);
  if (sent < 0) {
    if (errno != EAGAIN && errno != EINTR) Drop(peer.key);
    return;
  }
  peer.sent += static_cast<std::size_t>(sent);
  if (peer.sent < peer.output.Size()) return;
  if (peer.leaving) {
    Drop(peer.key);
    return;
  }
  peer.output.Release();
  peer.sent = 0;
  Watch(peer.descriptor.Get(), EPOLLIN, peer.key, false);
  QueueNextFrame(peer);
}

void Server::Drop(std::uint64_t key) {
  const auto found = peers_.find(key);
  if (found == peers_.end()) return;
  // Out of the table before its object is released: a release may run anything.
  const std::unique_ptr<Peer> peer = std::move(found->second);
  peers_.erase(found);
  heldBytes_ -= peer->held;
  if (peer->session) --liveObjects_;
  PauseListeners(false);
}

}  // namespace channel
