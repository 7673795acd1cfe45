// Peers that say whatever a connection can carry.
#pragma once

#include <deque>
#include <random>
#include <string>
#include <string_view>

#include "channel/raw_peer.h"
#include "contract/interfaces.h"

namespace hostile {

// A frame as the protocol has it, and the frames that open a connection.
std::string Frame(unsigned type, unsigned slot, std::string_view payload);
std::string Opening(const IID& iid);

// The text argument of a call.
std::string TextArgument(std::u16string_view text);

// Reads to the end of the connection. False when what comes is not a row of whole frames as servers send them, of which
// a refusal is the last.
bool ReadToEnd(const channel_test::RawPeer& peer);

// Holds conversations that its seed determines: well-formed requests of all interfaces for component 99 of module CT,
// altered ones, frames of lying lengths, of unknown types, slots and versions, and bytes of any kind; hangs up in the
// middle, stays silent in the middle of a frame, or does not read what it has asked for. Used by one thread.
class Peer {
 public:
  explicit Peer(std::uint32_t seed) : random_(seed) {}

  // One conversation on a connection of its own. False when the server's side of it is not well-formed.
  bool Converse();

 private:
  std::size_t Below(std::size_t limit) { return random_() % limit; }
  std::string Script(const CLSID** clsid);
  std::string Request(const IID& iid);
  void Spoil(std::string* frame);
  void Keep(channel_test::RawPeer peer);

  std::mt19937 random_;
  std::deque<channel_test::RawPeer> kept_;  // connections that are held without a word
};

}  // namespace hostile
