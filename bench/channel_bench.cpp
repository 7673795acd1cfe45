// Calls between two processes, compared with a bare exchange of bytes between two processes.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <benchmark/benchmark.h>

#include "bench.h"

namespace {

using bench::Apart;
using bench::Empty;
using bench::Full;

constexpr std::size_t kPingBytes = 64;

bool ReadAll(int descriptor, char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t got = read(descriptor, bytes, count);
    if (got <= 0) return false;
    bytes += got;
    count -= static_cast<std::size_t>(got);
  }
  return true;
}

// A process that answers each 64-byte message with `answerBytes` bytes, which it reads from `file` each time if one is
// given.
class Echo {
 public:
  explicit Echo(std::size_t answerBytes, const std::string& file = {}) : answer_(answerBytes) {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("no socket pair");
    descriptor_ = ends[0];
    const int other = ends[1];
    child_ = std::make_unique<support::Child>([=, this] {
      close(descriptor_);
      std::array<char, kPingBytes> ping{};
      while (ReadAll(other, ping.data(), ping.size())) {
        if (!file.empty()) ReadFile(file);
        if (write(other, answer_.data(), answer_.size()) < 0) break;
      }
      return 0;
    });
    close(other);
  }
  ~Echo() { close(descriptor_); }
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  pid_t Process() const { return child_->Pid(); }

  bool Exchange() {
    std::array<char, kPingBytes> ping{};
    return write(descriptor_, ping.data(), ping.size()) == static_cast<ssize_t>(ping.size()) &&
           ReadAll(descriptor_, answer_.data(), answer_.size());
  }

 private:
  void ReadFile(const std::string& file) {
    const int opened = open(file.c_str(), O_RDONLY);
    struct stat status {};
    fstat(opened, &status);
    if (read(opened, answer_.data(), answer_.size()) < 0) answer_[0] = 0;
    close(opened);
  }

  std::vector<char> answer_;
  int descriptor_ = -1;
  std::unique_ptr<support::Child> child_;
};

void Run(benchmark::State& state, Echo& echo) {
  const Apart apart(echo.Process());
  for ([[maybe_unused]] auto _ : state) {
    if (!echo.Exchange()) state.SkipWithError("no answer");
  }
}

void PingPong(benchmark::State& state) {
  Echo echo(kPingBytes);
  Run(state, echo);
}
BENCHMARK(PingPong)->UseRealTime();

void PingPongWithFile(benchmark::State& state) {
  Echo echo(bench::kModelBytes, Empty().Reports() / "CT01Vendas.RXL");
  Run(state, echo);
}
BENCHMARK(PingPongWithFile)->UseRealTime();

void CallWithoutWork(benchmark::State& state) {
  bench::Enter(Empty());
  ComPtr<IZNPL_Relatorio2> store;
  CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2, store.OutVoid());
  const Apart apart(Empty().ServerPid());
  REG_RELATORIO2* model = nullptr;
  for ([[maybe_unused]] auto _ : state) {
    if (store->Le(nullptr, &model) == S_OK) state.SkipWithError("an object that is not initialised reads");
  }
}
BENCHMARK(CallWithoutWork)->UseRealTime();

void ReadRemote(benchmark::State& state, const support::Installation& installation) {
  bench::Enter(installation);
  const auto server = support::OpenStore();
  const Apart apart(installation.ServerPid());
  bench::ReadModel(state, installation, support::OpenStore);
}

void LeRemote(benchmark::State& state) {
  ReadRemote(state, Empty());
}
BENCHMARK(LeRemote)->UseRealTime();

void LeRemoteFull(benchmark::State& state) {
  ReadRemote(state, Full());
}
BENCHMARK(LeRemoteFull)->UseRealTime();

}  // namespace

std::vector<bench::Figure> bench::ChannelFigures() {
  return {
      {"Call without work / 64-byte ping-pong", "CallWithoutWork", "PingPong", 1.15},
      {"Le of 20 kB from another process / ping-pong, open, fstat, read, close", "LeRemote", "PingPongWithFile", 1.3},
      {"Le from another process, 100,000 other files / no other files", "LeRemoteFull", "LeRemote", 1.2},
  };
}
