// Local sockets: what both ends need.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <string>

#include "platform/channel/channel.h"

namespace channel {

// Returns false when the path is too long for a socket.
inline bool SocketAddress(const std::string& path, sockaddr_un* address) {
  if (path.size() >= sizeof address->sun_path) return false;
  *address = {};
  address->sun_family = AF_UNIX;
  std::memcpy(address->sun_path, path.data(), path.size());
  return true;
}

// Returns false when the system does not tell the peer's credentials.
inline bool PeerCredentials(int descriptor, ucred* peer) {
  socklen_t size = sizeof *peer;
  return getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, peer, &size) == 0;
}

// Returns true when the peer is a process of `user`. A process of root counts too, unless this process is root and
// `user` is not.
inline bool PeerIsTrusted(int descriptor, uid_t user) {
  ucred peer{};
  if (!PeerCredentials(descriptor, &peer)) return false;
  return peer.uid == user || (peer.uid == 0 && (user == geteuid() || geteuid() != 0));
}

inline void AppendHello(Encoder* frames) {
  frames->BeginFrame(FrameType::hello);
  frames->U32(kMagic);
  frames->U16(kProtocolVersion);
  frames->U16(kKnowsReasons);
  frames->EndFrame();
}

}  // namespace channel
