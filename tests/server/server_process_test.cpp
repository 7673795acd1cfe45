// How clients of a real server process experience its other clients, its exit and its death. A server's start, end,
// limits and sockets are in kestorctl/transcripts: server.txt, sockets.txt, without_rights.txt.
#include <signal.h>

#include <atomic>
#include <deque>
#include <gmock/gmock.h>
#include <thread>

#include "channel/server_thread.h"
#include "marshal/marshal.h"
#include "platform/com/error_info.h"
#include "server/entrada.h"
#include "store/repositorio_rel2.h"
#include "support/elsewhere.h"
#include "support/installation.h"
#include "support/shared_memory.h"

namespace {

using support::Child;
using support::Installation;
using support::OpenStore;
using support::ReadModel;
using support::SocketPath;
using support::WaitUntil;

constexpr const char* kNoModel = "0x00040001";

class RunningServer : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(store_); }

  const Installation installation_;
  const ComPtr<IZNPL_Relatorio2> store_ = OpenStore();
  const pid_t server_ = installation_.ServerPid();
};

TEST_F(RunningServer, RefusesWhatItsClassesDoNotHave) {
  const auto make = [](IUnknown* outer, REFIID iid) {
    ComPtr<IUnknown> object;
    return CoCreateInstance(CLSID_ZNPL_Relatorio2, outer, CLSCTX_LOCAL_SERVER, iid, object.OutVoid());
  };
  EXPECT_EQ(make(store_.Get(), IID_IUnknown), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(make(nullptr, IID_IZNPL_Rel), E_NOINTERFACE);
}

// A process that finds the home served by another one ends: no client could ever reach it.
TEST_F(RunningServer, SurplusServerEnds) {
  EXPECT_EQ(Child([] { return execl(KESTOR_EXECUTABLE, KESTOR_EXECUTABLE, "-Embedding", nullptr); }).Wait(), 0);
  EXPECT_EQ(ReadModel(*store_, u"None"), kNoModel);
}

TEST_F(RunningServer, IdleConnectionsHoldUpNoClient) {
  Child crowd([] {
    std::deque<channel_test::RawPeer> idle;
    for (int i = 0; i < 1000; ++i) {
      idle.emplace_back(SocketPath());
      if (i % 2 == 0) idle.back().Send(std::string("\x08\0\0", 3));  // half a head
    }
    return pause();
  });
  const auto descriptors = [this] { return support::Names(support::FolderOfDescriptors(server_)).size(); };
  EXPECT_TRUE(WaitUntil([&] { return descriptors() > 1000; }));
  EXPECT_EQ(ReadModel(*store_, u"None"), kNoModel);
  EXPECT_TRUE(OpenStore());
  crowd.Kill();
  EXPECT_TRUE(WaitUntil([&] { return descriptors() < 50; }));
}

// Returns the text of this thread's error information.
std::string Why() {
  ComPtr<IErrorInfo> information;
  return GetErrorInfo(0, information.Out()) == S_OK ? com::DescriptionOf(*information) : std::string();
}

TEST_F(RunningServer, SaysWhyOfTheLastCallToItsThreadOnce) {
  ComPtr<IZNPL_Relatorio2> other = OpenStore();
  ASSERT_TRUE(other);
  const auto fails = [](IZNPL_Relatorio2& store) { EXPECT_EQ(ReadModel(store, u"None"), kNoModel); };
  const auto onAnotherThread = [](const auto& operation) { std::thread(operation).join(); };
  fails(*store_);
  onAnotherThread([&] {
    EXPECT_EQ(Why(), "") << "it has made no call";
    fails(*other);
  });
  EXPECT_THAT(Why(), testing::StartsWith("CT01None.RXL cannot be read: "));
  EXPECT_EQ(Why(), "") << "taken";

  const auto lost = [&](const char* how, const auto& operation) {
    fails(*store_);
    operation();
    EXPECT_EQ(Why(), "") << how;
  };
  lost("a call that succeeds", [&] { EXPECT_EQ(support::WriteModel(*other, u"Model", "m"), S_OK); });
  lost("a call on the object by another thread", [&] { onAnotherThread([&] { fails(*store_); }); });
  lost("a creation that fails", [] {
    ComPtr<IUnknown> none;
    EXPECT_EQ(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Rel, none.OutVoid()),
              E_NOINTERFACE);
  });
  lost("a call that no frame can carry", [&] {
    std::string huge(channel::kMaxPayloadBytes, 'x');
    EXPECT_EQ(support::WriteModel(*store_, u"Model", std::move(huge)), E_INVALIDARG);
  });
  fails(*other);
  other.Reset();
  EXPECT_EQ(Why(), "") << "its object is gone";
  fails(*store_);
  EXPECT_NE(Why(), "");
}

TEST_F(RunningServer, ClientsAreToldOfItsDeath) {
  // Stops the server, so that it dies while the call is under way.
  kill(server_, SIGSTOP);
  Child killer([this, waiting = "/proc/" + std::to_string(getpid()) + "/wchan"] {
    WaitUntil([&waiting] { return support::ReadFile(waiting).find("unix_stream") != std::string::npos; });
    return kill(server_, SIGKILL);
  });
  EXPECT_EQ(ReadModel(*store_, u"None"), "0x800706BE");
  EXPECT_EQ(ReadModel(*store_, u"None"), "0x800706BA") << "gone before the call";
}

// Servers exit shortly after their last object while clients come at any time; every client is served.
TEST(QuickServers, ServeTheClientsThatComeWhileTheyEnd) {
  const Installation installation("\"" + platform::ExecutablePath() + "\" quick-server");
  const SharedMemory<std::atomic<unsigned>> servers;
  support::AtOnce(2, [&](unsigned i) {
    pid_t last = 0;
    for (unsigned round = 0; round < 60; ++round) {
      auto store = OpenStore();
      ASSERT_TRUE(store);
      ASSERT_EQ(ReadModel(*store, u"None"), kNoModel);
      const pid_t server = installation.ServerPid();
      *servers += std::exchange(last, server) != server ? 1 : 0;
      store.Reset();
      usleep((round * 977 + i * 331) % 9000);
    }
  });
  EXPECT_GE(*servers, 10U) << "as the clients have seen them";
}

// Runs the product's own server, except that it lives only a few milliseconds after its last object.
int RunQuickServer() {
  CoInitialize(nullptr);
  marshal::RegisterInterfaces();
  const kestor::LinhaClasse row = {
      CLSID_ZNPL_Relatorio2, [](kestor::CModuloServidor& module, IUnknown*, REFIID iid, void** object) {
        return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, module);
      }};
  kestor::CModuloServidor module({&row, 1}, 3);
  kestor::AtendeClientes(module, 10);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "quick-server") return RunQuickServer();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
