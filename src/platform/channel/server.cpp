#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "platform/channel/channel.h"
#include "platform/kernel/results.h"
#include "socket.h"
#include "wakefulness.h"

namespace channel {

using platform::Descriptor;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kWakeKey = 0;
constexpr std::size_t kReceiveBytes = 64u << 10;
constexpr UINT kCallMessage = WM_USER;
constexpr std::size_t kInterfaceIdBytes = 16;
constexpr std::string_view kTooManyPeers = "the server has as many connections as its limit of open files allows";

// How long accepting pauses after it failed: the lacking resource may become free without a peer leaving.
constexpr int kRetryMilliseconds = 100;

// Where the frame of a call message lies.
constexpr LPARAM kInReceived = 0;
constexpr LPARAM kInPeer = 1;

// The bytes of notes that may be queued for one peer. They count towards kHeldBytes only after the call: a peer must
// not be dropped while its call is served.
constexpr std::size_t kWaitingNoteBytes = 256u << 20;

// How often the server checks that its socket files are still there.
constexpr int kNamesMilliseconds = 2000;

// Returns how many peers may be connected. Each takes a descriptor, and a share stays free for the files that calls
// open. Raises the soft limit first, which is usually low.
std::size_t AllowPeers() {
  constexpr rlim_t kFilesOfACall = 24;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) limit = {1024, 1024};
  if (limit.rlim_cur != limit.rlim_max) {
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) limit.rlim_cur = before;
  }
  const rlim_t forFiles = std::max(limit.rlim_cur / 4, kFilesOfACall);
  return limit.rlim_cur > forFiles ? limit.rlim_cur - forFiles : 1;
}

void AppendRefusal(Encoder* frames, HRESULT result, std::string_view reason) {
  frames->BeginFrame(FrameType::refusal);
  frames->U32(static_cast<std::uint32_t>(result));
  frames->Bytes(reason.data(), reason.size());
  frames->EndFrame();
}

// Runs `operation` and turns its exceptions into results.
template <typename Operation>
HRESULT ResultOf(const Operation& operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return rpc::kServerFault;
  }
}

ucred CredentialsOf(int descriptor) {
  ucred credentials{};
  PeerCredentials(descriptor, &credentials);
  return credentials;
}

// Returns how many bytes of a text fit into `most` without splitting a character.
std::size_t LengthOfWholeCharacters(std::string_view utf8, std::size_t most) {
  if (utf8.size() <= most) return utf8.size();
  while (most != 0 && (static_cast<unsigned char>(utf8[most]) & 0xC0u) == 0x80)
    --most;
  return most;
}

// Makes room for the next read. The room grows with what has arrived, but not far beyond the announced frame.
void ReserveForFrame(Buffer* input) {
  const std::size_t next = input->Size() + kReceiveBytes;
  if (next <= input->Capacity()) return;
  const std::size_t promised = input->Size() < kHeadBytes ? 0 : kHeadBytes + ReadHead(input->Data()).payloadBytes;
  input->Reserve(std::max(next, std::min(input->Size() * 2, promised + kReceiveBytes)));
}

}  // namespace

struct Server::Listener {
  Listener(std::string at, Service* ownService) : path(std::move(at)), service(ownService) {}

  bool HasName() const {
    struct stat now {};
    return lstat(path.c_str(), &now) == 0 && now.st_dev == device && now.st_ino == inode;
  }

  // Removes the socket file if it is still this socket's: after the folder was cleared, it may be another server's.
  void RemoveName() const {
    if (HasName()) unlink(path.c_str());
  }

  Descriptor descriptor;
  std::string path;
  Service* service;
  dev_t device = 0;
  ino_t inode = 0;
};

struct Server::Peer {
  Peer(Descriptor socket, std::uint64_t ownKey, std::uint64_t listenerKey, Service* ownService)
      : descriptor(std::move(socket)),
        key(ownKey),
        listener(listenerKey),
        service(ownService),
        credentials(CredentialsOf(descriptor.Number())) {}

  Descriptor descriptor;
  const std::uint64_t key;
  const std::uint64_t listener;
  Service* service;
  const ucred credentials;
  bool greeted = false;       // its Hello was accepted
  bool follows = false;       // gets the notes of its current or next call
  bool hasReason = false;     // its session has served the last call
  bool queued = false;        // a complete frame in `input` waits in ready_; reading pauses meanwhile
  bool leaving = false;       // to be dropped once its output is sent
  Buffer input;               // a partial frame, or what arrived after a frame that is not served yet
  std::size_t served = 0;     // bytes at the front of `input` that are served
  Buffer output;              // notes and answers that are not sent yet; reading pauses meanwhile
  std::size_t sent = 0;       // bytes at the front of `output` that are sent
  std::size_t held = 0;       // bytes allocated for `input` and `output`
  std::size_t toSkip = 0;     // remaining bytes of a call that is discarded for lack of memory
  std::uint16_t skipped = 0;  // the slot of that call
  std::unique_ptr<Session> session;
};

class Server::PeerAsCaller final : public Caller {
 public:
  PeerAsCaller(Server& server, Peer& peer) : server_(server), peer_(peer) {}

  uid_t User() const override { return peer_.credentials.uid; }
  pid_t Process() const override { return peer_.credentials.pid; }
  void Tell(const Note& note) override {
    if (peer_.follows) server_.Tell(peer_, note);
  }

 private:
  Server& server_;
  Peer& peer_;
};

Server::Server() : epoll_(epoll_create1(EPOLL_CLOEXEC)), mostPeers_(AllowPeers()), spare_(dup(epoll_.Number())) {
  if (!epoll_) throw std::system_error(errno, std::generic_category(), "epoll");
  received_.Reserve(kReceiveBytes);
}

Server::~Server() {
  peers_.clear();
  for (const auto& [key, listener] : listeners_)
    listener->RemoveName();
}

bool Server::Listen(const std::string& socketPath, Service* service) {
  auto listener = std::make_unique<Listener>(socketPath, service);
  if (!Bind(*listener)) return false;
  const std::uint64_t key = nextKey_++;
  if (!Watch(listener->descriptor.Number(), listenersPaused_ ? 0u : std::uint32_t{EPOLLIN}, key)) {
    listener->RemoveName();
    return false;
  }
  listeners_.emplace(key, std::move(listener));
  namesSeen_ = Clock::now();
  return true;
}

// Creates the listener's socket and its file.
bool Server::Bind(Listener& listener) {
  sockaddr_un address{};
  if (!SocketAddress(listener.path, &address)) return false;
  Descriptor bound(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!bound) return false;
  unlink(listener.path.c_str());
  struct stat status {};
  if (bind(bound.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(bound.Number(), SOMAXCONN) != 0 || lstat(listener.path.c_str(), &status) != 0) {
    return false;
  }
  listener.device = status.st_dev;
  listener.inode = status.st_ino;
  listener.descriptor = std::move(bound);
  return true;
}

// Systems clean up the folders where sockets lie. Without its socket files a server would live on but get no new
// client.
void Server::RestoreNames() {
  namesSeen_ = Clock::now();
  try {
    for (const auto& [key, listener] : listeners_) {
      if (listener->HasName() || !listener->service->RestoreFolder(&listener->path) || !Bind(*listener)) continue;
      const std::uint32_t events = listenersPaused_ ? 0u : std::uint32_t{EPOLLIN};
      if (!Watch(listener->descriptor.Number(), events, key)) listener->RemoveName();  // the next check tries again
    }
  } catch (const std::bad_alloc&) {
    // The next check tries again.
  }
}

void Server::Withdraw(const std::string& socketPath) {
  for (auto it = listeners_.begin(); it != listeners_.end(); ++it) {
    if (it->second->path != socketPath) continue;
    // Removes the file first: a client that connects now must not find a socket that no server will serve.
    it->second->RemoveName();
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

bool Server::Watch(int descriptor, std::uint32_t events, std::uint64_t key) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = key;
  return epoll_ctl(epoll_.Number(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void Server::WatchFor(int descriptor, std::uint32_t events, std::uint64_t key) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = key;
  epoll_ctl(epoll_.Number(), EPOLL_CTL_MOD, descriptor, &event);
}

bool Server::Wait(int wakeDescriptor, MSG* message) {
  if (wakeDescriptor != wakeDescriptor_) {
    wakeDescriptor_ = wakeDescriptor;
    Watch(wakeDescriptor, EPOLLIN, kWakeKey);
  }

  // Handles one event per round: the frame that it brings is served from received_ before the next read. While frames
  // wait in the peers' own buffers, rounds alternate between those and the sockets, so that neither starves the other.
  received_.Resize(0);
  if (readyIsNext_ && TakeReady(message)) return true;
  const auto now = Clock::now();
  if (now - pausedSince_ >= std::chrono::milliseconds(kRetryMilliseconds)) ResumeListeners();
  if (now - namesSeen_ >= std::chrono::milliseconds(kNamesMilliseconds)) RestoreNames();
  epoll_event event{};
  const int limit = listenersPaused_ ? kRetryMilliseconds : listeners_.empty() ? -1 : kNamesMilliseconds;
  const auto look = [&](int limitMs) { return epoll_wait(epoll_.Number(), &event, 1, limitMs); };
  int count = 0;
  // A client that has just been answered often calls again at once.
  const bool staysAwake = std::exchange(hasServed_, false) && ready_.empty();
  const bool came = staysAwake && IsThereInAMoment([&] { return (count = look(0)) != 0; });
  if (!came) count = look(ready_.empty() ? limit : 0);
  if (count == 1 && event.data.u64 != kWakeKey) {
    HandleEvent(event.data.u64, (event.events & EPOLLOUT) != 0);
    if (received_.Size() != 0) {
      *message = {nullptr, kCallMessage, event.data.u64, kInReceived};
      readyIsNext_ = true;
      return true;
    }
  }
  return TakeReady(message);
}

bool Server::TakeReady(MSG* message) {
  readyIsNext_ = false;
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
    ForgoCall(*found->second);
  }
}

void Server::Accept(std::uint64_t listenerKey, const Listener& listener) {
  Descriptor descriptor(accept4(listener.descriptor.Number(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!descriptor) {
    // When memory is short, the clients in the queue keep waiting.
    const int error = errno;
    if (error == EMFILE || error == ENFILE) TurnAwayNext(listener);
    if (error == ENOBUFS || error == ENOMEM) PauseListeners();
    return;
  }
  if (!PeerIsTrusted(descriptor.Number(), geteuid())) {
    Turn(descriptor.Number(), E_ACCESSDENIED, "this server serves its owner only");
    return;
  }
  if (peers_.size() >= mostPeers_) {
    Turn(descriptor.Number(), rpc::kServerTooBusy, kTooManyPeers);
    return;
  }
  try {
    const std::uint64_t key = nextKey_++;
    const int accepted = descriptor.Number();
    peers_.emplace(key, std::make_unique<Peer>(std::move(descriptor), key, listenerKey, listener.service));
    if (!Watch(accepted, EPOLLIN, key)) Drop(key);
  } catch (const std::bad_alloc&) {
    // The connection closes, and its client tries again through activation.
  }
}

// Refuses the next peer when no descriptor is left, using the spare one for that long.
void Server::TurnAwayNext(const Listener& listener) {
  spare_.Close();
  Descriptor next(accept4(listener.descriptor.Number(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (next) Turn(next.Number(), rpc::kServerTooBusy, kTooManyPeers);
  const bool isTold = static_cast<bool>(next);
  next.Close();
  spare_ = Descriptor(dup(epoll_.Number()));
  if (!isTold) PauseListeners();
}

// Tells a peer why it is not served, as far as the socket takes it at once.
void Server::Turn(int descriptor, HRESULT result, std::string_view reason) {
  try {
    Encoder frames;
    AppendHello(&frames);
    AppendRefusal(&frames, result, reason);
    send(descriptor, frames.Frames().Data(), frames.Frames().Size(), MSG_NOSIGNAL);
  } catch (const std::bad_alloc&) {
    // The connection then closes without a reason.
  }
}

void Server::PauseListeners() {
  listenersPaused_ = true;
  pausedSince_ = Clock::now();
  for (const auto& [key, listener] : listeners_)
    WatchFor(listener->descriptor.Number(), 0, key);
}

void Server::ResumeListeners() {
  if (!listenersPaused_) return;
  listenersPaused_ = false;
  for (const auto& [key, listener] : listeners_)
    WatchFor(listener->descriptor.Number(), EPOLLIN, key);
}

// Reads once. A complete frame that arrives with nothing before it stays in received_ and is served from there;
// everything else goes to the peer's own buffer.
void Server::Receive(Peer& peer) {
  if (peer.toSkip != 0) {
    SkipCall(peer);
    return;
  }
  const bool intoReceived = peer.input.Size() == 0;
  Buffer& target = intoReceived ? received_ : peer.input;
  if (peer.served != 0) {
    target.DropFront(peer.served);
    peer.served = 0;
  }
  const std::size_t before = target.Size();
  if (!intoReceived) ReserveForFrame(&target);
  const ssize_t got = recv(peer.descriptor.Number(), target.Extend(kReceiveBytes), kReceiveBytes, 0);
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

// Gives up a call that has begun to arrive and for which memory is short: discards the rest as it arrives, then
// answers.
void Server::ForgoCall(Peer& peer) {
  const bool inReceived = received_.Size() != 0;
  const std::byte* begun = inReceived ? received_.Data() : peer.input.Data() + peer.served;
  const std::size_t have = inReceived ? received_.Size() : peer.input.Size() - peer.served;
  const FrameHead head = have < kHeadBytes ? FrameHead{} : ReadHead(begun);
  const std::size_t whole = kHeadBytes + head.payloadBytes;
  received_.Resize(0);
  peer.input.Release();
  peer.served = 0;
  // Only a client with an object waits for a result. Frames that it has sent after this call would be lost with the
  // call.
  if (!peer.session || head.type != FrameType::call || head.payloadBytes > kMaxPayloadBytes || have > whole) {
    Drop(peer.key);
    return;
  }
  Hold(peer);
  peer.skipped = head.slot;
  peer.toSkip = whole - have;
  if (peer.toSkip == 0) TellLackOfMemory(peer, head.slot);
}

void Server::SkipCall(Peer& peer) {
  const std::size_t most = std::min(peer.toSkip, kReceiveBytes);
  const ssize_t got = recv(peer.descriptor.Number(), received_.Extend(most), most, 0);
  received_.Resize(0);
  if (got <= 0) {
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) Drop(peer.key);
    return;
  }
  peer.toSkip -= static_cast<std::size_t>(got);
  if (peer.toSkip == 0) TellLackOfMemory(peer, peer.skipped);
}

// Answers a call with E_OUTOFMEMORY, without allocating. The peer gets no more notes of the call and no reason.
void Server::TellLackOfMemory(Peer& peer, std::uint16_t slot) {
  peer.follows = false;
  peer.hasReason = false;
  std::array<std::byte, kHeadBytes + sizeof(std::uint32_t)> frame{};
  WriteHead({sizeof(std::uint32_t), FrameType::result, slot}, frame.data());
  constexpr auto kResult = static_cast<std::uint32_t>(E_OUTOFMEMORY);
  std::memcpy(frame.data() + kHeadBytes, &kResult, sizeof kResult);
  const ssize_t sent = send(peer.descriptor.Number(), frame.data(), frame.size(), MSG_NOSIGNAL);
  if (sent != static_cast<ssize_t>(frame.size())) Drop(peer.key);
}

std::size_t Server::WholeFrame(const std::byte* bytes, std::size_t size) {
  if (size < kHeadBytes) return 0;
  const std::size_t whole = kHeadBytes + ReadHead(bytes).payloadBytes;
  return size >= whole && whole <= kHeadBytes + kMaxPayloadBytes ? whole : 0;
}

// Accounts for the peer's memory, then queues the peer if its own buffer starts with a complete frame. Refuses a frame
// that is too long.
void Server::QueueNextFrame(Peer& peer) {
  const std::size_t left = peer.input.Size() - peer.served;
  if (left == 0) {
    peer.input.Release();
    peer.served = 0;
  }
  if (!Hold(peer)) return;
  if (peer.output.Size() != 0 || peer.queued) return;
  const std::byte* next = peer.input.Data() + peer.served;
  if (WholeFrame(next, left) != 0) {
    ready_.push_back(peer.key);
    peer.queued = true;
    WatchFor(peer.descriptor.Number(), 0, peer.key);
  } else if (left >= kHeadBytes && ReadHead(next).payloadBytes > kMaxPayloadBytes) {
    answer_.Clear();
    Refuse(peer, rpc::kBadStubData, "a frame longer than the protocol allows");
    Answer(peer);
  }
}

// Accounts for the memory that the peer takes. While all peers take too much, drops the one that takes most. Returns
// false when that was this peer.
bool Server::Hold(Peer& peer) {
  const std::uint64_t key = peer.key;
  const std::size_t now = peer.input.Capacity() + peer.output.Capacity();
  heldBytes_ += now - peer.held;
  peer.held = now;
  while (heldBytes_ > kHeldBytes) {
    const auto most = std::max_element(peers_.begin(), peers_.end(),
                                       [](const auto& a, const auto& b) { return a.second->held < b.second->held; });
    Drop(most->first);
  }
  return peers_.find(key) != peers_.end();
}

void Server::Dispatch(const MSG& message) {
  const std::uint64_t key = message.wParam;
  const auto found = peers_.find(key);
  if (found == peers_.end()) return;
  hasServed_ = true;
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
    if (peer.output.Size() == 0) WatchFor(peer.descriptor.Number(), EPOLLIN, key);
  }
  if (peer.input.Capacity() != 0) QueueNextFrame(peer);
}

void Server::Serve(Peer& peer, const FrameHead& head, const std::byte* payload) {
  answer_.Clear();
  if (head.type == FrameType::follow && peer.greeted) {
    peer.follows = true;
  } else if (!peer.session) {
    ServeOpening(peer, head.type, Decoder(payload, head.payloadBytes));
  } else if (head.type == FrameType::call) {
    ServeCall(peer, head.slot, Decoder(payload, head.payloadBytes));
  } else if (head.type == FrameType::reason) {
    ServeReason(peer);
  } else {
    Refuse(peer, rpc::kBadStubData, "a frame that has no place here");
  }
  Answer(peer);
}

void Server::ServeOpening(Peer& peer, FrameType type, Decoder payload) {
  if (!peer.greeted) {
    AppendHello(&answer_);
    peer.greeted = type == FrameType::hello && payload.U32() == kMagic && payload.U16() == kProtocolVersion;
    if (!peer.greeted) Refuse(peer, rpc::kVersionMismatch, "another protocol, or another version of it");
    return;
  }
  if (type == FrameType::create && payload.Left() == kInterfaceIdBytes) {
    const HRESULT result =
        ResultOf([&] { return peer.service->Create(payload.Bytes(kInterfaceIdBytes), &peer.session); });
    if (peer.session) ++liveObjects_;
    answer_.BeginFrame(FrameType::created);
    answer_.U32(static_cast<std::uint32_t>(result));
    answer_.EndFrame();
  } else if (type == FrameType::status) {
    answer_.BeginFrame(FrameType::status);
    answer_.U32(static_cast<std::uint32_t>(getpid()));
    answer_.U32(liveObjects_);
    answer_.EndFrame();
  } else if (type == FrameType::rehearse) {
    ServeRehearsal(peer, payload);
  } else {
    Refuse(peer, rpc::kBadStubData, "a frame that has no place here");
  }
}

void Server::ServeRehearsal(Peer& peer, Decoder arguments) {
  PeerAsCaller caller(*this, peer);
  const HRESULT result = ResultOf([&] { return peer.service->Rehearse(caller, arguments); });
  peer.follows = false;
  answer_.BeginFrame(FrameType::rehearse);
  answer_.U32(static_cast<std::uint32_t>(result));
  answer_.EndFrame();
}

void Server::ServeCall(Peer& peer, std::uint16_t slot, Decoder arguments) {
  peer.hasReason = false;
  try {
    answer_.BeginFrame(FrameType::result, slot);
    answer_.U32(0);
  } catch (const std::bad_alloc&) {
    answer_.Clear();
    TellLackOfMemory(peer, slot);
    return;
  }
  HRESULT result = ResultOf([&] {
    PeerAsCaller caller(*this, peer);
    const HRESULT ownResult = peer.session->Call(caller, slot, arguments, answer_);
    peer.hasReason = true;
    return ownResult;
  });
  peer.follows = false;
  if (!peer.hasReason) answer_.CutPayload(sizeof(std::uint32_t));
  if (answer_.PayloadBytes() > kMaxPayloadBytes) {
    result = E_OUTOFMEMORY;
    answer_.CutPayload(sizeof(std::uint32_t));
  }
  answer_.PutU32(0, static_cast<std::uint32_t>(result));
  answer_.EndFrame();
}

void Server::ServeReason(Peer& peer) {
  std::string reason;
  if (peer.hasReason) {
    ResultOf([&] {
      reason = peer.session->Reason();
      return S_OK;
    });
  }
  answer_.BeginFrame(FrameType::reason);
  answer_.Bytes(reason.data(), LengthOfWholeCharacters(reason, kMaxReasonBytes));
  answer_.EndFrame();
}

// While a call is served, only its notes are queued for its peer. What the socket does not take now goes out before the
// next note or the answer.
void Server::Tell(Peer& peer, const Note& note) {
  try {
    note_.Clear();
    AppendNote(note, &note_);
    const Buffer& frame = note_.Frames();
    std::size_t sent = 0;
    bool isThere = SendWaiting(peer);
    if (isThere && peer.output.Size() == 0) isThere = SendNow(peer, frame.Data(), frame.Size(), &sent);
    if (isThere && peer.output.Size() - peer.sent + frame.Size() - sent <= kWaitingNoteBytes) {
      if (peer.sent > peer.output.Size() / 2) peer.output.DropFront(std::exchange(peer.sent, 0));
      peer.output.Append(frame.Data() + sent, frame.Size() - sent);
      return;
    }
  } catch (const std::bad_alloc&) {
    // Ends as when too many notes are queued.
  }
  // The peer may have part of a frame, and must not take the answer for the rest of it.
  shutdown(peer.descriptor.Number(), SHUT_RDWR);
  peer.output.Release();
  peer.sent = 0;
  peer.follows = false;
}

// Sends as much as the socket takes at once. Returns false when the peer is gone.
bool Server::SendNow(const Peer& peer, const std::byte* bytes, std::size_t count, std::size_t* sent) {
  const ssize_t taken = send(peer.descriptor.Number(), bytes, count, MSG_NOSIGNAL);
  *sent = taken < 0 ? 0 : static_cast<std::size_t>(taken);
  return taken >= 0 || errno == EAGAIN || errno == EINTR;
}

// Sends as much of the queued output as the socket takes at once. Returns false when the peer is gone.
bool Server::SendWaiting(Peer& peer) {
  const std::size_t left = peer.output.Size() - peer.sent;
  if (left == 0) return true;
  std::size_t sent = 0;
  if (!SendNow(peer, peer.output.Data() + peer.sent, left, &sent)) return false;
  peer.sent += sent;
  if (sent == left) {
    peer.output.Release();
    peer.sent = 0;
  }
  return true;
}

void Server::Refuse(Peer& peer, HRESULT result, std::string_view reason) {
  AppendRefusal(&answer_, result, reason);
  peer.leaving = true;
}

// Sends the encoded frames. Queues what the socket does not take now, and reads nothing from the peer until it is sent.
void Server::Answer(Peer& peer) {
  Buffer& frames = answer_.Frames();
  if (frames.Size() == 0) return;  // answered already, or there is nothing to answer
  if (peer.output.Size() != 0) {   // the notes of the call go first
    peer.output.Append(frames.Data(), frames.Size());
    if (Hold(peer)) WatchFor(peer.descriptor.Number(), EPOLLOUT, peer.key);
    return;
  }
  std::size_t sent = 0;
  if (!SendNow(peer, frames.Data(), frames.Size(), &sent)) {
    Drop(peer.key);
    return;
  }
  if (sent == frames.Size()) {
    if (peer.leaving) Drop(peer.key);
    return;
  }
  // Moved, not copied: a copy would need memory, and the call is already done.
  peer.output = std::move(frames);
  peer.sent = sent;
  if (!Hold(peer)) return;
  WatchFor(peer.descriptor.Number(), EPOLLOUT, peer.key);
}

void Server::Flush(Peer& peer) {
  if (!SendWaiting(peer)) {
    Drop(peer.key);
    return;
  }
  if (peer.output.Size() != 0) return;
  if (peer.leaving) {
    Drop(peer.key);
    return;
  }
  WatchFor(peer.descriptor.Number(), EPOLLIN, peer.key);
  QueueNextFrame(peer);
}

void Server::Drop(std::uint64_t key) {
  const auto found = peers_.find(key);
  if (found == peers_.end()) return;
  // Removed from the table before its object is released, because the release may run any code.
  const std::unique_ptr<Peer> peer = std::move(found->second);
  peers_.erase(found);
  heldBytes_ -= peer->held;
  if (peer->session) --liveObjects_;
  ResumeListeners();
}

}  // namespace channel
