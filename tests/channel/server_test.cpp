// A serving thread and its peers, well-behaved and not.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <random>
#include <thread>

#include "platform/channel/channel.h"
#include "platform/kernel/results.h"
#include "raw_peer.h"
#include "server_thread.h"
#include "support/elsewhere.h"

namespace {

using channel::Connection;
using channel::Decoder;
using channel::Encoder;
using channel::FrameType;
using channel_test::RawPeer;
using Outcome = Connection::Outcome;

constexpr std::array<char, 16> kAnyInterface{};

// Slot 3 echoes its argument bytes; slot 4 answers with as many bytes as it is told to; slot 5 runs out of memory.
class EchoSession final : public channel::Session {
 public:
  explicit EchoSession(std::atomic<int>& live) : live_(live) { ++live_; }
  ~EchoSession() override { --live_; }

  HRESULT Call(std::uint16_t slot, Decoder& arguments, Encoder& out) override {
    if (slot == 5) throw std::bad_alloc();
    if (slot != 3 && slot != 4) return rpc::kSlotOutOfRange;
    const std::size_t count = slot == 3 ? arguments.Left() : arguments.U32();
    if (slot == 3) out.Bytes(arguments.Bytes(count), count);
    if (slot == 4) std::memset(out.Space(count), 'x', count);
    return 1;
  }

 private:
  std::atomic<int>& live_;
};

class EchoService final : public channel::Service {
 public:
  ~EchoService() { EXPECT_EQ(live, 0); }
  HRESULT Create(const std::byte* /*interfaceId*/, std::unique_ptr<channel::Session>* session) override {
    *session = std::make_unique<EchoSession>(live);
    return 0;
  }
  std::atomic<int> live{0};
};

Outcome AskStatus(const std::string& path) {
  std::unique_ptr<Connection> connection;
  Decoder answer;
  return Connection::Open(path, FrameType::status, nullptr, 0, 30, &connection, &answer);
}

std::string Echo(Connection& connection, const std::string& bytes) {
  connection.BeginCall(3).Bytes(bytes.data(), bytes.size());
  Decoder out;
  if (connection.Exchange(&out) != 1) return "failed";
  const std::size_t count = out.Left();
  return {reinterpret_cast<const char*>(out.Bytes(count)), count};
}

std::string Frame(FrameType type, std::uint16_t slot, const std::string& payload, std::int64_t claimed = -1) {
  const auto bytes = static_cast<std::uint32_t>(claimed < 0 ? static_cast<std::int64_t>(payload.size()) : claimed);
  std::string frame(8, '\0');
  std::memcpy(frame.data(), &bytes, 4);
  std::memcpy(frame.data() + 4, &type, 2);
  std::memcpy(frame.data() + 6, &slot, 2);
  return frame + payload;
}

const std::string kHello = Frame(FrameType::hello, 0, std::string("KSTR\1\0\0\0", 8));
const std::string kHelloOfAnotherVersion = Frame(FrameType::hello, 0, std::string("KSTR\2\0\0\0", 8));
const std::string kCreate = Frame(FrameType::create, 0, std::string(16, '\0'));

// The result in the refusal that is the last of these frames; 0 when there is none.
std::uint32_t Refusal(const std::string& frames) {
  std::uint32_t refusal = 0;
  for (std::size_t at = 0; at + 12 <= frames.size();) {
    const channel::FrameHead head = channel::ReadHead(reinterpret_cast<const std::byte*>(frames.data() + at));
    if (head.type == FrameType::refusal) std::memcpy(&refusal, frames.data() + at + 8, 4);
    at += 8 + head.payloadBytes;
  }
  return refusal;
}

class ServerTest : public testing::Test {
 protected:
  std::unique_ptr<Connection> Open() const { return channel_test::OpenObject(path_, kAnyInterface.data()); }

  support::TempFolder folder_;
  const std::string path_ = folder_.Path() / "socket";
  EchoService service_;
  const channel_test::ServerThread server_{path_, &service_};
};

TEST_F(ServerTest, CallsOfAllSizesComeBackWhole) {
  auto connection = Open();
  std::mt19937 random(7);
  for (const std::size_t size : std::vector<std::size_t>{0, 1, 4087, 4088, 4089, 65527, 65528, 65529, 3000000}) {
    std::string bytes(size, '\0');
    for (char& c : bytes)
      c = static_cast<char>(random());
    EXPECT_EQ(Echo(*connection, bytes), bytes) << size;
  }
  Decoder out;
  connection->BeginCall(99);
  EXPECT_EQ(connection->Exchange(&out), rpc::kSlotOutOfRange);
  connection->BeginCall(5);
  EXPECT_EQ(connection->Exchange(&out), E_OUTOFMEMORY);
  connection->BeginCall(4).U32(channel::kMaxPayloadBytes);
  EXPECT_EQ(connection->Exchange(&out), E_OUTOFMEMORY) << "an answer that no frame can carry";
  connection->BeginCall(3).Space(channel::kMaxPayloadBytes + 1);
  EXPECT_EQ(connection->Exchange(&out), E_INVALIDARG);
  EXPECT_EQ(Echo(*connection, "and goes on"), "and goes on");
}

TEST_F(ServerTest, FramesMayComeInAnyPieces) {
  const std::string conversation = kHello + kCreate + Frame(FrameType::call, 3, "one") + Frame(FrameType::call, 3, "") +
                                   Frame(FrameType::call, 4, std::string("\0\0\1\0", 4)) +
                                   Frame(FrameType::call, 3, std::string(70000, 'z'));
  const std::string one("\1\0\0\0", 4);
  const std::string answer = kHello + Frame(FrameType::created, 0, std::string(4, '\0')) +
                             Frame(FrameType::result, 3, one + "one") + Frame(FrameType::result, 3, one) +
                             Frame(FrameType::result, 4, one + std::string(65536, 'x')) +
                             Frame(FrameType::result, 3, one + std::string(70000, 'z'));
  for (const std::size_t piece : std::vector<std::size_t>{1, 3, 8, 1000, conversation.size()}) {
    const RawPeer client(path_);
    for (std::size_t at = 0; at < conversation.size(); at += piece)
      ASSERT_TRUE(client.Send(conversation.substr(at, piece)));
    EXPECT_TRUE(client.Receive(answer.size()) == answer) << piece;
  }
}

TEST_F(ServerTest, MalformedPeersAreRefusedAndOthersNoticeNothing) {
  auto ordinary = Open();
  const std::vector<std::tuple<const char*, std::string, HRESULT>> cases = {
      {"another protocol", "GET / HTTP/1.0\r\n\r\n", rpc::kBadStubData},
      {"no hello", kCreate, rpc::kVersionMismatch},
      {"another version", kHelloOfAnotherVersion + kCreate, rpc::kVersionMismatch},
      {"a short hello", Frame(FrameType::hello, 0, "KS"), rpc::kVersionMismatch},
      {"a call before an object", kHello + Frame(FrameType::call, 3, ""), rpc::kBadStubData},
      {"a short interface identity", kHello + Frame(FrameType::create, 0, "short"), rpc::kBadStubData},
      {"an unknown type", kHello + kCreate + Frame(FrameType{99}, 0, ""), rpc::kBadStubData},
      {"a second object", kHello + kCreate + kCreate, rpc::kBadStubData},
      {"a lying length", kHello + kCreate + Frame(FrameType::call, 3, "x", 0xFFFFFFFF), rpc::kBadStubData},
      {"a length just too long", kHello + Frame(FrameType::create, 0, "", channel::kMaxPayloadBytes + 1LL),
       rpc::kBadStubData},
  };
  for (const auto& [what, bytes, refusal] : cases) {
    const RawPeer client(path_);
    ASSERT_TRUE(client.Send(bytes));
    const std::string answer = client.Receive(1000);
    EXPECT_EQ(Refusal(answer), static_cast<std::uint32_t>(refusal)) << what;
    EXPECT_EQ(answer.starts_with(kHello), !bytes.starts_with("GET ")) << what;  // which reads as a length
    EXPECT_EQ(Echo(*ordinary, what), what);
  }
}

// A client of a later version may use them.
TEST_F(ServerTest, SpareFieldsAreIgnored) {
  for (const std::size_t size : {6U, 8U, 12U}) {
    const RawPeer client(path_);
    ASSERT_TRUE(client.Send(Frame(FrameType::hello, 7, std::string("KSTR\1\0spares", size)) +
                            Frame(FrameType::status, 7, "spare") + Frame(FrameType::create, 7, std::string(16, '\0'))));
    EXPECT_EQ(client.Receive(16), kHello);
    EXPECT_EQ(client.Receive(16).substr(0, 8), Frame(FrameType::status, 0, "", 8));
    EXPECT_EQ(client.Receive(12), Frame(FrameType::created, 0, std::string(4, '\0')));
  }
}

TEST_F(ServerTest, SlowPeersHoldUpNobody) {
  auto ordinary = Open();
  const RawPeer half(path_);  // of a frame
  ASSERT_TRUE(half.Send(kHello.substr(0, 5)));
  const RawPeer promise(path_);  // of 100 MB that do not come
  ASSERT_TRUE(promise.Send(kHello + kCreate + Frame(FrameType::call, 3, std::string(100000, 'x'), 100 << 20)));
  const RawPeer deaf(path_);  // to its answers
  std::string calls = kHello + kCreate;
  for (int i = 0; i < 20; ++i)
    calls += Frame(FrameType::call, 4, std::string("\0\0\x40\0", 4));
  ASSERT_TRUE(deaf.Send(calls));
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(Echo(*ordinary, "served"), "served");

  // The deaf one begins to read and gets every answer.
  const std::size_t all = 16 + 12 + 20 * (12 + (4U << 20));
  EXPECT_EQ(deaf.Receive(all).size(), all);
}

// Clients that never pause must not keep others from being let in, nor calls of more than one reading from being
// served.
TEST_F(ServerTest, BusyClientsStarveNobody) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> busy;
  busy.reserve(3);
  for (int i = 0; i < 3; ++i) {
    busy.emplace_back([&, connection = std::shared_ptr(Open())] {
      while (!stop && Echo(*connection, std::string(2000, 'b')).size() == 2000) {
      }
    });
  }
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(Echo(*Open(), std::string(200000, 'l')).size(), 200000U);
  stop = true;
  for (std::thread& thread : busy)
    thread.join();
}

// One that hoards half frames goes before it costs anybody else the server.
TEST_F(ServerTest, HoarderGoesAndOthersStay) {
  auto ordinary = Open();
  const std::string megabyte(1 << 20, 'h');
  std::deque<RawPeer> hoarders;
  for (int i = 0; i < 6; ++i) {
    const RawPeer& hoarder = hoarders.emplace_back(path_);
    hoarder.Send(kHello + kCreate + Frame(FrameType::call, 3, "", 120 << 20));
    for (int sent = 0; sent < 110 && hoarder.Send(megabyte); ++sent) {
    }
  }
  EXPECT_TRUE(std::any_of(hoarders.begin(), hoarders.end(), [](const RawPeer& one) { return !one.Send("h"); }));
  EXPECT_EQ(Echo(*ordinary, std::string(200000, 'o')).size(), 200000U);
  EXPECT_EQ(Echo(*Open(), "let in"), "let in");
}

TEST_F(ServerTest, EndedConnectionReleasesItsObjectAndWithdrawalFreesWaitingClients) {
  auto kept = Open();
  Open();
  EXPECT_TRUE(support::WaitUntil([&] { return service_.live == 1; }));

  const RawPeer waiting(path_);
  ASSERT_TRUE(waiting.Send(kHello));
  EXPECT_EQ(waiting.Receive(16), kHello);
  server_.Withdraw();
  EXPECT_EQ(waiting.Receive(1), "") << "ended at once";
  EXPECT_FALSE(channel::SomebodyListens(path_));
  EXPECT_EQ(Echo(*kept, "objects live on"), "objects live on");
}

TEST_F(ServerTest, OtherUsersAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
  chmod(folder_.Path().c_str(), 0755);
  chmod(path_.c_str(), 0777);
  static constexpr auto kRefusal = static_cast<std::uint32_t>(E_ACCESSDENIED);
  support::Elsewhere([this] { EXPECT_EQ(Refusal(RawPeer(path_).Receive(1000)), kRefusal); }, 65534);
  EXPECT_EQ(Echo(*Open(), "the owner is served"), "the owner is served");
}

// Whatever a server says, a client comes to a result.
TEST(Client, MisbehavingServers) {
  const std::string refusal = Frame(FrameType::refusal, 0, std::string("\5\0\7\x80", 4) + "reason");
  const std::string status = Frame(FrameType::status, 0, std::string("\1\0\0\0\2\0\0\0", 8));
  const std::vector<std::pair<std::string, Outcome>> cases = {
      {"", Outcome::nobody},
      {kHello, Outcome::nobody},
      {kHello + std::string("\4\0\0\0", 4), Outcome::nobody},
      {kHelloOfAnotherVersion + status, Outcome::otherVersion},
      {"HTTP/1.0 400 Bad Request", Outcome::nobody},
      {kHello + refusal, Outcome::denied},
      {refusal, Outcome::denied},
      {kHello + Frame(FrameType::created, 0, std::string(4, '\0')), Outcome::otherVersion},
      {kHello + Frame(FrameType::status, 0, "", 0x7FFFFFFF), Outcome::nobody},
      {kHello + status, Outcome::ok},
      {Frame(FrameType::hello, 7, std::string("KSTR\1\0spares", 12)) + status, Outcome::ok},
  };
  for (const auto& [said, outcome] : cases) {
    const support::TempFolder folder;
    const std::string path = folder.Path() / "socket";
    const platform::Descriptor listening = channel_test::SocketAt(path, bind);
    ASSERT_EQ(listen(listening.Number(), 1), 0);
    std::thread server([&listening, bytes = said] {
      const RawPeer client(platform::Descriptor(accept(listening.Number(), nullptr, nullptr)));
      client.Send(bytes);
      client.StopSending();
      client.Receive(1000);
    });
    EXPECT_EQ(AskStatus(path), outcome) << testing::PrintToString(said);
    server.join();
  }
}

// A client must not talk to a server that somebody else put in the way.
TEST(Client, ServersOfOtherUsersAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
  const support::TempFolder folder;
  chmod(folder.Path().c_str(), 0777);
  const std::string path = folder.Path() / "socket";
  support::Child stranger([&] {
    support::BecomeUser(65534);
    umask(0);
    EchoService service;
    const channel_test::ServerThread server(path, &service);
    return pause();
  });
  ASSERT_TRUE(support::WaitUntil([&] { return channel::SomebodyListens(path); }));
  support::Elsewhere([&] { EXPECT_EQ(AskStatus(path), Outcome::denied); }, 65533);
}

}  // namespace
