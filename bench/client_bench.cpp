// Calls through the client library and from Python, compared with those of a proxy in C++.
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench.h"
#include "kestor.h"

namespace {

using bench::Empty;

void Pin(pid_t process, std::size_t processor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  sched_setaffinity(process, sizeof one, &one);
}

void LeThroughLibrary(benchmark::State& state) {
  bench::Enter(Empty());
  kestor_use_home(Empty().Home().Home().c_str());
  kestor_reports* store = nullptr;
  if (kestor_reports_open(nullptr, "CT", "01", &store) < 0) return state.SkipWithError("no store");
  const bench::Apart apart(Empty().ServerPid());
  for ([[maybe_unused]] auto _ : state) {
    kestor_content content;
    if (kestor_reports_read(store, "Vendas", &content) != 0) state.SkipWithError("the model is not read");
    kestor_free(content.bytes);
  }
  kestor_reports_close(store);
}
BENCHMARK(LeThroughLibrary)->UseRealTime();

constexpr const char* kReader = R"(
import sys, time, kestor
with kestor.Reports("CT", "01") as store:
    for line in sys.stdin:
        start = time.perf_counter_ns()
        for _ in range(int(line)):
            store.read("Vendas").bytes
        print(time.perf_counter_ns() - start, flush=True)
)";

// A Python process that reads the model as often as it is told, and reports how long that took.
class PythonReader {
 public:
  PythonReader() {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("no socket pair");
    talk_.reset(fdopen(ends[0], "r"));  // only for reading; writes bypass it
    child_ = std::make_unique<support::Child>([&] {
      dup2(ends[1], STDIN_FILENO);
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      setenv("KESTOR_LIBRARY", KESTOR_LIBRARY, 1);
      setenv("PYTHONPATH", KESTOR_PYTHON, 1);
      execlp("python3", "python3", "-B", "-c", kReader, nullptr);
      return 127;
    });
    close(ends[1]);
  }

  // Returns seconds; below 0 if the process is gone.
  double Read(int times) {
    char line[32] = {};
    const bool isSaid = dprintf(fileno(talk_.get()), "%d\n", times) > 0;
    if (!isSaid || fgets(line, sizeof line, talk_.get()) == nullptr) return -1;
    return std::strtod(line, nullptr) / 1e9;
  }

 private:
  struct Closer {
    void operator()(FILE* file) const { fclose(file); }
  };
  std::unique_ptr<support::Child> child_;  // exits at the end of its input
  std::unique_ptr<FILE, Closer> talk_;
};

void LeFromPython(benchmark::State& state) {
  bench::Enter(Empty());
  const bench::Apart apart(Empty().ServerPid());
  PythonReader reader;  // runs on the processor of this process
  if (reader.Read(1) < 0) return state.SkipWithError("no Python");
  for ([[maybe_unused]] auto _ : state) {
    const double seconds = reader.Read(1);
    if (seconds < 0) state.SkipWithError("the model is not read");
    state.SetIterationTime(seconds);
  }
}
BENCHMARK(LeFromPython)->UseManualTime();

// Clients in processes of their own that call at the same time.
class Callers {
 public:
  // One round: its length, and the longest and the mean wait of a call for the server, in seconds.
  struct Round {
    double length = 0;
    double longest = 0;
    double mean = 0;
  };

  explicit Callers(int count) : callers_(static_cast<std::size_t>(count)) {
    for (Caller& caller : callers_) {
      int ends[2] = {-1, -1};
      if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no socket pair");
      caller.talk = ends[0];
      caller.process = std::make_unique<support::Child>([&] { return Serve(ends[1]); });
      close(ends[1]);
      Take(caller);
    }
  }
  ~Callers() {
    for (const Caller& caller : callers_)
      close(caller.talk);
  }
  Callers(const Callers&) = delete;
  Callers& operator=(const Callers&) = delete;

  Round Call(int calls) {
    const Clock::time_point begun = Clock::now();
    for (const Caller& caller : callers_)
      if (write(caller.talk, &calls, sizeof calls) != sizeof calls) throw std::runtime_error("a caller is gone");
    Round round;
    for (const Caller& caller : callers_) {
      const Round own = Take(caller);
      round.longest = std::max(round.longest, own.longest);
      round.mean += own.mean / static_cast<double>(callers_.size());
    }
    round.length = std::chrono::duration<double>(Clock::now() - begun).count();
    return round;
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct Caller {
    int talk = -1;
    std::unique_ptr<support::Child> process;
  };

  static Round Take(const Caller& caller) {
    Round round;
    if (read(caller.talk, &round, sizeof round) != sizeof round) throw std::runtime_error("a call has failed");
    return round;
  }

  // Reports when it is ready, and after each round how long its calls have taken.
  static int Serve(int talk) {
    kestor_reports* store = nullptr;
    kestor_use_home(Empty().Home().Home().c_str());
    if (kestor_reports_open(nullptr, "CT", "01", &store) < 0) return 1;
    Round round;
    int calls = 0;
    while (write(talk, &round, sizeof round) == sizeof round && read(talk, &calls, sizeof calls) == sizeof calls) {
      round = {};
      for (int i = 0; i < calls; ++i) {
        const double waited = WaitedForProcessor();
        const Clock::time_point begun = Clock::now();
        if (!CallOnce(store, i)) return 1;
        const double seconds =
            std::chrono::duration<double>(Clock::now() - begun).count() - (WaitedForProcessor() - waited);
        round.longest = std::max(round.longest, seconds);
        round.mean += seconds / calls;
      }
    }
    return 0;
  }

  // Returns how long this process was ready to run but had no processor. With more clients than processors, each waits
  // some milliseconds for its turn, which is no wait for the server.
  static double WaitedForProcessor() {
    static const int statistics = open("/proc/self/schedstat", O_RDONLY | O_CLOEXEC);
    char text[100] = {};
    char* end = text;
    if (pread(statistics, text, sizeof text - 1, 0) <= 0) return 0;
    std::strtoull(text, &end, 10);  // the time that it has run
    return static_cast<double>(std::strtoull(end, nullptr, 10)) / 1e9;
  }

  static bool CallOnce(kestor_reports* store, int number) {
    if (number % 2 == 0) {
      kestor_content content;
      if (kestor_reports_read(store, "Vendas", &content) != 0) return false;
      kestor_free(content.bytes);
      return true;
    }
    kestor_names names;
    if (kestor_reports_list(store, &names) != 0) return false;
    kestor_free(names.names);
    return true;
  }

  std::vector<Caller> callers_;
};

constexpr int kClients = 8;
constexpr int kCalls = 800;  // in a round
constexpr int kRounds = 10;

void Round(benchmark::State& state, int clients, double Callers::Round::*seconds) {
  bench::Enter(Empty());
  Callers callers(clients);
  for ([[maybe_unused]] auto _ : state)
    state.SetIterationTime(callers.Call(kCalls / clients).*seconds);
}
void OneClient(benchmark::State& state) {
  Round(state, 1, &Callers::Round::length);
}
BENCHMARK(OneClient)->UseManualTime()->Iterations(kRounds);
void EightClients(benchmark::State& state) {
  Round(state, kClients, &Callers::Round::length);
}
BENCHMARK(EightClients)->UseManualTime()->Iterations(kRounds);
void LongestWaitOfEight(benchmark::State& state) {
  Round(state, kClients, &Callers::Round::longest);
}
BENCHMARK(LongestWaitOfEight)->UseManualTime()->Iterations(kRounds);
void MeanWaitOfEight(benchmark::State& state) {
  Round(state, kClients, &Callers::Round::mean);
}
BENCHMARK(MeanWaitOfEight)->UseManualTime()->Iterations(kRounds);

}  // namespace

bench::Apart::Apart(pid_t other) : other_(other) {
  sched_getaffinity(0, sizeof before_, &before_);
  std::vector<std::size_t> processors;
  for (std::size_t i = 0; i < CPU_SETSIZE && processors.size() < 2; ++i) {
    if (CPU_ISSET(i, &before_)) processors.push_back(i);
  }
  Pin(0, processors.front());
  Pin(other_, processors.back());
}

bench::Apart::~Apart() {
  sched_setaffinity(0, sizeof before_, &before_);
  sched_setaffinity(other_, sizeof before_, &before_);
}

std::vector<bench::Figure> bench::ClientFigures() {
  return {
      {"Le of 20 kB through the client library / through a proxy in C++", "LeThroughLibrary", "LeRemote", 1.05},
      {"Le of 20 kB from Python / through a proxy in C++", "LeFromPython", "LeRemote", 3.0},
      {"800 calls of eight clients at once / of one client", "EightClients", "OneClient", 1 / 0.95},
      {"The longest wait of a call for the server among those of eight clients / the mean", "LongestWaitOfEight",
       "MeanWaitOfEight", 8.0},
  };
}
