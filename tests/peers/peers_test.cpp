// The real server process among peers that mean it harm.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <deque>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <thread>

#include "contract/results.h"
#include "files/shared_memory.h"
#include "hostile_peer.h"
#include "platform/channel/channel.h"
#include "platform/text/text.h"
#include "support/elsewhere.h"
#include "support/installation.h"

namespace {

using channel_test::RawPeer;
using support::Child;
using support::ReadModel;
using support::Text;
using support::WaitUntil;
using support::WriteModel;

std::u16string Number(unsigned number) {
  return text::Utf8ToUtf16(std::to_string(number));
}

// A figure of /proc/PID/status, in KiB.
long Memory(pid_t process, const std::string& name) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  return -1;
}

// Makes sanitizers write what they have to say in `folder`: the server belongs to no terminal. What they keep of freed
// memory is kept small, so that memory can be measured.
void ReportIn(const std::filesystem::path& folder) {
  static const char* const kVariables[] = {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"};
  for (const char* variable : kVariables) {
    static std::map<std::string, std::string> given;
    const char* now = getenv(variable);
    const std::string before = given.emplace(variable, now == nullptr ? "" : now).first->second;
    std::string options = before + ":log_path=" + (folder / "report").string();
    if (variable == std::string("ASAN_OPTIONS")) options += ":quarantine_size_mb=8";
    setenv(variable, options.c_str(), 1);
  }
}

class PeersTest : public testing::Test {
 protected:
  PeersTest() { ReportIn(reports_.Path()); }

  void SetUp() override {
    store_ = support::OpenStore();
    ASSERT_TRUE(store_);
    server_ = installation_.ServerPid();
    // What the server keeps once it has served everything, such as the index of a folder, is no loss.
    {
      hostile::Peer first(99);
      for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(first.Converse());
    }
    ExpectQuiet(1);
    ASSERT_EQ(WriteModel(*store_, u"Vendas", "x"), S_OK);
    descriptors_ = Descriptors();
  }

  void TearDown() override {
    EXPECT_EQ(installation_.ServerPid(), server_) << "it is not the same server any more";
    store_.Reset();
    EXPECT_TRUE(WaitUntil([this] { return support::HasEnded(server_); })) << "the server does not end by itself";
    for (const std::string& report : support::Names(reports_.Path()))
      ADD_FAILURE() << support::ReadFile(reports_.Path() / report);
  }

  std::size_t Descriptors() const { return support::Names(support::FolderOfDescriptors(server_)).size(); }

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

// ---- Ordinary clients ----------------------------------------------------------------------------------------------

struct Office {
  std::atomic<bool> closes{false};
  std::atomic<unsigned> calls{0};
  std::atomic<unsigned> atWork{0};
};

// Does what clients do, and checks every answer, until the office closes. 0, or the line of what was not as it must be.
int Work(unsigned client, Office& office) {
  const auto open = [client] {
    ComPtr<IZNPL_Relatorio2> store = support::OpenStore();
    if (store && store->Inicializa(Text(u"CT"), Text(u"K" + Number(client))) != S_OK) store.Reset();
    return store;
  };
  const auto fails = [&office](bool right, int line) {
    ++office.calls;
    if (!right) std::fprintf(stderr, "an ordinary client was not served as it should be: line %d\n", line);
    return !right;
  };
  ComPtr<IZNPL_Relatorio2> store = open();
  if (fails(static_cast<bool>(store), __LINE__)) return 1;
  ++office.atWork;
  for (unsigned round = 0; !office.closes; ++round) {
    const std::u16string name = u"Ordinario" + Number(round % 3);
    std::string content;
    for (unsigned i = 0; content.size() < round * 977 % 100'000; ++i)
      content += std::to_string(client * round + i);
    if (fails(WriteModel(*store, name, content) == S_OK, __LINE__)) return 1;
    if (fails(ReadModel(*store, name) == content, __LINE__)) return 1;
    REG_ARRAY_RELATORIO2* listed = nullptr;
    const HRESULT listing = store->GetNomeRelatorios(&listed);
    const TaskBlock<REG_ARRAY_RELATORIO2> list(listed);
    if (fails(listing == S_OK && list && list->nQtdeRelatorios == std::min(round + 1, 3U), __LINE__)) return 1;
    const TaskBlock<tagREG_NOME_RELATORIO2> names(list->pregRelatorios);
    if (fails(text::ToUtf16(names.get()->szNomeRelatorio) == u"Ordinario0", __LINE__)) return 1;
    if (fails(store->SetRelatorioPadrao(Text(name)) == S_OK, __LINE__)) return 1;
    BSTR standard = nullptr;
    const HRESULT got = store->GetRelatorioPadrao(&standard);
    const OwnedBstr owner(standard);
    if (fails(got == S_OK && standard != nullptr && standard == name, __LINE__)) return 1;
    if (round % 5 != 4) continue;
    char deleted = 0;
    if (fails(store->ExcluiRelatorio(Text(name), 0, &deleted) == S_OK && deleted == 1, __LINE__)) return 1;
    if (fails(ReadModel(*store, name) == "0x00040001", __LINE__)) return 1;
    if (fails(WriteModel(*store, name, content) == S_OK, __LINE__)) return 1;
    store = open();
    if (fails(static_cast<bool>(store), __LINE__)) return 1;
  }
  return 0;
}

TEST_F(PeersTest, OrdinaryClientsNoticeNothingOfHostileOnes) {
  constexpr unsigned kClients = 2;
  constexpr unsigned kThreads = 3;
  // What the allocator and a sanitizer keep of it; a single answer kept for ever by each of them would be more.
  constexpr long kMemory = 40 << 10;  // KiB
  const unsigned conversations = support::LongTests() ? 10'000 : 300;
  const SharedMemory<Office> office;
  std::deque<Child> clients;
  for (unsigned i = 0; i < kClients; ++i)
    clients.emplace_back([i, &office] { return Work(i, *office); });
  ASSERT_TRUE(WaitUntil([&] { return office->atWork == kClients; }));
  const long before = Memory(server_, "VmRSS");

  std::atomic<unsigned> held{0};
  {
    std::deque<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        hostile::Peer peer(t);
        for (unsigned i = 0; i < conversations / kThreads; ++i) {
          try {
            if (peer.Converse()) ++held;
          } catch (const std::exception& failure) {
            std::fprintf(stderr, "conversation %u of peer %u: %s\n", i, t, failure.what());
          }
        }
      });
    }
    for (std::thread& thread : threads)
      thread.join();
  }
  EXPECT_EQ(held, conversations / kThreads * kThreads) << "conversations in which the server kept to the protocol";

  ExpectQuiet(1 + kClients);
  office->closes = true;
  for (Child& client : clients)
    EXPECT_EQ(client.Wait(), 0);
  EXPECT_TRUE(WaitUntil([this] { return Descriptors() == descriptors_; })) << Descriptors() - descriptors_ << " more";
  const long after = Memory(server_, "VmRSS");
  const long most = Memory(server_, "VmHWM");
  EXPECT_LT(after - before, kMemory);
  EXPECT_LT(most - before, 2 * kMemory);
  std::printf(
      "peers: %u hostile conversations, %u ordinary calls; memory of the server %ld KiB, %ld at most, %ld before\n",
      held.load(), office->calls.load(), after, most, before);
}

// ---- Conversations that end anywhere -------------------------------------------------------------------------------

TEST_F(PeersTest, ConversationsDroppedAtEveryByte) {
  using hostile::Frame;
  using hostile::TextArgument;
  const std::string content = "the content";
  const auto call = [](unsigned slot, const std::string& arguments) { return Frame(4, slot, arguments); };
  const std::string count(1, static_cast<char>(content.size()));
  const std::string conversation =
      hostile::Opening(IID_IZNPL_Relatorio2) + call(3, TextArgument(u"CT") + TextArgument(u"01")) +
      call(6, TextArgument(u"Cortado") + std::string("\7\0\0", 3) + count + std::string("\0\0\0\1", 4) + content) +
      call(10, TextArgument(u"Cortado")) + call(5, TextArgument(u"Cortado")) + call(7, "") +
      call(8, TextArgument(u"Cortado") + '\0');
  const std::string socket = support::SocketPath();
  const auto whole = [&] {
    const RawPeer peer(socket);
    EXPECT_TRUE(peer.Send(conversation));
    peer.StopSending();
    return peer.Receive(10'000);
  };
  const std::string answers = whole();
  EXPECT_NE(answers.find(content), std::string::npos);

  unsigned dropped = 0;
  for (std::size_t sent = 0; sent < conversation.size(); ++sent, ++dropped) {
    RawPeer(socket).Send(conversation.substr(0, sent));
    const std::string stored = ReadModel(*store_, u"Cortado");
    EXPECT_TRUE(stored == content || stored == "0x00040001") << stored;
  }
  for (std::size_t taken = 0; taken < answers.size(); ++taken, ++dropped) {
    const RawPeer peer(socket);
    peer.Send(conversation);
    EXPECT_EQ(peer.Receive(taken), answers.substr(0, taken));
  }
  ExpectQuiet(1);
  EXPECT_EQ(whole(), answers);
  EXPECT_TRUE(WaitUntil([this] { return Descriptors() == descriptors_; }));
  std::printf("peers: %u conversations dropped\n", dropped);
}

// Whoever gets as far as the socket is looked at all the same.
TEST_F(PeersTest, PeersOfAnotherUserAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
  const std::string socket = support::SocketPath();
  for (std::filesystem::path folder = socket; folder != std::filesystem::temp_directory_path();
       folder = folder.parent_path())
    ASSERT_EQ(chmod(folder.c_str(), 0777), 0) << folder;
  support::Elsewhere(
      [&] {
        for (const std::string& first : {hostile::Opening(IID_IZNPL_Relatorio2), std::string()}) {
          const RawPeer peer(socket);
          peer.Send(first);
          const std::string greeting = peer.Receive(16);
          const std::string refusal = peer.Receive(12);
          ASSERT_EQ(refusal.size(), 12U);
          EXPECT_EQ(greeting.substr(8, 4), "KSTR");
          EXPECT_EQ(refusal[4], 6) << "a refusal";
          EXPECT_EQ(refusal.substr(8), std::string("\x05\0\x07\x80", 4));
        }
      },
      65534);
  for (std::filesystem::path folder = socket; folder != std::filesystem::temp_directory_path();
       folder = folder.parent_path())
    ASSERT_EQ(chmod(folder.c_str(), 0700), 0) << folder;
  EXPECT_EQ(WriteModel(*store_, u"Vendas", "still served"), S_OK);
  ExpectQuiet(1);
}

}  // namespace
