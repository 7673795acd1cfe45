// A search through all models, and their check, compared with the bare files and the bare reading of their documents.
#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <memory>

#include "admin/admin.h"
#include "admin/check.h"
#include "bench.h"
#include "document/doc_relatorio.h"
#include "marcacao/componente_marcacao.h"

namespace {

constexpr int kColumns = 60;
constexpr const char* kFieldOfEach = "148";  // a column, a sort key, a total and a condition
constexpr std::size_t kUses = 4;

std::unique_ptr<support::Installation> installation;

std::string File(int model) {
  return installation->Reports() / ("CT01Modelo " + std::to_string(model) + ".RXL");
}

// Makes an installation with a tenth of the crowd as models, and returns their number.
int Models() {
  const int models = bench::CrowdFiles() / 10;
  if (!installation) {
    installation = std::make_unique<support::Installation>();
    const std::string content = std::string("\1\0", 2) + bench::Content(kColumns);
    for (int i = 0; i < models; ++i)
      support::WriteFile(File(i), content);
  }
  bench::Enter(*installation);
  return models;
}

void BareSearch(benchmark::State& state) {
  const kestor::ComponenteMarcacao markup;
  const int models = Models();
  std::string content;
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < models; ++i) {
      const int file = open(File(i).c_str(), O_RDONLY);
      content.resize(static_cast<std::size_t>(lseek(file, 0, SEEK_END)));
      const ssize_t bytes = pread(file, content.data(), content.size(), 0);
      close(file);
      kestor::CDocRelatorio document;
      auto* const start = reinterpret_cast<std::uint8_t*>(content.data()) + sizeof(USHORT);
      if (!document.CarregaConteudo({1, static_cast<LONG>(bytes) - LONG{sizeof(USHORT)}, start}))
        state.SkipWithError("a document is not read");
    }
  }
}
BENCHMARK(BareSearch)->UseRealTime();

void Search(benchmark::State& state) {
  const kestor::ComponenteMarcacao markup;
  const auto models = static_cast<std::size_t>(Models());
  for ([[maybe_unused]] auto _ : state) {
    std::size_t found = 0;
    const admin::Inventory inventory = admin::TakeInventory("CT", "01");
    admin::Reader reader(inventory);
    admin::Search(reader, inventory, {kFieldOfEach, "", {}},
                  {[&](const admin::Model&, const admin::Finding&) { ++found; },
                   [&](const admin::Model&, const std::string& reason) { state.SkipWithError(reason.c_str()); },
                   [](const admin::Pair&, const std::string&) {}});
    if (found != models * kUses) state.SkipWithError("not all uses are found");
  }
}
BENCHMARK(Search)->UseRealTime();

void Check(benchmark::State& state) {
  const kestor::ComponenteMarcacao markup;
  const auto models = static_cast<std::size_t>(Models());
  for ([[maybe_unused]] auto _ : state) {
    std::size_t found = 0;
    std::size_t looked = 0;
    admin::Check(admin::TakeInventory("CT", "01"), false,
                 {[&](const admin::Problem&) { ++found; }, [&](std::size_t done, std::size_t) { looked = done; }});
    if (looked != models) state.SkipWithError("not all models are looked at");
    state.counters["found"] = static_cast<double>(found);
  }
}
BENCHMARK(Check)->UseRealTime();

}  // namespace

std::vector<bench::Figure> bench::SearchFigures() {
  return {{"Search of a field in 10,000 models / reading the files and their documents", "Search", "BareSearch", 1.5},
          {"Check of 10,000 models / reading the files and their documents", "Check", "BareSearch", 1.5}};
}
