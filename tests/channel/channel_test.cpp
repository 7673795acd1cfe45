// A serving thread and its peers, well-behaved and misbehaving.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "platform/kernel/results.h"
#include "server_thread.h"
#include "support/elsewhere.h"

namespace channel_test {

namespace {

using channel::Connection;

constexpr std::array<char, 16> kAnyInterface{};

// Slot 3 echoes its argument bytes. Slot 4 answers with the number of bytes that it is told. Slots 6 and 7 send the
// number of notes that they are told, slot 7 of a megabyte each. Other slots run out of memory.
class EchoSession final : public channel::Session {
 public:
  HRESULT Call(channel::Caller& caller, std::uint16_t slot, channel::Decoder& arguments,
               channel::Encoder& out) override {
    static const std::string megabyte(1 << 20, 'm');
    if (slot != 3 && slot != 4 && slot != 6 && slot != 7) throw std::bad_alloc();
    EXPECT_EQ(caller.Process(), getpid());
    EXPECT_EQ(caller.User(), geteuid());
    const auto count = slot == 3 ? static_cast<std::uint32_t>(arguments.Left()) : arguments.U32();
    if (slot == 3) out.Bytes(arguments.Bytes(count), count);
    if (slot == 4) std::memset(out.Space(count), 'x', count);
    for (std::uint32_t i = 1; slot == 6 && i <= count; ++i)
      caller.Tell({2, i, count, "name", "why", {}, {}});
    for (std::uint32_t i = 1; slot == 7 && i <= count; ++i)
      caller.Tell({2, i, count, "", "", megabyte, {}});
    reason_ = slot == 4 ? std::string(count, 'y') : "slot " + std::to_string(slot);
    return 1;
  }

  std::string Reason() override { return reason_; }

 private:
  std::string reason_;
};

class EchoService final : public channel::Service {
 public:
  HRESULT Rehearse(channel::Caller& caller, channel::Decoder& arguments) override {
    const std::size_t count = arguments.Left();
    const std::string_view said(reinterpret_cast<const char*>(arguments.Bytes(count)), count);
    caller.Tell({7, 1, 1, "n", "", "before", said});
    return said.empty() ? E_INVALIDARG : S_OK;
  }

  HRESULT Create(const std::byte* /*interfaceId*/, std::unique_ptr<channel::Session>* session) override {
    *session = std::make_unique<EchoSession>();
    return 0;
  }
};

bool Echoes(Connection& connection, const std::string& bytes) {
  return Call(connection, 3, bytes) == Outcome{1, bytes};
}

std::string Request(std::uint16_t slot, const std::string& arguments) {
  return Frame(FrameType::call, slot, arguments);
}
std::string Result(std::uint16_t slot, const std::string& answer) {
  return Frame(FrameType::result, slot, Number(1, 4) + answer);
}
std::string Refusal(HRESULT result, const std::string& reason = "") {
  return Frame(FrameType::refusal, 0, Number(static_cast<std::uint32_t>(result), 4) + reason);
}
std::string Status(pid_t server) {
  return Frame(FrameType::status, 0, Number(static_cast<std::uint32_t>(server), 4) + Number(1, 4));
}

std::string Why(const std::string& text = "") {
  return Frame(FrameType::reason, 0, text);
}
std::string Notes(std::uint32_t count) {
  std::string frames;
  for (std::uint32_t i = 1; i <= count; ++i) {
    frames += Frame(
        FrameType::note, 0,
        Number(2, 2) + Number(i, 4) + Number(count, 4) + Number(4, 4) + "name" + Number(3, 4) + "why" + Number(0, 4));
  }
  return frames;
}

const std::string kFollow = Frame(FrameType::follow, 0, "");
const std::string kOldHello = Frame(FrameType::hello, 0, std::string("KSTR\1\0\0\0", 8));
const std::string kHelloOfAnotherVersion = Frame(FrameType::hello, 0, std::string("KSTR\2\0\0\0", 8));
const std::string kLaterHello = Frame(FrameType::hello, 7, std::string("KSTR\1\0spares", 12));
const std::string kOpening = Opening(kAnyInterface.data());
const std::string kCreate = kOpening.substr(kHello.size());
const std::string kCreated = Frame(FrameType::created, 0, Number(0, 4));

// Returns the outcome for a client that asks for the status of a server of `user`, which sends `said` and ends.
Connection::Outcome AskStatus(const std::string& said, uid_t user = geteuid(), FrameType opening = FrameType::status) {
  const support::TempFolder folder;
  const std::string path = folder.Path() / "socket";
  const platform::Descriptor listening = SocketAt(path, bind);
  const uid_t self = geteuid();
  EXPECT_EQ(seteuid(user), 0);
  EXPECT_EQ(listen(listening.Number(), 1), 0);
  EXPECT_EQ(seteuid(self), 0);
  auto asked = std::async(std::launch::async, [&path, opening] {
    std::unique_ptr<Connection> connection;
    channel::Decoder answer;
    struct Receiver final : channel::NoteReceiver {
      void Receive(const channel::Note& /*note*/) override {}
    } receiver;
    return Connection::Open(path, geteuid(),
                            {opening, nullptr, 0, opening == FrameType::rehearse ? &receiver : nullptr}, 30,
                            &connection, &answer);
  });
  const RawPeer client(platform::Descriptor(accept(listening.Number(), nullptr, nullptr)));
  client.Send(said);
  client.StopSending();
  return asked.get();
}

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
    std::generate(bytes.begin(), bytes.end(), std::ref(random));
    EXPECT_TRUE(Echoes(*ordinary_, bytes)) << size;
  }
  EXPECT_EQ(Call(*ordinary_, 5, "").first, E_OUTOFMEMORY);
  EXPECT_EQ(Call(*ordinary_, 4, Number(channel::kMaxPayloadBytes, 4)).first, E_OUTOFMEMORY) << "no frame carries it";
  EXPECT_EQ(Call(*ordinary_, 3, std::string(channel::kMaxPayloadBytes + 1, 'x')).first, E_INVALIDARG);
  EXPECT_EQ(ordinary_->AskReason(), "") << "of a call that the server has not seen";
  EXPECT_TRUE(Echoes(*ordinary_, "and goes on"));
}

// Whatever a peer sends, in pieces of any size, gets its answer. Spare fields may be used by later versions.
TEST_F(ServerTest, EveryPeerIsAnsweredAndOthersNoticeNothing) {
  const std::string large(70000, 'z');
  const std::string huge(4 << 20, 'x');  // more than a socket takes at once
  const std::string askHuge = Request(4, Number(huge.size(), 4));
  const std::string status = Status(getpid());
  const std::string badData = Refusal(rpc::kBadStubData);
  const std::string badVersion = kHello + Refusal(rpc::kVersionMismatch);
  const std::string opened = kHello + kCreated;
  const std::uint32_t many = 100000;
  const std::string tellMany = Request(6, Number(many, 4));
  const std::string tellTwo = Request(6, Number(2, 4));
  const std::string rehearsed =
      Frame(FrameType::note, 0,
            Number(7, 2) + Number(1, 4) + Number(1, 4) + Number(1, 4) + "n" + Number(0, 4) + Number(6, 4) + "beforex");
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"small calls", kOpening + Request(3, "one") + Request(3, ""), opened + Result(3, "one") + Result(3, "")},
      {"large calls", kOpening + Request(3, large) + askHuge + askHuge,
       opened + Result(3, large) + Result(4, huge) + Result(4, huge)},
      {"another protocol", "GET / HTTP/1.0\r\n\r\n", badData},  // reads as a length
      {"no hello", kCreate, badVersion},
      {"another version", kHelloOfAnotherVersion + kCreate, badVersion},
      {"a short hello", Frame(FrameType::hello, 0, "KS"), badVersion},
      {"a call before an object", kHello + Request(3, ""), kHello + badData},
      {"why", kOpening + Why() + Request(3, "one") + Why("spare") + Why(),
       opened + Why() + Result(3, "one") + Why("slot 3") + Why("slot 3")},
      {"why memory ran out", kOpening + Request(3, "") + Request(5, "") + Why(),
       opened + Result(3, "") + Frame(FrameType::result, 5, Number(static_cast<std::uint32_t>(E_OUTOFMEMORY), 4)) +
           Why()},
      {"why, at length", kOpening + Request(4, Number(20000, 4)) + Why(),
       opened + Result(4, std::string(20000, 'x')) + Why(std::string(16384, 'y'))},
      {"a followed call", kOpening + tellTwo + kFollow + tellTwo + tellTwo,
       opened + Result(6, "") + Notes(2) + Result(6, "") + Result(6, "")},
      {"more notes than a socket takes", kOpening + kFollow + tellMany + Request(3, "x"),
       opened + Notes(many) + Result(6, "") + Result(3, "x")},
      {"a rehearsal", kHello + kFollow + Frame(FrameType::rehearse, 0, "x") + Frame(FrameType::rehearse, 0, ""),
       kHello + rehearsed + Frame(FrameType::rehearse, 0, Number(0, 4)) +
           Frame(FrameType::rehearse, 0, Number(static_cast<std::uint32_t>(E_INVALIDARG), 4))},
      {"why, before an object", kHello + Why(), kHello + badData},
      {"following before hello", kFollow + kHello, badVersion},
      {"a rehearsal of an object", kOpening + Frame(FrameType::rehearse, 0, "x"), opened + badData},
      {"a short interface identity", kHello + Frame(FrameType::create, 0, "short"), kHello + badData},
      {"an unknown type", kOpening + Frame(FrameType{99}, 0, ""), opened + badData},
      {"a second object", kOpening + kCreate, opened + badData},
      {"too long", kOpening + Frame(FrameType::call, 3, "", channel::kMaxPayloadBytes + 1), opened + badData},
      {"half a frame", kOpening + Frame(FrameType::call, 3, "x", 100 << 20), opened},
      {"a hello without its spare field", Frame(FrameType::hello, 7, std::string("KSTR\1\0", 6)), kHello},
      {"spare fields in use",
       kLaterHello + Frame(FrameType::status, 7, "spare") + Frame(FrameType::create, 7, std::string(16, '\0')),
       kHello + status + kCreated},
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

// Clients that never pause must keep the server neither from accepting others nor from serving calls that take more
// than one read.
TEST_F(ServerTest, BusyClientsStarveNoOthers) {
  std::array<std::jthread, 3> busy;
  for (std::jthread& client : busy) {
    client = std::jthread([connection = Open()](const std::stop_token& stop) {
      while (!stop.stop_requested() && Echoes(*connection, std::string(2000, 'b'))) {
      }
    });
  }
  for (int i = 0; i < 20; ++i)
    EXPECT_TRUE(Echoes(*Open(), std::string(200000, 'l')));
}

// The server drops a peer that hoards half frames before other peers suffer.
TEST_F(ServerTest, HoarderGoesAndOthersStay) {
  const std::string megabyte(1 << 20, 'h');
  std::vector<RawPeer> hoarders;
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

// Notes to a peer that does not read are queued up to a limit and hold up no other peer.
TEST_F(ServerTest, NotesThatNobodyReadsAreLimited) {
  const RawPeer deaf(path_);
  constexpr std::uint32_t kMegabytes = 300;
  deaf.Send(kOpening + kFollow + Frame(FrameType::call, 7, Number(kMegabytes, 4)));
  EXPECT_TRUE(support::WaitUntil([&] { return !deaf.Send(kFollow); })) << "cut off";
  EXPECT_TRUE(Echoes(*ordinary_, "the others are served"));
  std::size_t received = 0;
  for (std::string some; !(some = deaf.Receive(1 << 20)).empty();)
    received += some.size();
  EXPECT_LT(received, std::size_t{2} << 20) << "what the socket held, and no answer after half a frame";
}

TEST(Notes, ContentsThatNoFrameCarriesAreLeftOut) {
  channel::Encoder frames;
  AppendNote({4, 1, 1, "name", "why", "before", {"", channel::kMaxPayloadBytes}}, &frames);
  channel::Decoder payload(frames.Frames().Data() + channel::kHeadBytes, frames.Frames().Size() - channel::kHeadBytes);
  channel::Note note{};
  EXPECT_TRUE(channel::TakeNote(payload, &note));
  EXPECT_EQ(note.reason, "why");
  EXPECT_EQ(note.before, "");
  EXPECT_EQ(note.after, "");
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

// Neither side talks to another user, who may have put up a server of its own.
TEST_F(ServerTest, BothSidesRefuseOtherUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  constexpr uid_t kStranger = 65534;
  EXPECT_EQ(AskStatus(kHello + Status(1), kStranger), Connection::Outcome::denied);
  chmod(folder_.Path().c_str(), 0777);
  chmod(path_.c_str(), 0777);
  const auto ask = [this] {
    for (const std::string& said : {kOpening, std::string()}) {
      const RawPeer peer(path_);
      peer.Send(said);
      EXPECT_EQ(peer.ReceiveToEnd(), kHello + Refusal(E_ACCESSDENIED));
    }
  };
  support::Elsewhere(ask, kStranger);
}

// Whatever a server sends, the client gets a result.
TEST(Client, MisbehavingServers) {
  using Outcome = Connection::Outcome;
  const std::string refusal = Refusal(E_ACCESSDENIED, "reason");
  const std::pair<std::string, Outcome> cases[] = {
      {"", Outcome::nobody},
      {kHello + Number(4, 4), Outcome::nobody},
      {kHelloOfAnotherVersion + Status(1), Outcome::otherVersion},
      {"HTTP/1.0 400 Bad Request", Outcome::nobody},
      {kHello + refusal, Outcome::denied},
      {refusal, Outcome::denied},
      {kHello + kCreated, Outcome::otherVersion},
      {kHello + Status(1), Outcome::ok},
      {kLaterHello + Status(1), Outcome::ok},
  };
  for (const auto& [said, outcome] : cases)
    EXPECT_EQ(AskStatus(said), outcome) << testing::PrintToString(said);
  EXPECT_EQ(AskStatus(kOldHello, geteuid(), FrameType::rehearse), Outcome::otherVersion) << "nothing is sent to it";
  const std::string told = kHello + Notes(1);
  EXPECT_EQ(AskStatus(kHello, geteuid(), FrameType::rehearse), Outcome::nobody);
  EXPECT_EQ(AskStatus(told, geteuid(), FrameType::rehearse), Outcome::lost) << "it must not be told once more";
}

// Returns what a client makes of the answer to a call that it follows, and of the answer when it asks for the reason.
std::string Followed(const std::string& opened, const std::string& answer, const std::string& why = "") {
  struct Receiver final : channel::NoteReceiver {
    void Receive(const channel::Note& note) override { heard.append(note.name).append(note.reason) += ' '; }
    std::string heard;
  } receiver;
  const support::TempFolder folder;
  const std::string path = folder.Path() / "socket";
  const platform::Descriptor listening = SocketAt(path, bind);
  EXPECT_EQ(listen(listening.Number(), 1), 0);
  auto called = std::async(std::launch::async, [&] {
    std::unique_ptr<Connection> connection;
    channel::Decoder out;
    EXPECT_EQ(Connection::Open(path, geteuid(), {FrameType::create, kAnyInterface.data(), 16}, 30, &connection, &out),
              Connection::Outcome::ok);
    connection->BeginCall(6, &receiver).U32(2);
    receiver.heard += std::to_string(connection->Exchange(&out));
    receiver.heard += "(" + connection->AskReason() + ")";
  });
  const RawPeer client(platform::Descriptor(accept(listening.Number(), nullptr, nullptr)));
  client.Receive(kOpening.size());
  client.Send(opened);
  client.Receive(opened == kOldHello + kCreated ? 12 : 20);
  client.Send(answer);
  if (!why.empty() && client.Receive(8) == Why()) client.Send(why);
  client.StopSending();
  called.get();
  return receiver.heard;
}

TEST(Client, NotesAndReasonsOfAnyServer) {
  const std::string opened = kHello + kCreated;
  const std::string failed = std::to_string(rpc::kCallFailed) + "()";
  const std::string old = kOldHello + kCreated;
  EXPECT_EQ(Followed(opened, Notes(2) + Result(6, ""), Why("because")), "namewhy namewhy 1(because)");
  EXPECT_EQ(Followed(opened, Result(6, ""), Result(6, "")), "1()");
  EXPECT_EQ(Followed(opened, Result(6, "")), "1()");
  EXPECT_EQ(Followed(opened, Frame(FrameType::note, 0, "short") + Result(6, "")), failed);
  EXPECT_EQ(Followed(old, Result(6, "")), "1()") << "an older server is asked for nothing";
  EXPECT_EQ(Followed(old, Notes(1) + Result(6, "")), failed);
}

}  // namespace

}  // namespace channel_test
