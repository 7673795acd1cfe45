// The real server process among peers that mean it harm.
#include <atomic>
#include <cstdio>
#include <deque>
#include <random>

#include "marshal/payloads.h"
#include "server_thread.h"
#include "support/installation.h"

namespace {

using channel::FrameType;
using channel_test::Frame;
using channel_test::Number;
using channel_test::Opening;
using channel_test::RawPeer;
using support::ReadModel;
using support::Text;
using support::WaitUntil;
using support::WriteModel;

std::string Bytes(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

std::string TextArgument(std::u16string_view text) {
  return payloads::Payload("t", {.texts = {Bytes(text)}});
}

std::string Call(std::uint16_t slot, const std::string& arguments) {
  return Frame(FrameType::call, slot, arguments);
}

std::string Initialise(std::u16string_view component) {
  return Call(3, TextArgument(u"CT") + TextArgument(component));
}

constexpr std::uint16_t kLe = 5;
std::string Grava(std::u16string_view name, const std::string& content) {
  return Call(6, TextArgument(name) + Number(7, 3) + Number(content.size(), 4) + '\1' + content);
}

// Each class with its interface.
constexpr std::array<std::pair<CLSID, IID>, 3> kClasses = {{{CLSID_ZNPL_Rel, IID_IZNPL_Rel},
                                                            {CLSID_ZNPL_Relatorio2, IID_IZNPL_Relatorio2},
                                                            {CLSID_ZNPL_RelConverte, IID_IZNPL_RelConverte}}};

// Holds conversations that its seed determines: well-formed requests of all interfaces for component 99 of module CT,
// altered ones, frames of lying lengths, of unknown types, slots and versions, and bytes of any kind; hangs up in the
// middle, stays silent in the middle of a frame, or does not read what it has asked for.
class HostilePeer {
 public:
  explicit HostilePeer(std::uint32_t seed) : random_(seed) {}

  // One conversation on a connection of its own. Throws when the server's side of it is not well-formed.
  void Converse() {
    const std::size_t ending = Below(8);
    const auto& [clsid, iid] = kClasses.at(ending == 0 ? 1 : Below(3));
    std::string script = ending == 0 ? Unread() : Script(iid);
    if (ending >= 5) script.resize(Below(script.size() + 1));  // hangs up, or is silent, in the middle
    RawPeer peer(support::SocketPath(clsid));
    peer.Send(script);
    if (ending == 0 || ending == 7) {
      kept_.push_back(std::move(peer));
      if (kept_.size() > kMostKept) kept_.pop_front();
    } else if (ending < 5) {
      peer.StopSending();
      peer.ReceiveToEnd();
    }
  }

 private:
  static constexpr std::size_t kMostKept = 20;

  std::size_t Below(std::size_t limit) { return random_() % limit; }
  const IID& AnyInterface() { return kClasses.at(Below(3)).second; }

  // More than a socket takes at once, asked for again and again.
  static std::string Unread() {
    std::string script =
        Opening(&IID_IZNPL_Relatorio2) + Initialise(u"99") + Grava(u"Grande", std::string(300'000, 'g'));
    for (int i = 0; i < 30; ++i)
      script += Call(kLe, TextArgument(u"Grande"));
    return script;
  }

  std::string Script(const IID& asked) {
    std::string script = Opening(Below(10) == 0 ? &AnyInterface() : &asked);
    if (Below(8) == 0) script = Frame(FrameType::status, 0, "") + script;
    if (Below(8) == 0) Spoil(&script);
    if (asked == IID_IZNPL_Relatorio2 && Below(4) != 0) script += Initialise(u"99");
    for (std::size_t i = Below(6); i > 0; --i) {
      std::string frame = Request(Below(20) == 0 ? AnyInterface() : asked);
      if (Below(2) == 0) Spoil(&frame);
      script += frame;
    }
    return script;
  }

  // A request as a well-behaved client could make it.
  std::string Request(const IID& iid) {
    const payloads::Method* method = nullptr;
    do {
      method = &payloads::Methods().at(Below(payloads::Methods().size()));
    } while (!(method->iid == iid));
    static constexpr std::array<std::u16string_view, 5> kNames = {u"Hostil", u"Hostil2", u"Grande", u"", u"a.b"};
    recorder::Content content = {.texts = {Bytes(kNames.at(Below(kNames.size())))},
                                 .number = static_cast<LONG>(Below(3)),
                                 .count = static_cast<LONG>(Below(5)),
                                 .hasRecord = Below(4) != 0,
                                 .hasArray = Below(4) != 0};
    if (Below(16) == 0) content.texts = {std::nullopt};
    if (Below(16) == 0) content.texts = {std::string(Below(3000), 'x')};
    if (method->request.starts_with("tt")) content.texts = {Bytes(u"CT"), Bytes(u"99")};
    if (method->request == "ttt") content.texts.insert(content.texts.begin(), Bytes(u"Norvela"));
    return Call(method->slot, payloads::Payload(method->request, content));
  }

  void Spoil(std::string* frame) {
    const auto put = [&](std::size_t place, std::uint64_t value, std::size_t width) {
      frame->replace(place, width, Number(value, width));
    };
    const std::uint64_t size = frame->size() - channel::kHeadBytes;
    constexpr std::uint64_t kMost = channel::kMaxPayloadBytes;
    const std::uint64_t lengths[] = {0, 1, size - 1, size + 1, size + 5000, kMost, kMost + 1, 0x7FFFFFFF, 0xFFFFFFFF};
    const std::size_t kind = Below(5);
    if (kind == 0) return put(0, lengths[Below(std::size(lengths))], 4);
    if (kind == 1) return put(4, random_(), 2);                              // its type
    if (kind == 2) return put(6, Below(2) == 0 ? Below(32) : random_(), 2);  // its slot
    const bool isNoise = kind == 3;
    if (isNoise) frame->resize(Below(200));
    for (std::size_t i = isNoise ? frame->size() : Below(6) + 1; i > 0; --i)
      put(isNoise ? i - 1 : Below(frame->size()), random_(), 1);
  }

  std::mt19937 random_;
  std::deque<RawPeer> kept_;  // connections that are held without a word
};

void BeHostile(unsigned seed, unsigned conversations) {
  HostilePeer peer(seed);
  for (unsigned i = 0; i < conversations; ++i)
    EXPECT_NO_THROW(peer.Converse()) << "conversation " << i << " of peer " << seed;
}

// Does what clients do, and checks every answer, until it is told to end.
void BeOrdinary(unsigned client, const std::atomic<bool>& closes, std::atomic<unsigned>& calls) {
  ComPtr<IZNPL_Relatorio2> store;
  for (unsigned round = 0; !closes; ++round, calls += 4) {
    if (round % 5 == 0) {
      store = support::OpenStore();
      ASSERT_TRUE(store && store->Inicializa(Text(u"CT"), Text(std::u16string(client + 1, u'K'))) == S_OK);
    }
    const std::u16string name = u"Ordinario" + std::u16string(round % 3, u'o');
    std::string content;
    for (unsigned i = 0; content.size() < round * 977 % 100'000; ++i)
      content += std::to_string(client * round + i);
    ASSERT_EQ(WriteModel(*store, name, content), S_OK);
    ASSERT_EQ(ReadModel(*store, name), content);
    ASSERT_EQ(store->SetRelatorioPadrao(Text(name)), S_OK);
    BSTR standard = nullptr;
    ASSERT_EQ(store->GetRelatorioPadrao(&standard), S_OK);
    ASSERT_EQ(std::u16string(OwnedBstr(standard).get()), name);
  }
}

class PeersTest : public testing::Test {
 protected:
  void SetUp() override {
    // Sanitizers write what they find in the folder of reports: the server belongs to no terminal. What they keep of
    // freed memory is kept small, so that memory can be measured.
    for (const char* variable : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
      const char* given = getenv(variable);
      const std::string options = given == nullptr ? "" : given + std::string(":");
      setenv(variable, (options + "quarantine_size_mb=8:log_path=" + (reports_.Path() / "report").string()).c_str(), 1);
    }
    store_ = support::OpenStore();
    ASSERT_TRUE(store_);
    server_ = installation_.ServerPid();
    BeHostile(99, 100);  // what the server keeps once it has served everything is no loss
    ExpectQuiet(1);
    ASSERT_EQ(WriteModel(*store_, u"Vendas", "x"), S_OK);
    descriptors_ = Descriptors();
  }

  void TearDown() override {
    EXPECT_TRUE(WaitUntil([this] { return Descriptors() <= descriptors_; })) << Descriptors() - descriptors_ << " more";
    EXPECT_EQ(installation_.ServerPid(), server_) << "it is not the same server any more";
    store_.Reset();
    EXPECT_TRUE(WaitUntil([this] { return support::HasEnded(server_); })) << "the server does not end by itself";
    for (const std::string& report : support::Names(reports_.Path()))
      ADD_FAILURE() << support::ReadFile(reports_.Path() / report);
  }

  std::size_t Descriptors() const { return support::Names(support::FolderOfDescriptors(server_)).size(); }

  // A figure of the server's memory, in KiB.
  long Memory(const std::string& name) const {
    const std::string status = support::ReadFile("/proc/" + std::to_string(server_) + "/status");
    return std::stol(status.substr(status.find(name) + name.size()));
  }

  // Nothing of peers that have gone is left.
  void ExpectQuiet(DWORD objects) const {
    EXPECT_TRUE(WaitUntil([&] { return installation_.LiveObjects() == objects; })) << installation_.LiveObjects();
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
  // What the allocator and a sanitizer keep of it; a single answer kept for ever by each of them would be more.
  constexpr long kMemory = 40 << 10;  // KiB
  const unsigned conversations = (support::LongTests() ? 10'000 : 300) / kThreads;
  std::atomic<bool> closes{false};
  std::atomic<unsigned> calls{0};
  std::deque<std::thread> clients;
  for (unsigned i = 0; i < kClients; ++i)
    clients.emplace_back([&, i] { BeOrdinary(i, closes, calls); });
  ExpectQuiet(1 + kClients);
  const long before = Memory("VmRSS:");

  std::deque<std::thread> hostile;
  for (unsigned i = 0; i < kThreads; ++i)
    hostile.emplace_back(BeHostile, i, conversations);
  for (std::thread& thread : hostile)
    thread.join();
  ExpectQuiet(1 + kClients);
  closes = true;
  for (std::thread& thread : clients)
    thread.join();
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
  const std::string name = TextArgument(u"Cortado");
  const std::string conversation = Opening(&IID_IZNPL_Relatorio2) + Initialise(u"01") + Grava(u"Cortado", content) +
                                   Call(10, name) + Call(kLe, name) + Call(7, "") + Call(8, name + '\0');
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
    const std::string stored = ReadModel(*store_, u"Cortado");
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

}  // namespace
