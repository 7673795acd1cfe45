// Both ends of a connection: a server on a thread of its own and access to its objects; and peers that send what no
// well-behaved peer would, or send it byte by byte.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <future>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <thread>

#include "platform/channel/channel.h"

namespace channel_test {

using channel::FrameType;

inline std::string Number(std::uint64_t value, std::size_t width) {
  return {reinterpret_cast<const char*>(&value), width};
}

// Returns a frame, which may claim another length.
inline std::string Frame(FrameType type, std::uint16_t slot, const std::string& payload,
                         std::optional<std::uint64_t> claimed = {}) {
  return Number(claimed.value_or(payload.size()), 4) + Number(static_cast<std::uint16_t>(type), 2) + Number(slot, 2) +
         payload;
}

inline const std::string kHello = Frame(FrameType::hello, 0, std::string("KSTR\1\0\1\0", 8));

// Returns the frames that open a connection to an object with the interface, an ID of 16 bytes.
inline std::string Opening(const void* interfaceId) {
  return kHello + Frame(FrameType::create, 0, std::string(static_cast<const char*>(interfaceId), 16));
}

// Makes a socket and applies `use` (bind or connect) to it with the path.
template <typename Use>
platform::Descriptor SocketAt(const std::string& path, Use use) {
  platform::Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (use(made.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("no socket at " + path);
  }
  return made;
}

class RawPeer {
 public:
  explicit RawPeer(platform::Descriptor connected) : socket_(std::move(connected)) {}
  explicit RawPeer(const std::string& path) : socket_(SocketAt(path, connect)) {}

  // Returns false if the other end does not take all bytes.
  bool Send(std::string_view bytes) const {
    return send(socket_.Number(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }
  void StopSending() const { shutdown(socket_.Number(), SHUT_WR); }

  // Returns `count` bytes, or fewer if the other end closes the connection. Fails the test if nothing comes.
  std::string Receive(std::size_t count) const {
    const timeval limit{30, 0};
    setsockopt(socket_.Number(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::string bytes(count, '\0');
    const ssize_t got = count == 0 ? 0 : recv(socket_.Number(), bytes.data(), count, MSG_WAITALL);
    if (got < 0 && errno == EAGAIN) throw std::runtime_error("the other end is silent");
    bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return bytes;
  }

  // Returns what a server sends up to the end of the connection, a refusal without its reason. Fails the test for
  // anything but whole frames as servers send them, or if a refusal is not the last one.
  std::string ReceiveToEnd() const {
    std::string all;
    for (std::string head; !(head = Receive(channel::kHeadBytes)).empty();) {
      head.resize(channel::kHeadBytes);
      const auto [bytes, type, slot] = channel::ReadHead(reinterpret_cast<const std::byte*>(head.data()));
      const bool isRefusal = type == FrameType::refusal;
      constexpr std::uint32_t kClients = 1u << 2 | 1u << 4 | 1u << 9;  // Create, Call, Follow
      const auto number = static_cast<unsigned>(type);
      const bool isServers = number >= 1 && number <= 11 && (kClients >> number & 1u) == 0;
      if (!isServers || bytes > channel::kMaxPayloadBytes) throw std::runtime_error("no frame of a server");
      const std::string payload = Receive(bytes);
      if (payload.size() != bytes) throw std::runtime_error("half a frame");
      if (isRefusal && !Receive(1).empty()) throw std::runtime_error("a refusal that is not the last frame");
      all += Frame(type, slot, isRefusal ? payload.substr(0, 4) : payload);
    }
    return all;
  }

 private:
  platform::Descriptor socket_;
};

class ServerThread {
 public:
  ServerThread(const std::string& path, channel::Service* service) {
    std::promise<DWORD> ready;
    thread_ = std::jthread([&ready, path, service] {
      channel::Server server;
      platform::AttachMessageSource(&server);
      if (!server.Listen(path, service)) throw std::runtime_error("cannot listen");
      ready.set_value(GetCurrentThreadId());
      MSG message{};
      while (GetMessageA(&message, nullptr, 0, 0) != FALSE) {
        if (message.message == kWithdraw) server.Withdraw(path);
        DispatchMessageA(&message);
      }
      platform::AttachMessageSource(nullptr);
    });
    id_ = ready.get_future().get();
  }
  ~ServerThread() { PostThreadMessageA(id_, WM_QUIT, 0, 0); }

  void Withdraw() const { PostThreadMessageA(id_, kWithdraw, 0, 0); }

 private:
  static constexpr UINT kWithdraw = WM_USER + 100;

  DWORD id_ = 0;
  std::jthread thread_;
};

// Opens a connection that carries an object with the interface, an ID of 16 bytes.
inline std::unique_ptr<channel::Connection> OpenObject(const std::string& path, const void* interfaceId) {
  std::unique_ptr<channel::Connection> connection;
  channel::Decoder answer;
  EXPECT_EQ(channel::Connection::Open(path, geteuid(), {FrameType::create, interfaceId, 16}, 30, &connection, &answer),
            channel::Connection::Outcome::ok);
  EXPECT_EQ(answer.U32(), 0u);
  return connection;
}

// What a client gets from a call: the result and the rest of the answer's payload.
using Outcome = std::pair<HRESULT, std::string>;

inline Outcome Call(channel::Connection& connection, std::uint16_t slot, std::string_view arguments) {
  connection.BeginCall(slot).Bytes(arguments.data(), arguments.size());
  channel::Decoder out;
  const HRESULT result = connection.Exchange(&out);
  const std::size_t bytes = out.Left();
  return {result, std::string(reinterpret_cast<const char*>(out.Bytes(bytes)), bytes)};
}

}  // namespace channel_test
