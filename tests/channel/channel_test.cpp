// A serving thread and its peers, well-behaved and not.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <random>

#include "platform/kernel/results.h"
#include "server_thread.h"
#include "support/elsewhere.h"

namespace channel_test {

namespace {

using channel::Connection;
using channel::FrameType;

constexpr std::array<char, 16> kAnyInterface{};

// Slot 3 echoes its argument bytes; slot 4 answers with as many bytes as it is told to; others run out of memory.
class EchoSession final : public channel::Session {
 public:
  HRESULT Call(std::uint16_t slot, channel::Decoder& arguments, channel::Encoder& out) override {
    if (slot != 3 && slot != 4) throw std::bad_alloc();
    const std::size_t count = slot == 3 ? arguments.Left() : arguments.U32();
    if (slot == 3) out.Bytes(arguments.Bytes(count), count);
    if (slot == 4) std::memset(out.Space(count), 'x', count);
    return 1;
  }
};

class EchoService final : public channel::Service {
 public:
  HRESULT Create(const std::byte* /*interfaceId*/, std::unique_ptr<channel::Session>* session) override {
    *session = std::make_unique<EchoSession>();
    return 0;
  }
};

bool Echoes(Connection& connection, const std::string& bytes) {
  return Call(connection, 3, bytes) == Outcome{1, bytes};
}

Connection::Outcome AskStatus(const std::string& path) {
  std::unique_ptr<Connection> connection;
  channel::Decoder answer;
  return Connection::Open(path, FrameType::status, nullptr, 0, 30, &connection, &answer);
}

std::string Refusal(HRESULT result, const std::string& reason = "") {
  return Frame(FrameType::refusal, 0, Number(static_cast<std::uint32_t>(result), 4) + reason);
}

const std::string kHelloOfAnotherVersion = Frame(FrameType::hello, 0, std::string("KSTR\2\0\0\0", 8));
const std::string kLaterHello = Frame(FrameType::hello, 7, std::string("KSTR\1\0spares", 12));
const std::string kOpening = Opening(kAnyInterface.data());
const std::string kCreate = kOpening.substr(kHello.size());
const std::string kCreated = kHello + Frame(FrameType::created, 0, Number(0, 4));

class ServerTest : public testing::Test {
 protected:
  std::unique_ptr<Connection> Open() const { return OpenObject(path_, kAnyInterface.data()); }

  support::TempFolder folder_;
  const std::string path_ = folder_.Path() / "socket";
  EchoService service_;
  const ServerThread server_{path_, &service_};
  const std::unique_ptr<Connection> ordinary_ = Open();
};

TEST_F(ServerTest, CallsOfAllSizesComeBackWhole) {
  std::mt19937 random(7);
  for (const std::size_t size : {0U, 1U, 4087U, 4088U, 4089U, 65527U, 65528U, 65529U, 3000000U}) {
    std::string bytes(size, '\0');
    for (char& c : bytes)
      c = static_cast<char>(random());
    EXPECT_TRUE(Echoes(*ordinary_, bytes)) << size;
  }
  EXPECT_EQ(Call(*ordinary_, 5, "").first, E_OUTOFMEMORY);
  EXPECT_EQ(Call(*ordinary_, 4, Number(channel::kMaxPayloadBytes, 4)).first, E_OUTOFMEMORY) << "no frame carries it";
  EXPECT_EQ(Call(*ordinary_, 3, std::string(channel::kMaxPayloadBytes + 1, 'x')).first, E_INVALIDARG);
  EXPECT_TRUE(Echoes(*ordinary_, "and goes on"));
}

// Whatever a peer says, in pieces of any size, has its answer. Later versions may use spare fields.
TEST_F(ServerTest, EveryPeerIsAnsweredAndOthersNoticeNothing) {
  const std::string one = Number(1, 4);
  const std::string large(70000, 'z');
  const std::string huge(4 << 20, 'x');  // more than a socket takes at once
  const std::string callHuge = Frame(FrameType::call, 4, Number(huge.size(), 4));
  const std::string status = Frame(FrameType::status, 0, Number(static_cast<std::uint32_t>(getpid()), 4) + one);
  const std::string badData = Refusal(rpc::kBadStubData);
  const std::string badVersion = kHello + Refusal(rpc::kVersionMismatch);
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"small calls", kOpening + Frame(FrameType::call, 3, "one") + Frame(FrameType::call, 3, ""),
       kCreated + Frame(FrameType::result, 3, one + "one") + Frame(FrameType::result, 3, one)},
      {"large calls", kOpening + Frame(FrameType::call, 3, large) + callHuge + callHuge,
       kCreated + Frame(FrameType::result, 3, one + large) + Frame(FrameType::result, 4, one + huge) +
           Frame(FrameType::result, 4, one + huge)},
      {"another protocol", "GET / HTTP/1.0\r\n\r\n", badData},  // reads as a length
      {"no hello", kCreate, badVersion},
      {"another version", kHelloOfAnotherVersion + kCreate, badVersion},
      {"a short hello", Frame(FrameType::hello, 0, "KS"), badVersion},
      {"a call before an object", kHello + Frame(FrameType::call, 3, ""), kHello + badData},
      {"a short interface identity", kHello + Frame(FrameType::create, 0, "short"), kHello + badData},
      {"an unknown type", kOpening + Frame(FrameType{99}, 0, ""), kCreated + badData},
      {"a second object", kOpening + kCreate, kCreated + badData},
      {"a lying length", kOpening + Frame(FrameType::call, 3, "x", 0xFFFFFFFF), kCreated + badData},
      {"too long", kHello + Frame(FrameType::create, 0, "", channel::kMaxPayloadBytes + 1), kHello + badData},
      {"half a frame", kOpening + Frame(FrameType::call, 3, "x", 100 << 20), kCreated},
      {"a hello without its spare field", Frame(FrameType::hello, 7, std::string("KSTR\1\0", 6)), kHello},
      {"a later hello", kLaterHello + Frame(FrameType::status, 7, "spare"), kHello + status},
      {"a spare slot", kHello + Frame(FrameType::create, 7, std::string(16, '\0')), kCreated},
  };
  for (const auto& [what, said, answer] : cases) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{8}, std::size_t{1000}, said.size()}) {
      const RawPeer peer(path_);
      for (std::size_t at = 0; at < said.size() && peer.Send(said.substr(at, piece)); at += piece) {
      }
      EXPECT_TRUE(Echoes(*ordinary_, what)) << what;
      peer.StopSending();
      EXPECT_TRUE(peer.ReceiveToEnd() == answer) << what << " in pieces of " << piece;
    }
  }
}

// Clients that never pause must not keep others from being let in, nor calls of more than one reading from being
// served.
TEST_F(ServerTest, BusyClientsStarveNoOthers) {
  std::atomic<bool> stop{false};
  std::deque<std::thread> busy;
  for (int i = 0; i < 3; ++i) {
    busy.emplace_back([&, connection = std::shared_ptr(Open())] {
      while (!stop && Echoes(*connection, std::string(2000, 'b'))) {
      }
    });
  }
  for (int i = 0; i < 20; ++i)
    EXPECT_TRUE(Echoes(*Open(), std::string(200000, 'l')));
  stop = true;
  for (std::thread& thread : busy)
    thread.join();
}

// One that hoards half frames goes before it costs the others the server.
TEST_F(ServerTest, HoarderGoesAndOthersStay) {
  const std::string megabyte(1 << 20, 'h');
  std::deque<RawPeer> hoarders;
  for (int i = 0; i < 6; ++i) {
    const RawPeer& hoarder = hoarders.emplace_back(path_);
    hoarder.Send(kOpening + Frame(FrameType::call, 3, "", 120 << 20));
    for (int sent = 0; sent < 110 && hoarder.Send(megabyte); ++sent) {
    }
  }
  EXPECT_TRUE(std::any_of(hoarders.begin(), hoarders.end(), [](const RawPeer& one) { return !one.Send("h"); }));
  EXPECT_TRUE(Echoes(*ordinary_, std::string(200000, 'o')));
  EXPECT_TRUE(Echoes(*Open(), "let in"));
}

TEST_F(ServerTest, WithdrawalFreesWaitingClients) {
  const RawPeer waiting(path_);
  waiting.Send(kHello);
  EXPECT_EQ(waiting.Receive(kHello.size()), kHello);
  server_.Withdraw();
  EXPECT_EQ(waiting.Receive(1), "") << "ended at once";
  EXPECT_FALSE(channel::SomebodyListens(path_));
  EXPECT_TRUE(Echoes(*ordinary_, "objects live on"));
}

// Whatever a server says, a client comes to a result.
TEST(Client, MisbehavingServers) {
  using Outcome = Connection::Outcome;
  const std::string refusal = Refusal(E_ACCESSDENIED, "reason");
  const std::string status = Frame(FrameType::status, 0, Number(1, 4) + Number(2, 4));
  const std::pair<std::string, Outcome> cases[] = {
      {"", Outcome::nobody},
      {kHello, Outcome::nobody},
      {kHello + Number(4, 4), Outcome::nobody},
      {kHelloOfAnotherVersion + status, Outcome::otherVersion},
      {"HTTP/1.0 400 Bad Request", Outcome::nobody},
      {kHello + refusal, Outcome::denied},
      {refusal, Outcome::denied},
      {kCreated, Outcome::otherVersion},
      {kHello + Frame(FrameType::status, 0, "", 0x7FFFFFFF), Outcome::nobody},
      {kHello + status, Outcome::ok},
      {kLaterHello + status, Outcome::ok},
  };
  for (const auto& [said, outcome] : cases) {
    const support::TempFolder folder;
    const std::string path = folder.Path() / "socket";
    const platform::Descriptor listening = SocketAt(path, bind);
    ASSERT_EQ(listen(listening.Number(), 1), 0);
    auto asked = std::async(std::launch::async, AskStatus, path);
    const RawPeer client(platform::Descriptor(accept(listening.Number(), nullptr, nullptr)));
    client.Send(said);
    client.StopSending();
    EXPECT_EQ(asked.get(), outcome) << testing::PrintToString(said);
  }
}

// Neither side talks to another user, who may have put a server of its own in the way.
TEST(OtherUsers, AreRefusedByBothSides) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const support::TempFolder folder;
  chmod(folder.Path().c_str(), 0777);
  const std::string path = folder.Path() / "socket";
  const std::string trap = folder.Path() / "trap";
  support::Child stranger([&] {
    support::BecomeUser(65534);
    umask(0);
    EchoService service;
    const ServerThread server(path, &service);
    const platform::Descriptor listening = SocketAt(trap, bind);
    listen(listening.Number(), 1);
    for (;;) {  // answers every client
      const RawPeer client(platform::Descriptor(accept(listening.Number(), nullptr, nullptr)));
      client.Send(kHello + Frame(FrameType::status, 0, Number(1, 4) + Number(2, 4)));
      client.ReceiveToEnd();
    }
    return 0;
  });
  for (const std::string& socket : {path, trap})
    ASSERT_TRUE(support::WaitUntil([&] { return channel::SomebodyListens(socket); }));
  const auto ask = [&] {
    for (const std::string& socket : {path, trap})
      EXPECT_EQ(AskStatus(socket), Connection::Outcome::denied) << socket;
    for (const std::string& said : {kOpening, std::string()}) {
      const RawPeer peer(path);
      peer.Send(said);
      EXPECT_EQ(peer.ReceiveToEnd(), kHello + Refusal(E_ACCESSDENIED));
    }
  };
  support::Elsewhere(ask, 65533);
}

}  // namespace

}  // namespace channel_test
