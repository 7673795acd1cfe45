// Clients and the real server process: starting on demand, sharing, ending, dying.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <deque>
#include <fstream>
#include <gmock/gmock.h>

#include "channel/server_thread.h"
#include "marshal/marshal.h"
#include "platform/home/home.h"
#include "server/entrada.h"
#include "store/repositorio_rel2.h"
#include "support/elsewhere.h"
#include "support/installation.h"
#include "support/shared_memory.h"

namespace {

using support::Child;
using support::FolderOfDescriptors;
using support::Installation;
using support::OpenStore;
using support::ReadModel;
using support::SocketPath;
using support::WaitUntil;
using support::WriteModel;
namespace fs = std::filesystem;

// ---- Starting ------------------------------------------------------------------------------------------------------

HRESULT Make() {
  ComPtr<IUnknown> made;
  return CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2, made.OutVoid());
}

int StartByHand() {
  execl(KESTOR_EXECUTABLE, KESTOR_EXECUTABLE, "-Embedding", nullptr);
  return 127;
}

class RunningServer : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(store_); }

  const Installation installation_;
  ComPtr<IZNPL_Relatorio2> store_ = OpenStore();
  const pid_t server_ = installation_.ServerPid();
};

TEST(Activation, StartsOnDemandAndEndsByItself) {
  const Installation installation;
  EXPECT_EQ(installation.ServerPid(), 0);
  int inherited[2];
  ASSERT_EQ(pipe(inherited), 0);
  auto store = OpenStore();
  close(inherited[0]);
  close(inherited[1]);
  ASSERT_TRUE(store);
  const pid_t server = installation.ServerPid();
  ASSERT_GT(server, 0);
  EXPECT_EQ(installation.LiveObjects(), 1U);

  // It belongs to no terminal and holds none of this process's descriptors.
  EXPECT_NE(getsid(server), getsid(0));
  for (const auto& entry : fs::directory_iterator(FolderOfDescriptors(server))) {
    std::error_code gone;
    EXPECT_THAT(fs::read_symlink(entry.path(), gone).string(),
                testing::MatchesRegex("(/dev/null|socket:.*|anon_inode:.*|.*/server.lock|.*/registry.reg)?"));
  }

  ComPtr<IUnknown> other;
  EXPECT_EQ(CoCreateInstance(CLSID_ZNPL_Relatorio2, store.Get(), CLSCTX_LOCAL_SERVER, IID_IUnknown, other.OutVoid()),
            CLASS_E_NOAGGREGATION);
  EXPECT_EQ(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Rel, other.OutVoid()),
            E_NOINTERFACE);

  // Another client within the idle time is served by the same process; then none comes, and it waits its time.
  store.Reset();
  usleep(2500000);
  store = OpenStore();
  EXPECT_EQ(installation.ServerPid(), server);
  const auto released = std::chrono::steady_clock::now();
  store.Reset();
  EXPECT_TRUE(WaitUntil([&] { return support::HasEnded(server); }));
  EXPECT_GE(std::chrono::steady_clock::now() - released, std::chrono::milliseconds(6000));
}

TEST(Activation, FailuresAreTold) {
  for (const char* command : {"/nowhere/kestor", "\"/nowhere/kes tor\" x", "/bin/true"}) {
    const Installation installation(command);
    EXPECT_EQ(Make(), CO_E_SERVER_EXEC_FAILURE) << command;
  }
  const Installation nameless("");
  EXPECT_EQ(Make(), REGDB_E_CLASSNOTREG);
  const support::TempHome empty;
  EXPECT_EQ(Make(), REGDB_E_CLASSNOTREG);
}

// The folder of sockets must be closed to others, and a server that cannot have its socket ends. When the hindrance is
// gone, the next one serves.
TEST(Activation, HindrancesAreToldAndDoNotStay) {
  const Installation installation;
  const fs::path folder = platform::Home::Current().SocketFolder();
  EXPECT_EQ(Make(), S_OK);
  installation.EndServer();
  fs::permissions(folder, fs::perms::all);
  EXPECT_EQ(Make(), E_ACCESSDENIED);
  fs::permissions(folder, fs::perms::owner_all);
  fs::remove(SocketPath());
  fs::create_directory(SocketPath());
  EXPECT_EQ(Make(), CO_E_SERVER_EXEC_FAILURE);
  fs::remove(SocketPath());
  EXPECT_EQ(Make(), S_OK);
}

// What one client allows itself does not bind the server that it happens to start.
TEST(Activation, StartersLimitsDoNotEndTheServer) {
  const Installation installation;
  support::Elsewhere([] {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 4096;
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_TRUE(OpenStore());
  });
  EXPECT_EQ(WriteModel(*OpenStore(), u"Grande", std::string(1000000, 'g')), S_OK);
}

// Also when it is started by hand, without the runtime that takes care of descriptors.
TEST(Activation, ServersDropWhatTheirStartersHave) {
  const Installation installation;
  Child server([] {
    umask(0);
    const rlimit cores{1 << 20, 1 << 20};
    setrlimit(RLIMIT_CORE, &cores);
    dup2(STDERR_FILENO, 500);
    close(STDERR_FILENO);
    return StartByHand();
  });
  ASSERT_TRUE(WaitUntil([&] { return installation.ServerPid() == server.Pid(); }));
  const std::string process = "/proc/" + std::to_string(server.Pid());
  EXPECT_THAT(support::ReadFile(process + "/status"), testing::HasSubstr("Umask:\t0002"));
  EXPECT_THAT(support::ReadFile(process + "/limits"), testing::ContainsRegex("Max core file size +0 +0"));
  EXPECT_EQ(support::ReadFile(process + "/coredump_filter"), "00000000\n");
  EXPECT_FALSE(fs::is_symlink(process + "/fd/500"));
  EXPECT_EQ(fs::read_symlink(process + "/fd/2"), "/dev/null");
}

// ---- Sharing -------------------------------------------------------------------------------------------------------

// A process that finds the home served by another one ends: no client could ever reach it.
TEST_F(RunningServer, SurplusServerEnds) {
  EXPECT_EQ(Child(StartByHand).Wait(), 0);
  EXPECT_EQ(ReadModel(*store_, u"None"), "0x00040001");
}

TEST(Activation, TwentyClientsAtOnceShareOneServer) {
  struct Round {
    std::atomic<int> come{0};
    std::atomic<int> served{0};
    std::atomic<pid_t> server{0};
  };
  const Installation installation;
  for (int rounds = support::LongTests() ? 100 : 4; rounds > 0; --rounds) {
    const SharedMemory<Round> round;
    support::AtOnce(20, [&](unsigned) {
      for (++round->come; round->come < 20;)
        sched_yield();
      const auto store = OpenStore();
      ASSERT_TRUE(store);
      const pid_t server = installation.ServerPid();
      pid_t others = 0;
      EXPECT_TRUE(round->server.compare_exchange_strong(others, server) || others == server);
      ++round->served;
      EXPECT_TRUE(WaitUntil([&] { return round->served == 20; }));
      EXPECT_EQ(installation.ServerPid(), server);
    });
    installation.EndServer();
  }
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
  const auto descriptors = [this] { return support::Names(FolderOfDescriptors(server_)).size(); };
  EXPECT_TRUE(WaitUntil([&] { return descriptors() > 1000; }));
  EXPECT_EQ(WriteModel(*store_, u"Vendas", "served"), S_OK);
  EXPECT_EQ(Make(), S_OK);
  crowd.Kill();
  EXPECT_TRUE(WaitUntil([&] { return descriptors() < 50; }));
}

// ---- Ending --------------------------------------------------------------------------------------------------------

// A server that has lost its sockets to a cleaned folder must not take the name of its successor with it.
TEST_F(RunningServer, EndingServerLeavesItsSuccessorsSocket) {
  fs::remove_all(platform::Home::Current().SocketFolder());
  auto second = OpenStore();
  ASSERT_TRUE(second);
  EXPECT_NE(installation_.ServerPid(), server_);
  EXPECT_EQ(ReadModel(*store_, u"None"), "0x00040001");
  store_.Reset();
  EXPECT_TRUE(WaitUntil([&] { return support::HasEnded(server_); }));
  EXPECT_TRUE(OpenStore());
  EXPECT_EQ(ReadModel(*second, u"None"), "0x00040001");
}

TEST_F(RunningServer, KilledServerIsToldAndReplaced) {
  // Killed in a call: the server is stopped, so that the call is on its way when it dies.
  kill(server_, SIGSTOP);
  Child killer([this, waiting = "/proc/" + std::to_string(getpid()) + "/wchan"] {
    WaitUntil([&waiting] { return support::ReadFile(waiting).find("unix_stream") != std::string::npos; });
    return kill(server_, SIGKILL);
  });
  EXPECT_EQ(ReadModel(*store_, u"Vendas"), "0x800706BE");
  EXPECT_EQ(ReadModel(*store_, u"Vendas"), "0x800706BA") << "gone before the call";

  EXPECT_EQ(WriteModel(*OpenStore(), u"Vendas", "again"), S_OK);
  installation_.EndServer();
  EXPECT_EQ(ReadModel(*OpenStore(), u"Vendas"), "again");
}

constexpr const char* kQuickServerLog = "lives";

// Servers that end a moment after their last object meet clients that come at any time: every client is served.
TEST(Activation, ClientsOfAServerThatIsShuttingDownAreServed) {
  const Installation installation("\"" + fs::read_symlink("/proc/self/exe").string() + "\" quick-server");
  support::AtOnce(2, [](unsigned i) {
    for (unsigned round = 0; round < 60; ++round) {
      auto store = OpenStore();
      ASSERT_TRUE(store);
      ASSERT_EQ(ReadModel(*store, u"None"), "0x00040001");
      store.Reset();
      usleep((round * 977 + i * 331) % 9000);
    }
  });
  EXPECT_GE(support::ReadFile(installation.Reports() / kQuickServerLog).size(), 10U) << "servers that came and went";
}

HRESULT CreateStore(kestor::CModuloServidor& module, IUnknown*, REFIID iid, void** object) {
  return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, module);
}

// A server that lives for some milliseconds after its last object; otherwise the product's own. It leaves a byte for
// each of its lives.
int RunQuickServer() {
  std::ofstream(fs::path(platform::Home::Current().Drive('d')) / kQuickServerLog, std::ios::app) << '.';
  CoInitialize(nullptr);
  marshal::RegisterInterfaces();
  const kestor::LinhaClasse row = {CLSID_ZNPL_Relatorio2, CreateStore};
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
