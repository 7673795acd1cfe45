#include "hostile_peer.h"

#include <array>
#include <iterator>

#include "marshal/payloads.h"
#include "platform/channel/channel.h"
#include "support/installation.h"

namespace hostile {

namespace {

using channel::FrameType;
using channel_test::RawPeer;

struct Class {
  const CLSID& clsid;
  const IID& iid;
};
constexpr std::array<Class, 3> kClasses = {{{CLSID_ZNPL_Rel, IID_IZNPL_Rel},
                                            {CLSID_ZNPL_Relatorio2, IID_IZNPL_Relatorio2},
                                            {CLSID_ZNPL_RelConverte, IID_IZNPL_RelConverte}}};

constexpr std::size_t kMostKept = 20;
constexpr unsigned kLe = 5;
constexpr unsigned kGrava = 6;

std::string Bytes(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

std::string Number(std::uint64_t value, std::size_t width) {
  return {reinterpret_cast<const char*>(&value), width};
}

std::string Identity(const IID& iid) {
  return {reinterpret_cast<const char*>(&iid), sizeof iid};
}

std::string Call(unsigned slot, std::string_view arguments) {
  return Frame(static_cast<unsigned>(FrameType::call), slot, arguments);
}

std::string Initialise() {
  return Call(3, TextArgument(u"CT") + TextArgument(u"99"));
}

// More than a socket takes at once, asked for again and again.
std::string Unread() {
  const std::string large(300'000, 'g');
  std::string script = Opening(IID_IZNPL_Relatorio2) + Initialise() +
                       Call(kGrava, TextArgument(u"Grande") + Number(1, 2) + Number(0, 1) + Number(large.size(), 4) +
                                        Number(1, 1) + large);
  for (int i = 0; i < 30; ++i)
    script += Call(kLe, TextArgument(u"Grande"));
  return script;
}

}  // namespace

std::string Frame(unsigned type, unsigned slot, std::string_view payload) {
  return Number(payload.size(), 4) + Number(type, 2) + Number(slot, 2) + std::string(payload);
}

std::string Opening(const IID& iid) {
  return Frame(static_cast<unsigned>(FrameType::hello), 0,
               Number(channel::kMagic, 4) + Number(channel::kProtocolVersion, 4)) +
         Frame(static_cast<unsigned>(FrameType::create), 0, Identity(iid));
}

std::string TextArgument(std::u16string_view text) {
  return Number(text.size() * sizeof(char16_t), 4) + Bytes(text);
}

bool ReadToEnd(const RawPeer& peer) {
  for (;;) {
    const std::string bytes = peer.Receive(channel::kHeadBytes);
    if (bytes.empty()) return true;
    if (bytes.size() != channel::kHeadBytes) return false;
    const channel::FrameHead head = channel::ReadHead(reinterpret_cast<const std::byte*>(bytes.data()));
    const bool isServers = head.type == FrameType::hello || head.type == FrameType::created ||
                           head.type == FrameType::result || head.type == FrameType::refusal ||
                           head.type == FrameType::status;
    if (!isServers || head.payloadBytes > channel::kMaxPayloadBytes) return false;
    if (peer.Receive(head.payloadBytes).size() != head.payloadBytes) return false;
    if (head.type == FrameType::refusal) return peer.Receive(1).empty();
  }
}

bool Peer::Converse() {
  const CLSID* clsid = nullptr;
  std::string script = Script(&clsid);
  const std::size_t ending = Below(8);
  if (ending == 0) {
    clsid = &CLSID_ZNPL_Relatorio2;
    script = Unread();
  }
  RawPeer peer(support::SocketPath(*clsid));
  if (ending >= 5) script.resize(Below(script.size() + 1));  // hangs up, or is silent, in the middle
  peer.Send(script);
  if (ending == 0 || ending >= 7) {
    Keep(std::move(peer));
  } else if (ending < 5) {
    peer.StopSending();
    return ReadToEnd(peer);
  }
  return true;
}

void Peer::Keep(RawPeer peer) {
  kept_.push_back(std::move(peer));
  if (kept_.size() > kMostKept) kept_.pop_front();
}

// What is sent on a connection to one of the classes.
std::string Peer::Script(const CLSID** clsid) {
  const Class& asked = kClasses.at(Below(kClasses.size()));
  *clsid = &asked.clsid;
  std::string script = Opening(Below(10) == 0 ? kClasses.at(Below(kClasses.size())).iid : asked.iid);
  if (Below(8) == 0) script = Frame(static_cast<unsigned>(FrameType::status), 0, "") + script;
  if (Below(8) == 0) Spoil(&script);
  if (asked.iid == IID_IZNPL_Relatorio2 && Below(4) != 0) script += Initialise();
  for (std::size_t i = Below(6); i > 0; --i) {
    std::string frame = Request(Below(20) == 0 ? kClasses.at(Below(kClasses.size())).iid : asked.iid);
    if (Below(2) == 0) Spoil(&frame);
    script += frame;
  }
  return script;
}

// A request as a well-behaved client could make it.
std::string Peer::Request(const IID& iid) {
  std::vector<const payloads::Method*> methods;
  for (const payloads::Method& method : payloads::Methods()) {
    if (method.iid == iid) methods.push_back(&method);
  }
  const payloads::Method& method = *methods.at(Below(methods.size()));
  recorder::Content content;
  content.count = static_cast<LONG>(Below(5));
  content.number = static_cast<LONG>(Below(3));
  content.hasRecord = Below(4) != 0;
  content.hasArray = Below(4) != 0;
  if (method.name == "Inicializa" || iid == IID_IZNPL_RelConverte) {
    content.texts = {Bytes(u"CT"), Bytes(u"99")};
    if (iid == IID_IZNPL_Rel) content.texts.insert(content.texts.begin(), Bytes(u"Norvela"));
  } else {
    static constexpr std::array<std::u16string_view, 5> kNames = {u"Hostil", u"Hostil2", u"Grande", u"", u"a.b"};
    content.texts = {Bytes(kNames.at(Below(kNames.size())))};
    if (Below(16) == 0) content.texts = {std::nullopt};
    if (Below(16) == 0) content.texts = {std::string(Below(3000), 'x')};
  }
  return Call(method.slot, payloads::Payload(method.request, content));
}

void Peer::Spoil(std::string* frame) {
  const auto put = [&](std::size_t place, std::uint64_t value, std::size_t width) {
    frame->replace(place, width, Number(value, width));
  };
  const std::uint64_t size = frame->size() - channel::kHeadBytes;
  const std::uint64_t lengths[] = {
      0,          1,         size - 1, size + 1, size + 5000, channel::kMaxPayloadBytes, channel::kMaxPayloadBytes + 1U,
      0x7FFFFFFF, 0xFFFFFFFF};
  switch (Below(5)) {
    case 0:
      return put(0, lengths[Below(std::size(lengths))], 4);
    case 1:
      return put(4, random_(), 2);  // its type
    case 2:
      return put(6, Below(2) == 0 ? Below(32) : random_(), 2);  // its slot
    case 3:
      frame->resize(Below(200));
      for (char& byte : *frame)
        byte = static_cast<char>(random_());
      return;
    default:
      for (std::size_t i = Below(6) + 1; i > 0; --i)
        put(Below(frame->size()), random_(), 1);
  }
}

}  // namespace hostile
