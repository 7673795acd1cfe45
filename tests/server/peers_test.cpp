// The real server process among hostile peers.
#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <random>

#include "channel/server_thread.h"
#include "marshal/payloads.h"
#include "support/installation.h"

namespace {

using channel_test::Frame;
using channel_test::FrameType;
using channel_test::Number;
using channel_test::RawPeer;

std::string Bytes(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

// Returns the frame of a call of the store. `rest` holds the arguments after the name.
std::string Call(const char* method, std::u16string_view name, const std::string& rest = "") {
  return Frame(FrameType::call, payloads::MethodOf(IID_IZNPL_Relatorio2, method).slot,
               payloads::Payload("t", {.texts = {Bytes(name)}}) + rest);
}

// Returns a conversation that initialises the store and stores a model.
std::string Storing(std::u16string_view component, std::u16string_view name, const std::string& content) {
  return channel_test::Opening(&IID_IZNPL_Relatorio2) +
         Call("Inicializa", u"CT", payloads::Payload("t", {.texts = {Bytes(component)}})) +
         Call("Grava", name, Number(7, 3) + Number(content.size(), 4) + '\1' + content);
}

// Each class with its interface.
constexpr std::array<std::pair<CLSID, IID>, 3> kClasses = {{{CLSID_ZNPL_Rel, IID_IZNPL_Rel},
                                                            {CLSID_ZNPL_Relatorio2, IID_IZNPL_Relatorio2},
                                                            {CLSID_ZNPL_RelConverte, IID_IZNPL_RelConverte}}};

// Holds conversations that its seed determines. Sends well-formed requests of all interfaces for component 99 of module
// CT, altered ones, frames with false lengths, unknown types, slots and versions, and random bytes. Hangs up midway,
// stays silent in the middle of a frame, or does not read what it has asked for.
class HostilePeer {
 public:
  explicit HostilePeer(std::uint32_t seed) : random_(seed) {}

  // Holds one conversation on a connection of its own. Throws if what the server sends is malformed.
  void Converse() {
    const std::size_t ending = Below(8);
    const auto& [clsid, iid] = kClasses.at(ending == 0 ? 1 : Below(3));
    std::string script = ending == 0 ? Unread() : Script(iid);
    if (ending >= 5) script.resize(Below(script.size() + 1));  // hangs up or falls silent midway
    RawPeer peer(support::SocketPath(clsid));
    peer.Send(script);
    if (ending == 0 || ending == 7) {
      kept_.at(Below(kept_.size())) = std::move(peer);
    } else if (ending < 5) {
      peer.StopSending();
      peer.ReceiveToEnd();
    }
  }

 private:
  std::size_t Below(std::size_t limit) { return random_() % limit; }
  bool OneIn(std::size_t chances) { return Below(chances) == 0; }

  // Asks again and again for more than a socket takes at once.
  static std::string Unread() {
    std::string script = Storing(u"99", u"Grande", std::string(300'000, 'g'));
    for (int i = 0; i < 30; ++i)
      script += Call("Le", u"Grande");
    return script;
  }

  std::string Script(const IID& asked) {
    std::string script = channel_test::Opening(OneIn(10) ? &kClasses.at(Below(3)).second : &asked);
    if (asked == IID_IZNPL_Relatorio2 && !OneIn(4)) script = Storing(u"99", u"Hostil", "hostile");
    if (OneIn(8)) script = Frame(FrameType::status, 0, "") + script;
    if (OneIn(4)) script.insert(OneIn(8) ? 0 : channel_test::kHello.size(), Rehearsal());
    if (OneIn(8)) Spoil(&script);
    for (std::size_t i = Below(6); i > 0; --i) {
      std::string frame = Request(asked);
      if (OneIn(2)) Spoil(&frame);
      if (OneIn(3)) script += Frame(FrameType::follow, 0, "");
      script += frame;
      if (OneIn(3)) script += Frame(FrameType::reason, 0, "");
    }
    return script;
  }

  // Returns a rehearsal of a migration or, if the class has it, of a renumbering.
  std::string Rehearsal() {
    const std::string arguments =
        OneIn(2) ? "tt" : payloads::MethodOf(IID_IZNPL_RelConverte, "AlteraCodigoCampos").request;
    std::string frame = Frame(FrameType::rehearse, 0,
                              payloads::Payload(arguments, {.texts = {Bytes(u"CT"), Bytes(u"99")},
                                                            .count = static_cast<LONG>(Below(5)),
                                                            .hasArray = !OneIn(4)}));
    if (OneIn(2)) Spoil(&frame);
    return Frame(FrameType::follow, 0, "") + frame;
  }

  // Returns a request as a well-behaved client could send it, rarely for another interface.
  std::string Request(const IID& iid) {
    const payloads::Method* method = nullptr;
    do {
      method = &payloads::Methods().at(Below(payloads::Methods().size()));
    } while (!(method->iid == iid) && !OneIn(40));
    static constexpr std::array<std::u16string_view, 5> kNames = {u"Hostil", u"Hostil2", u"Grande", u"", u"a.b"};
    payloads::Content content = {.texts = {Bytes(kNames.at(Below(kNames.size())))},
                                 .number = static_cast<LONG>(Below(3)),
                                 .count = static_cast<LONG>(Below(5)),
                                 .hasRecord = !OneIn(4),
                                 .hasArray = !OneIn(4)};
    if (OneIn(16)) content.texts = {std::nullopt};
    if (OneIn(16)) content.texts = {std::string(Below(3000), 'x')};
    if (method->request.starts_with("tt")) content.texts = {Bytes(u"CT"), Bytes(u"99")};
    if (method->request == "ttt") content.texts.insert(content.texts.begin(), Bytes(u"Norvela"));
    return Frame(FrameType::call, method->slot, payloads::Payload(method->request, content));
  }

  void Spoil(std::string* frame) {
    constexpr std::uint64_t kMost = channel::kMaxPayloadBytes;
    const std::uint64_t size = frame->size() - channel::kHeadBytes;
    const std::uint64_t lengths[] = {0, 1, size - 1, size + 1, size + 5000, kMost, kMost + 1, 0x7FFFFFFF, 0xFFFFFFFF};
    const std::size_t kind = Below(5);
    if (kind == 0) frame->replace(0, 4, Number(lengths[Below(std::size(lengths))], 4));
    if (kind == 1) frame->replace(4, 2, Number(random_(), 2));                         // its type
    if (kind == 2) frame->replace(6, 2, Number(OneIn(2) ? Below(32) : random_(), 2));  // its slot
    if (kind == 3) {
      frame->resize(Below(200));
      std::generate(frame->begin(), frame->end(), std::ref(random_));
    }
    for (std::size_t i = kind == 4 ? Below(6) + 1 : 0; i > 0; --i)
      frame->at(Below(frame->size())) = static_cast<char>(random_());
  }

  std::mt19937 random_;
  std::array<std::optional<RawPeer>, 20> kept_;  // connections that are kept open in silence
};

void BeHostile(unsigned seed, unsigned conversations) {
  HostilePeer peer(seed);
  for (unsigned i = 0; i < conversations; ++i)
    EXPECT_NO_THROW(peer.Converse()) << "conversation " << i << " of peer " << seed;
}

// Acts as an ordinary client and checks every answer, until told to end.
void BeOrdinary(const std::stop_token& end, unsigned client, std::atomic<unsigned>& calls) {
  ComPtr<IZNPL_Relatorio2> store;
  for (unsigned round = 0; !end.stop_requested(); ++round, calls += 2) {
    if (round % 5 == 0) {
      store = support::OpenStore();
      ASSERT_TRUE(store &&
                  store->Inicializa(support::Text(u"CT"), support::Text(std::u16string(client + 1, u'K'))) == S_OK);
    }
    const std::u16string name = u"Ordinario" + std::u16string(round % 3, u'o');
    std::string content;
    for (unsigned i = 0; content.size() < round * 977 % 100'000; ++i)
      content += std::to_string(client * round + i);
    ASSERT_EQ(support::WriteModel(*store, name, content), S_OK);
    ASSERT_EQ(support::ReadModel(*store, name), content);
  }
}

class PeersTest : public testing::Test {
 protected:
  void SetUp() override {
    // Sanitizers write their findings to a folder, because the server has no terminal. They keep little freed memory,
    // so that memory can be measured.
    for (const char* variable : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
      const char* given = getenv(variable);
      const std::string options = given == nullptr ? "" : given + std::string(":");
      setenv(variable, (options + "quarantine_size_mb=8:log_path=" + (reports_.Path() / "report").string()).c_str(), 1);
    }
    store_ = support::OpenStore();
    ASSERT_TRUE(store_);
    server_ = installation_.ServerPid();
    BeHostile(99, 100);  // warms the server up: what it keeps from the first calls is no leak
    ExpectQuiet(1);
    ASSERT_EQ(support::WriteModel(*store_, u"Vendas", "x"), S_OK);
    descriptors_ = Descriptors();
  }

  void TearDown() override {
    EXPECT_TRUE(support::WaitUntil([this] { return Descriptors() <= descriptors_; }))
        << Descriptors() - descriptors_ << " more";
    EXPECT_EQ(installation_.ServerPid(), server_) << "it is not the same server any more";
    store_.Reset();
    EXPECT_TRUE(support::WaitUntil([this] { return support::HasEnded(server_); }))
        << "the server does not end by itself";
    for (const std::string& report : support::Names(reports_.Path()))
      ADD_FAILURE() << support::ReadFile(reports_.Path() / report);
  }

  std::size_t Descriptors() const { return support::Names(support::FolderOfDescriptors(server_)).size(); }

  // Returns a figure of the server's memory, in KiB.
  long Memory(const std::string& name) const {
    const std::string status = support::ReadFile("/proc/" + std::to_string(server_) + "/status");
    return std::stol(status.substr(status.find(name) + name.size()));
  }

  // Expects that nothing is left of peers that have gone.
  void ExpectQuiet(DWORD objects) const {
    EXPECT_TRUE(support::WaitUntil([&] { return installation_.LiveObjects() == objects; }))
        << installation_.LiveObjects();
  }

  const support::TempFolder reports_;
  const support::Installation installation_;
  ComPtr<IZNPL_Relatorio2> store_;
  pid_t server_ = 0;
  std::size_t descriptors_ = 0;
};

TEST_F(PeersTest, OrdinaryClientsNoticeNothingOfHostileOnes) {
  constexpr unsigned kClients = 2;
  constexpr unsigned kThreads = 3;
  // Allows for what the allocator and a sanitizer keep. One leaked answer for each conversation would be more.
  constexpr long kMemory = 40 << 10;  // KiB
  const unsigned conversations = (support::LongTests() ? 10'000 : 300) / kThreads;
  std::atomic<unsigned> calls{0};
  std::vector<std::jthread> clients;
  for (unsigned i = 0; i < kClients; ++i)
    clients.emplace_back(BeOrdinary, i, std::ref(calls));
  ExpectQuiet(1 + kClients);
  const long before = Memory("VmRSS:");
  std::vector<std::jthread> hostile;
  for (unsigned i = 0; i < kThreads; ++i)
    hostile.emplace_back(BeHostile, i, conversations);
  hostile.clear();
  ExpectQuiet(1 + kClients);
  clients.clear();
  const long after = Memory("VmRSS:");
  const long most = Memory("VmHWM:");
  EXPECT_LT(after - before, kMemory);
  EXPECT_LT(most - before, 2 * kMemory);
  std::printf(
      "peers: %u hostile conversations, %u ordinary calls; memory of the server %ld KiB, %ld at most, %ld before\n",
      conversations * kThreads, calls.load(), after, most, before);
}

TEST_F(PeersTest, ConversationsDroppedAtEveryByte) {
  const std::string content = "the content";
  const std::string conversation = Storing(u"01", u"Cortado", content) + Call("SetRelatorioPadrao", u"Cortado") +
                                   Call("Le", u"Cortado") + Frame(FrameType::call, 7, "") +
                                   Call("ExcluiRelatorio", u"Cortado", Number(0, 1));
  const std::string socket = support::SocketPath();
  const auto whole = [&] {
    const RawPeer peer(socket);
    EXPECT_TRUE(peer.Send(conversation));
    peer.StopSending();
    return peer.ReceiveToEnd();
  };
  const std::string answers = whole();
  EXPECT_NE(answers.find(content), std::string::npos);

  for (std::size_t sent = 0; sent < conversation.size(); ++sent) {
    RawPeer(socket).Send(conversation.substr(0, sent));
    const std::string stored = support::ReadModel(*store_, u"Cortado");
    EXPECT_TRUE(stored == content || stored == "0x00040001") << stored;
  }
  for (std::size_t taken = 0; taken < answers.size(); ++taken) {
    const RawPeer peer(socket);
    peer.Send(conversation);
    EXPECT_EQ(peer.Receive(taken), answers.substr(0, taken));
  }
  ExpectQuiet(1);
  EXPECT_EQ(whole(), answers);
  std::printf("peers: %zu conversations dropped\n", conversation.size() + answers.size());
}

// Every peer must get its answer at once: a client that asks for a second object must not wait for itself.
TEST(FullServer, ServesAShareOfItsDescriptorsAndTurnsTheRestAway) {
  constexpr rlim_t kDescriptors = 256;
  constexpr std::size_t kServed = kDescriptors / 4 * 3 - 1;  // in addition to this program's store
  const support::Installation installation;
  ComPtr<IZNPL_Relatorio2> store;
  support::Child starter([&] {
    const rlimit low{kDescriptors, kDescriptors};
    setrlimit(RLIMIT_NOFILE, &low);
    return support::OpenStore() ? 0 : 1;
  });
  ASSERT_EQ(starter.Wait(), 0);
  store = support::OpenStore();
  ASSERT_TRUE(store);
  const pid_t server = installation.ServerPid();

  const std::string refused = channel_test::kHello + Frame(FrameType::refusal, 0, Number(0x800706BB, 4));
  std::vector<RawPeer> peers;
  std::size_t turnedAway = 0;
  for (std::size_t i = 0; i < 2000; ++i) {
    peers.emplace_back(support::SocketPath());
    peers.back().Send(channel_test::Opening(&IID_IZNPL_Relatorio2));
    if (i < kServed) {
      ASSERT_EQ(peers.back().Receive(channel_test::kHello.size() + channel::kHeadBytes + 4),
                channel_test::kHello + Frame(FrameType::created, 0, Number(0, 4)));
    } else {
      ASSERT_EQ(peers.back().ReceiveToEnd(), refused);
      peers.pop_back();
      ++turnedAway;
    }
  }
  EXPECT_EQ(turnedAway, 2000 - kServed);
  // Turns a client away when no descriptor is left, and when only those reserved for files are.
  for (const rlim_t limit : {support::Names(support::FolderOfDescriptors(server)).size(), kDescriptors}) {
    const rlimit most{limit, kDescriptors};
    ASSERT_EQ(prlimit(server, RLIMIT_NOFILE, &most, nullptr), 0);
    ComPtr<IUnknown> none;
    EXPECT_EQ(
        CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2, none.OutVoid()),
        HRESULT_FROM_WIN32(DWORD{0x6BB}));
  }
  EXPECT_EQ(support::WriteModel(*store, u"Vendas", "x"), S_OK) << "no descriptor is left for its files";
  peers.clear();
  EXPECT_TRUE(support::WaitUntil([] { return static_cast<bool>(support::OpenStore()); }));
}

}  // namespace
