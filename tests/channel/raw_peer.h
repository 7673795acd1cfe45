// One end of a connection, for peers that say what no well-behaved one would, or say it byte by byte.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/host/descriptor.h"

namespace channel_test {

// Makes a socket and lets `use` (bind or connect) bring it to the path.
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

  // False when the other end does not take all of it.
  bool Send(std::string_view bytes) const {
    return send(socket_.Number(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }

  // `count` bytes, or fewer when the other end ends the connection. Silence is a failure.
  std::string Receive(std::size_t count) const {
    const timeval limit{30, 0};
    setsockopt(socket_.Number(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::string bytes(count, '\0');
    std::size_t have = 0;
    while (have < count) {
      const ssize_t got = recv(socket_.Number(), bytes.data() + have, count - have, 0);
      if (got < 0 && errno == EAGAIN) throw std::runtime_error("the other end is silent");
      if (got <= 0) break;
      have += static_cast<std::size_t>(got);
    }
    bytes.resize(have);
    return bytes;
  }

  void StopSending() const { shutdown(socket_.Number(), SHUT_WR); }

 private:
  platform::Descriptor socket_;
};

}  // namespace channel_test
