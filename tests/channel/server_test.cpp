// A serving thread and its peers, well-behaved and not.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <thread>

#include "platform/channel/channel.h"
#include "support/support.h"

namespace {

using channel::Connection;
using channel::Decoder;
using channel::Encoder;
using channel::FrameType;

constexpr std::array<std::byte, 16> kAnyInterface{};

// Slot 3 echoes its argument bytes; slot 4 answers with as many bytes as it is told to; slot 5 runs out of memory.
class EchoSession final : public channel::Session {
 public:
  explicit EchoSession(std::atomic<int>& live) : live_(live) { ++live_; }
  ~EchoSession() override { --live_; }

  HRESULT Call(std::uint16_t slot, Decoder& arguments, Encoder& out) override {
    if (slot == 3) {
      const std::size_t count = arguments.Left();
      out.Bytes(arguments.Bytes(count), count);
      return 1;
    }
    if (slot == 4) {
      const std::uint32_t count = arguments.U32();
      if (!arguments.AtEnd()) return channel::kBadStubData;
      std::memset(out.Space(count), 'x', count);
      return 0;
    }
    if (slot == 5) throw std::bad_alloc();
    return channel::kSlotOutOfRange;
  }

 private:
  std::atomic<int>& live_;
};

class EchoService final : public channel::Service {
 public:
  HRESULT Create(const std::byte* interfaceId, std::unique_ptr<channel::Session>* session) override {
    if (interfaceId[0] != std::byte{0}) return static_cast<HRESULT>(0x80004002);
    *session = std::make_unique<EchoSession>(live);
    return 0;
  }
  std::atomic<int> live{0};
};

// A server on a thread of its own.
class ServerTest : public testing::Test {
 protected:
  ServerTest() : path_((folder_.Path() / "socket").string()) {
    std::atomic<DWORD> id{0};
    thread_ = std::thread([this, &id] {
      channel::Server server;
      listening_ = server.Listen(path_, &service_);
      AttachMessageSource(&server);
      id = GetCurrentThreadId();
      MSG message{};
      while (GetMessageA(&message, nullptr, 0, 0) != FALSE) {
        if (message.message == kWithdraw) {
          server.Withdraw(path_);
        } else {
          DispatchMessageA(&message);
        }
      }
      AttachMessageSource(nullptr);
    });
    support::WaitUntil([&] { return id != 0; });
    serverThread_ = id;
    EXPECT_TRUE(listening_);
  }
  ~ServerTest() override {
    PostThreadMessageA(serverThread_, WM_QUIT, 0, 0);
    thread_.join();
    EXPECT_EQ(service_.live, 0);
  }

  std::unique_ptr<Connection> Open() {
    std::unique_ptr<Connection> connection;
    Decoder answer;
    EXPECT_EQ(Connection::Open(path_, FrameType::create, kAnyInterface.data(), 16, 30, &connection, &answer),
              Connection::Outcome::ok);
    EXPECT_EQ(answer.U32(), 0U);
    return connection;
  }

  static std::string Echo(Connection& connection, const std::string& bytes) {
    Encoder& in = connection.BeginCall(3);
    in.Bytes(bytes.data(), bytes.size());
    Decoder out;
    if (connection.Exchange(&out) != 1) return "failed";
    const std::size_t count = out.Left();
    return {reinterpret_cast<const char*>(out.Bytes(count)), count};
  }

  // A socket connected to the server, with nothing said yet.
  int Raw() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    const int raw = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(raw, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return -1;
    return raw;
  }

  static constexpr UINT kWithdraw = WM_USER + 100;
  support::TempFolder folder_;
  const std::string path_;
  EchoService service_;
  std::atomic<bool> listening_{false};
  std::thread thread_;
  DWORD serverThread_ = 0;
};

std::string Frame(FrameType type, std::uint16_t slot, const std::string& payload, std::int64_t claimed = -1) {
  const auto bytes = static_cast<std::uint32_t>(claimed < 0 ? static_cast<std::int64_t>(payload.size()) : claimed);
  std::string frame(8, '\0');
  std::memcpy(frame.data(), &bytes, 4);
  std::memcpy(frame.data() + 4, &type, 2);
  std::memcpy(frame.data() + 6, &slot, 2);
  return frame + payload;
}

const std::string kHello = Frame(FrameType::hello, 0, std::string("KSTR\1\0\0\0", 8));
const std::string kCreate = Frame(FrameType::create, 0, std::string(16, '\0'));

// What the server sends: `count` bytes, or fewer when it ends the connection.
std::string ReadBytes(int raw, std::size_t count) {
  std::string bytes(count, '\0');
  std::size_t have = 0;
  while (have < count) {
    const ssize_t got = recv(raw, bytes.data() + have, count - have, 0);
    if (got <= 0) break;
    have += static_cast<std::size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

TEST_F(ServerTest, CallsOfAllSizesComeBackWhole) {
  auto connection = Open();
  std::mt19937 random(7);
  for (const std::size_t size :
       std::vector<std::size_t>{0, 1, 7, 4087, 4088, 4089, 65527, 65528, 65529, 200000, 3000000}) {
    std::string bytes(size, '\0');
    for (char& c : bytes)
      c = static_cast<char>(random());
    EXPECT_EQ(Echo(*connection, bytes), bytes) << size;
  }
  Decoder out;
  connection->BeginCall(99);
  EXPECT_EQ(connection->Exchange(&out), channel::kSlotOutOfRange);
  connection->BeginCall(5);
  EXPECT_EQ(connection->Exchange(&out), channel::kOutOfMemory);
  connection->BeginCall(4).U32(channel::kMaxPayloadBytes);
  EXPECT_EQ(connection->Exchange(&out), channel::kOutOfMemory) << "an answer that no frame can carry";
  connection->BeginCall(3).Space(channel::kMaxPayloadBytes + 1);
  EXPECT_EQ(connection->Exchange(&out), static_cast<HRESULT>(0x80070057));
  EXPECT_EQ(Echo(*connection, "and goes on"), "and goes on");
}

TEST_F(ServerTest, OpeningIsAnsweredByTheService) {
  std::unique_ptr<Connection> connection;
  Decoder answer;
  std::array<std::byte, 16> other{};
  other.fill(std::byte{1});
  EXPECT_EQ(Connection::Open(path_, FrameType::create, other.data(), 16, 30, &connection, &answer),
            Connection::Outcome::ok);
  EXPECT_EQ(answer.U32(), 0x80004002U);
  const auto first = Open();
  const auto second = Open();
  EXPECT_EQ(Connection::Open(path_, FrameType::status, nullptr, 0, 30, &connection, &answer), Connection::Outcome::ok);
  EXPECT_EQ(answer.U32(), static_cast<std::uint32_t>(getpid()));
  EXPECT_EQ(answer.U32(), 2U);
  EXPECT_EQ(Connection::Open(path_ + "x", FrameType::status, nullptr, 0, 30, &connection, &answer),
            Connection::Outcome::nobody);
}

TEST_F(ServerTest, FramesMayComeInAnyPieces) {
  const std::string conversation = kHello + kCreate + Frame(FrameType::call, 3, "one") + Frame(FrameType::call, 3, "") +
                                   Frame(FrameType::call, 4, std::string("\0\0\1\0", 4)) +
                                   Frame(FrameType::call, 3, std::string(70000, 'z'));
  const int whole = Raw();
  ASSERT_EQ(send(whole, conversation.data(), conversation.size(), 0), static_cast<ssize_t>(conversation.size()));
  const std::size_t answerBytes = 16 + 12 + 15 + 12 + (12 + 65536) + (12 + 70000);
  const std::string answer = ReadBytes(whole, answerBytes);
  EXPECT_EQ(answer.size(), answerBytes);
  close(whole);
  for (const std::size_t piece : std::vector<std::size_t>{1, 3, 8, 1000}) {
    const int raw = Raw();
    for (std::size_t at = 0; at < conversation.size(); at += piece) {
      const std::size_t count = std::min(piece, conversation.size() - at);
      ASSERT_EQ(send(raw, conversation.data() + at, count, 0), static_cast<ssize_t>(count));
    }
    EXPECT_EQ(ReadBytes(raw, answerBytes), answer) << piece;
    close(raw);
  }
}

TEST_F(ServerTest, MalformedPeersAreRefusedAndOthersNoticeNothing) {
  auto ordinary = Open();
  struct Case {
    const char* what;
    std::string bytes;
    std::uint32_t refusal;  // 0: the connection just ends
  };
  const std::string otherVersion = Frame(FrameType::hello, 0, std::string("KSTR\2\0\0\0", 8));
  const std::vector<Case> cases = {
      {"another protocol", "GET / HTTP/1.0\r\n\r\n", 0x800706F7},
      {"no hello", kCreate, 0x80010110},
      {"another version", otherVersion + kCreate, 0x80010110},
      {"a short hello", Frame(FrameType::hello, 0, "KS"), 0x80010110},
      {"a call before an object", kHello + Frame(FrameType::call, 3, ""), 0x800706F7},
      {"a short interface identity", kHello + Frame(FrameType::create, 0, "short"), 0x800706F7},
      {"an unknown type", kHello + kCreate + Frame(static_cast<FrameType>(99), 0, ""), 0x800706F7},
      {"a second object", kHello + kCreate + kCreate, 0x800706F7},
      {"a lying length", kHello + kCreate + Frame(FrameType::call, 3, "x", 0xFFFFFFFF), 0x800706F7},
      {"a length just too long", kHello + Frame(FrameType::create, 0, "", channel::kMaxPayloadBytes + 1LL), 0x800706F7},
  };
  for (const Case& c : cases) {
    const int raw = Raw();
    ASSERT_EQ(send(raw, c.bytes.data(), c.bytes.size(), 0), static_cast<ssize_t>(c.bytes.size()));
    const std::string answer = ReadBytes(raw, 1000);  // to the end of the connection
    close(raw);
    std::uint32_t refusal = 0;
    for (std::size_t at = 0; at + 12 <= answer.size();) {
      const channel::FrameHead head = channel::ReadHead(reinterpret_cast<const std::byte*>(answer.data() + at));
      if (head.type == FrameType::refusal) std::memcpy(&refusal, answer.data() + at + 8, 4);
      at += 8 + head.payloadBytes;
    }
    EXPECT_EQ(refusal, c.refusal) << c.what;
    EXPECT_EQ(Echo(*ordinary, c.what), c.what);
  }
}

TEST_F(ServerTest, SlowPeersHoldUpNobody) {
  auto ordinary = Open();
  // Half a frame that never goes on, a promise of 100 MB that is not kept, and an answer that is never read.
  const int half = Raw();
  ASSERT_GT(send(half, kHello.data(), 5, 0), 0);
  const int promise = Raw();
  const std::string promised = kHello + kCreate + Frame(FrameType::call, 3, std::string(100000, 'x'), 100 << 20);
  ASSERT_GT(send(promise, promised.data(), promised.size(), 0), 0);
  const int deaf = Raw();
  std::string calls = kHello + kCreate;
  for (int i = 0; i < 20; ++i)
    calls += Frame(FrameType::call, 4, std::string("\0\0\x40\0", 4));
  ASSERT_GT(send(deaf, calls.data(), calls.size(), 0), 0);
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(Echo(*ordinary, "served"), "served");

  // The deaf one begins to read and gets every answer.
  const std::size_t all = 16 + 12 + 20 * (12 + (4U << 20));
  EXPECT_EQ(ReadBytes(deaf, all).size(), all);
  close(half);
  close(promise);
  close(deaf);
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
  const std::string start = kHello + kCreate + Frame(FrameType::call, 3, "", 120 << 20);
  const std::string megabyte(1 << 20, 'h');
  std::vector<int> hoarders;
  for (int i = 0; i < 6; ++i) {
    hoarders.push_back(Raw());
    send(hoarders.back(), start.data(), start.size(), MSG_NOSIGNAL);
    for (int sent = 0; sent < 110; ++sent) {
      if (send(hoarders.back(), megabyte.data(), megabyte.size(), MSG_NOSIGNAL) < 0) break;
    }
  }
  EXPECT_EQ(Echo(*ordinary, std::string(200000, 'o')).size(), 200000U);
  EXPECT_EQ(Echo(*Open(), "let in"), "let in");
  for (const int hoarder : hoarders)
    close(hoarder);
}

TEST_F(ServerTest, EndedConnectionReleasesItsObjectAndWithdrawalFreesWaitingClients) {
  auto kept = Open();
  {
    const auto first = Open();
    const auto second = Open();
    EXPECT_EQ(service_.live, 3);
  }
  EXPECT_TRUE(support::WaitUntil([&] { return service_.live == 1; }));

  const int waiting = Raw();
  ASSERT_GT(send(waiting, kHello.data(), kHello.size(), 0), 0);
  EXPECT_EQ(ReadBytes(waiting, 16).size(), 16U);
  PostThreadMessageA(serverThread_, kWithdraw, 0, 0);
  EXPECT_EQ(ReadBytes(waiting, 1).size(), 0U) << "ended at once";
  close(waiting);
  EXPECT_FALSE(channel::SomebodyListens(path_));
  EXPECT_EQ(Echo(*kept, "objects live on"), "objects live on");
}

TEST_F(ServerTest, OtherUsersAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
  chmod(folder_.Path().c_str(), 0755);
  chmod(path_.c_str(), 0777);
  support::Child stranger([this] {
    if (setuid(65534) != 0) return 1;
    const int raw = Raw();
    if (raw < 0) return 2;
    const std::string answer = ReadBytes(raw, 1000);
    std::uint32_t refusal = 0;
    if (answer.size() >= kHello.size() + 12) std::memcpy(&refusal, answer.data() + kHello.size() + 8, 4);
    return refusal == 0x80070005 ? 0 : 3;
  });
  EXPECT_EQ(stranger.Wait(), 0);
  EXPECT_EQ(Echo(*Open(), "the owner is served"), "the owner is served");
}

// Whatever a server says, a client comes to a result.
TEST(Client, MisbehavingServers) {
  const std::string refusal = [](std::uint32_t code) {
    std::string payload(4, '\0');
    std::memcpy(payload.data(), &code, 4);
    return Frame(FrameType::refusal, 0, payload + "reason");
  }(0x80070005);
  const std::string status = Frame(FrameType::status, 0, std::string("\1\0\0\0\2\0\0\0", 8));
  const std::string otherVersion = Frame(FrameType::hello, 0, std::string("KSTR\2\0\0\0", 8));
  using Outcome = Connection::Outcome;
  const std::vector<std::pair<std::string, Outcome>> cases = {
      {"", Outcome::nobody},
      {kHello, Outcome::nobody},
      {kHello + std::string("\4\0\0\0", 4), Outcome::nobody},
      {otherVersion + status, Outcome::otherVersion},
      {"HTTP/1.0 400 Bad Request", Outcome::nobody},
      {kHello + refusal, Outcome::denied},
      {refusal, Outcome::denied},
      {kHello + Frame(FrameType::created, 0, std::string(4, '\0')), Outcome::otherVersion},
      {kHello + Frame(FrameType::status, 0, "", 0x7FFFFFFF), Outcome::nobody},
      {kHello + status, Outcome::ok},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    support::TempFolder folder;
    const std::string path = folder.Path() / "socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listening, 1), 0);
    std::thread server([&] {
      const int peer = accept(listening, nullptr, nullptr);
      send(peer, cases[i].first.data(), cases[i].first.size(), MSG_NOSIGNAL);
      shutdown(peer, SHUT_WR);
      ReadBytes(peer, 1000);
      close(peer);
    });
    std::unique_ptr<Connection> connection;
    Decoder answer;
    EXPECT_EQ(Connection::Open(path, FrameType::status, nullptr, 0, 30, &connection, &answer), cases[i].second) << i;
    connection.reset();
    server.join();
    close(listening);
  }
}

// A client must not talk to a server that somebody else put in the way.
TEST(Client, ServersOfOtherUsersAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
  support::TempFolder folder;
  chmod(folder.Path().c_str(), 0777);
  const std::string path = folder.Path() / "socket";
  support::Child stranger([&] {
    if (setuid(65534) != 0) return 1;
    EchoService service;
    channel::Server server;
    if (!server.Listen(path, &service)) return 2;
    chmod(path.c_str(), 0777);
    AttachMessageSource(&server);
    MSG message{};
    while (GetMessageA(&message, nullptr, 0, 0) != FALSE)
      DispatchMessageA(&message);
    return 0;
  });
  ASSERT_TRUE(support::WaitUntil([&] { return channel::SomebodyListens(path); }));
  support::Child client([&] {
    if (setuid(65533) != 0) return 1;
    std::unique_ptr<Connection> connection;
    Decoder answer;
    return Connection::Open(path, FrameType::status, nullptr, 0, 30, &connection, &answer) ==
                   Connection::Outcome::denied
               ? 0
               : 2;
  });
  EXPECT_EQ(client.Wait(), 0);
}

}  // namespace
