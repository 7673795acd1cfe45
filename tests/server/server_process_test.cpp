// Clients and the real server process: starting on demand, sharing, ending, dying.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <set>

#include "contract/results.h"
#include "marshal/marshal.h"
#include "platform/channel/channel.h"
#include "platform/home/home.h"
#include "server/entrada.h"
#include "store/repositorio_rel2.h"
#include "support/installation.h"

namespace {

using kestor::ResultCode;
using support::Child;
using support::Installation;
using support::OpenStore;
using support::ReadModel;
using support::WaitUntil;
using support::WriteModel;

constexpr const char* kQuickServerLog = "lives";

// Start line of several processes.
class Gate {
 public:
  Gate() { EXPECT_EQ(pipe(ends_), 0); }
  ~Gate() { Open(); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  void Open() {
    for (int& end : ends_) {
      if (end >= 0) close(end);
      end = -1;
    }
  }
  void Pass() const {
    close(ends_[1]);
    char nothing = 0;
    EXPECT_EQ(read(ends_[0], &nothing, 1), 0);
  }

 private:
  int ends_[2] = {-1, -1};
};

TEST(ServerProcess, StartsOnDemandAndEndsByItself) {
  const Installation installation;
  EXPECT_EQ(installation.ServerPid(), 0);
  int inherited[2];
  ASSERT_EQ(pipe(inherited), 0);
  auto store = OpenStore();
  ASSERT_TRUE(store);
  const pid_t server = installation.ServerPid();
  ASSERT_GT(server, 0);
  EXPECT_EQ(installation.LiveObjects(), 1U);

  // It belongs to no terminal and holds none of this process's descriptors.
  EXPECT_NE(getsid(server), getsid(0));
  std::set<std::string> held;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(server) + "/fd")) {
    std::error_code gone;
    held.insert(std::filesystem::read_symlink(entry.path(), gone).string());
  }
  for (const std::string& target : held) {
    EXPECT_TRUE(target == "/dev/null" || target.starts_with("socket:") || target.starts_with("anon_inode:") ||
                target.ends_with("/server.lock") || target.ends_with("/registry.reg"))
        << target;
  }

  // Every byte of a store's life through the process boundary.
  std::string content(300000, '\0');
  for (std::size_t i = 0; i < content.size(); ++i)
    content[i] = static_cast<char>(i % 251);
  EXPECT_EQ(WriteModel(*store, u"Vendas", content, 7), S_OK);
  USHORT version = 0;
  EXPECT_EQ(ReadModel(*store, u"Vendas", &version), content);
  EXPECT_EQ(version, 7);
  EXPECT_EQ(ReadModel(*store, u"Outro"), "0x00040001");
  EXPECT_EQ(ResultCode(WriteModel(*store, u"Vendas", "x", 1, 1)), "0x00040004");
  ComPtr<IUnknown> other;
  EXPECT_EQ(store->QueryInterface(IID_IZNPL_Rel, other.OutVoid()), E_NOINTERFACE);
  EXPECT_EQ(CoCreateInstance(CLSID_ZNPL_Relatorio2, store.Get(), CLSCTX_LOCAL_SERVER, IID_IUnknown, other.OutVoid()),
            CLASS_E_NOAGGREGATION);
  EXPECT_EQ(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Rel, other.OutVoid()),
            E_NOINTERFACE);

  close(inherited[0]);
  close(inherited[1]);

  // Another client within the idle time is served by the same process; then nobody comes, and it waits its time.
  store.Reset();
  usleep(2500000);
  store = OpenStore();
  EXPECT_EQ(installation.ServerPid(), server);
  const auto released = std::chrono::steady_clock::now();
  store.Reset();
  EXPECT_TRUE(WaitUntil([&] { return support::HasEnded(server); }));
  EXPECT_GE(std::chrono::steady_clock::now() - released, std::chrono::milliseconds(6000));
}

// A process that finds the home served by another one ends: nobody could ever reach it.
TEST(ServerProcess, SurplusServerEnds) {
  const Installation installation;
  auto store = OpenStore();
  ASSERT_TRUE(store);
  Child surplus([] {
    execl(KESTOR_EXECUTABLE, KESTOR_EXECUTABLE, "-Embedding", nullptr);
    return 127;
  });
  EXPECT_EQ(surplus.Wait(), 0);
  EXPECT_EQ(ReadModel(*store, u"None"), "0x00040001");

  // The same for one that cannot have its socket; when the hindrance is gone, the next one serves.
  store.Reset();
  installation.EndServer();
  const std::string socket = platform::Home::Current().SocketFolder() + "/" + GuidText(CLSID_ZNPL_Relatorio2);
  std::filesystem::remove(socket);
  std::filesystem::create_directory(socket);
  ComPtr<IUnknown> none;
  EXPECT_EQ(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2, none.OutVoid()),
            CO_E_SERVER_EXEC_FAILURE);
  std::filesystem::remove(socket);
  EXPECT_TRUE(OpenStore());
}

// A server that has lost its sockets to a cleaned folder must not take the name of its successor with it.
TEST(ServerProcess, EndingServerLeavesItsSuccessorsSocket) {
  const Installation installation;
  auto first = OpenStore();
  ASSERT_TRUE(first);
  const pid_t old = installation.ServerPid();
  std::filesystem::remove_all(platform::Home::Current().SocketFolder());
  auto second = OpenStore();
  ASSERT_TRUE(second);
  EXPECT_NE(installation.ServerPid(), old);
  EXPECT_EQ(ReadModel(*first, u"None"), "0x00040001");
  first.Reset();
  EXPECT_TRUE(WaitUntil([&] { return support::HasEnded(old); }));
  EXPECT_TRUE(OpenStore());
  EXPECT_EQ(ReadModel(*second, u"None"), "0x00040001");
}

// What one client allows itself does not bind the server that it happens to start.
TEST(ServerProcess, StartersLimitsDoNotEndTheServer) {
  const Installation installation;
  Child starter([] {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 4096;
    setrlimit(RLIMIT_FSIZE, &limit);
    return OpenStore() ? 0 : 1;
  });
  EXPECT_EQ(starter.Wait(), 0);
  auto store = OpenStore();
  EXPECT_EQ(WriteModel(*store, u"Grande", std::string(1000000, 'g')), S_OK);
}

TEST(ServerProcess, TwentyClientsAtOnceShareOneServer) {
  const int rounds = support::LongTests() ? 100 : 4;
  const Installation installation;
  for (int round = 0; round < rounds; ++round) {
    Gate gate;
    Gate done;
    std::vector<std::unique_ptr<Child>> clients;
    clients.reserve(20);
    int pids[2];
    ASSERT_EQ(pipe(pids), 0);
    for (int i = 0; i < 20; ++i) {
      clients.push_back(std::make_unique<Child>([&] {
        gate.Pass();
        auto store = OpenStore();
        if (!store) return 1;
        const pid_t server = installation.ServerPid();
        if (write(pids[1], &server, sizeof server) != sizeof server) return 2;
        done.Pass();
        return 0;
      }));
    }
    close(pids[1]);
    gate.Open();
    std::set<pid_t> servers;
    for (std::size_t i = 0; i < clients.size(); ++i) {
      pid_t server = 0;
      ASSERT_EQ(read(pids[0], &server, sizeof server), static_cast<ssize_t>(sizeof server));
      servers.insert(server);
    }
    EXPECT_EQ(servers.size(), 1U) << "round " << round;
    EXPECT_EQ(servers.count(0), 0U);
    EXPECT_EQ(installation.LiveObjects(), 20U);
    done.Open();
    for (const auto& client : clients)
      EXPECT_EQ(client->Wait(), 0);
    close(pids[0]);
    installation.EndServer();
  }
}

TEST(ServerProcess, KilledServerIsToldAndReplaced) {
  const Installation installation;
  auto store = OpenStore();
  ASSERT_TRUE(store);
  const pid_t server = installation.ServerPid();

  // Killed in a call: the server is stopped, so that the call is on its way when it dies.
  kill(server, SIGSTOP);
  {
    const pid_t client = getpid();
    Child killer([server, client] {
      // The call is on its way when this process waits for its answer.
      WaitUntil([client] {
        return support::ReadFile("/proc/" + std::to_string(client) + "/wchan").find("unix_stream") != std::string::npos;
      });
      return kill(server, SIGKILL);
    });
    EXPECT_EQ(ReadModel(*store, u"Vendas"), "0x800706BE");
    EXPECT_EQ(killer.Wait(), 0);
  }
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "0x800706BA") << "gone before the call";

  auto next = OpenStore();
  ASSERT_TRUE(next);
  EXPECT_NE(installation.ServerPid(), server);
  EXPECT_EQ(WriteModel(*next, u"Vendas", "again"), S_OK);
  installation.EndServer();
  EXPECT_EQ(ReadModel(*next, u"Vendas"), "0x800706BA");
  EXPECT_EQ(ReadModel(*OpenStore(), u"Vendas"), "again");
}

TEST(ServerProcess, KilledClientLeavesNothingBehind) {
  const Installation installation;
  auto store = OpenStore();
  ASSERT_TRUE(store);
  Child client([]() -> int {
    std::vector<ComPtr<IZNPL_Relatorio2>> stores;
    stores.reserve(50);
    for (int i = 0; i < 50; ++i)
      stores.push_back(OpenStore());
    for (;;)
      pause();
  });
  EXPECT_TRUE(WaitUntil([&] { return installation.LiveObjects() == 51; }));
  client.Kill();
  EXPECT_TRUE(WaitUntil([&] { return installation.LiveObjects() == 1; }));
  EXPECT_EQ(WriteModel(*store, u"Vendas", "still served"), S_OK);
  const pid_t server = installation.ServerPid();
  store.Reset();
  EXPECT_TRUE(WaitUntil([&] { return support::HasEnded(server); }));
}

TEST(ServerProcess, ActivationFailuresAreTold) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"/nowhere/kestor", "0x80080005"},
      {"\"/nowhere/kes tor\" x", "0x80080005"},
      {"/bin/true", "0x80080005"},
      {"", "0x80040154"},
  };
  for (const auto& [command, expected] : cases) {
    const Installation installation(command);
    ComPtr<IUnknown> none;
    EXPECT_EQ(ResultCode(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2,
                                          none.OutVoid())),
              expected)
        << command;
  }
  const support::TempHome empty;
  ComPtr<IUnknown> none;
  EXPECT_EQ(ResultCode(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2,
                                        none.OutVoid())),
            "0x80040154");
}

// The socket folder must be the user's own and closed to others.
TEST(ServerProcess, OpenSocketFolderIsRefused) {
  const Installation installation;
  const std::filesystem::path folder = platform::Home::Current().SocketFolder();
  ASSERT_TRUE(OpenStore());
  installation.EndServer();
  std::filesystem::permissions(folder, std::filesystem::perms::all);
  ComPtr<IUnknown> none;
  EXPECT_EQ(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2, none.OutVoid()),
            E_ACCESSDENIED);
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  EXPECT_TRUE(OpenStore());
}

// Servers that end a moment after their last object meet clients that come at any time: every client is served.
TEST(ServerProcess, ClientsOfAServerThatIsShuttingDownAreServed) {
  const Installation installation("\"" + std::filesystem::read_symlink("/proc/self/exe").string() + "\" quick-server");
  std::vector<std::unique_ptr<Child>> clients;
  clients.reserve(2);
  for (unsigned i = 0; i < 2; ++i) {
    clients.push_back(std::make_unique<Child>([i] {
      for (unsigned round = 0; round < 60; ++round) {
        ComPtr<IZNPL_Relatorio2> store;
        const HRESULT made = CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2,
                                              store.OutVoid());
        if (FAILED(made)) return 1;
        if (FAILED(store->Inicializa(support::Text(u"CT"), support::Text(u"01")))) return 2;
        if (ReadModel(*store, u"None") != "0x00040001") return 3;
        store.Reset();
        usleep((round * 977 + i * 331) % 9000);
      }
      return 0;
    }));
  }
  for (const auto& client : clients)
    EXPECT_EQ(client->Wait(), 0) << "1: not made, 2: not initialised, 3: not read";
  EXPECT_GE(support::ReadFile(installation.Reports() / kQuickServerLog).size(), 10U) << "servers that came and went";
}

TEST(ServerProcess, IdleConnectionsHoldUpNobody) {
  const Installation installation;
  auto store = OpenStore();
  ASSERT_TRUE(store);
  const std::string path = platform::Home::Current().SocketFolder() + "/" + GuidText(CLSID_ZNPL_Relatorio2);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  Child crowd([&] {
    for (int i = 0; i < 1000; ++i) {
      const int idle = socket(AF_UNIX, SOCK_STREAM, 0);
      if (connect(idle, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 1;
      if (i % 2 == 0 && send(idle, "\x08\0\0", 3, 0) != 3) return 2;  // half a head
    }
    for (;;)
      pause();
  });
  const std::string descriptors = "/proc/" + std::to_string(installation.ServerPid()) + "/fd";
  EXPECT_TRUE(WaitUntil([&] { return support::Names(descriptors).size() > 1000; }));
  EXPECT_EQ(WriteModel(*store, u"Vendas", "served"), S_OK);
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "served");
  EXPECT_TRUE(OpenStore());
  crowd.Kill();
  EXPECT_TRUE(WaitUntil([&] { return support::Names(descriptors).size() < 50; }));
}

HRESULT CreateStore(kestor::CModuloServidor& module, IUnknown*, REFIID iid, void** object) {
  return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, module);
}

// A server that lives for some milliseconds after its last object; otherwise the product's own. It leaves a byte for
// each of its lives.
int RunQuickServer() {
  std::ofstream(std::filesystem::path(platform::Home::Current().Drive('d')) / kQuickServerLog, std::ios::app) << '.';
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
