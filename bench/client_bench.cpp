// Calls through the client library and from Python, beside those of a proxy in C++.
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <cstdlib>
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

// A process of Python that reads the model as often as it is told, and says how long that took.
class PythonReader {
 public:
  PythonReader() {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("no socket pair");
    talk_.reset(fdopen(ends[0], "r"));  // what is said goes past it
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

  // Seconds; below 0 when it is gone.
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
  std::unique_ptr<support::Child> child_;  // ends when it reads no more
  std::unique_ptr<FILE, Closer> talk_;
};

void LeFromPython(benchmark::State& state) {
  bench::Enter(Empty());
  const bench::Apart apart(Empty().ServerPid());
  PythonReader reader;  // on the processor of this process
  if (reader.Read(1) < 0) return state.SkipWithError("no Python");
  for ([[maybe_unused]] auto _ : state) {
    const double seconds = reader.Read(1);
    if (seconds < 0) state.SkipWithError("the model is not read");
    state.SetIterationTime(seconds);
  }
}
BENCHMARK(LeFromPython)->UseManualTime();

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
  };
}
