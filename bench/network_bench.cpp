// Calls on a large folder of a network file system, compared with one bare reading of that folder. They run only if
// $KESTOR_MACHINES is a folder with a mount `a`, as tests/contention/machines.sh makes it.
#include <dirent.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include "bench.h"
#include "marcacao/componente_marcacao.h"

namespace {

using bench::kModelBytes;

constexpr std::size_t kRecord = 264;

// 20,000; fewer in a quick run.
int Models() {
  return bench::CrowdFiles() / 5;
}

// A home whose reports folder is on the volume. Component 01 has a model Vendas and many others, component 02 has one.
// The list of deleted names exists already; the very first listing creates it.
class Volume {
 public:
  explicit Volume(const std::filesystem::path& mount) : home_(mount / ("kestor-bench-" + std::to_string(getpid()))) {
    support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\");
    support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil");
    support::WriteFile(Reports() / "ZNRELDEL.DAT", std::string(kRecord, '\0'));
    support::WriteFile(Reports() / "CT02Vendas.RXL", std::string(kModelBytes + 2, 'x'));
    support::WriteFile(Reports() / "CT01Vendas.RXL", std::string(kModelBytes + 2, 'x'));
    for (int i = 1; i < Models(); ++i)
      std::ofstream(Reports() / ("CT01Modelo " + std::to_string(i * 7919 % Models()) + ".RXL"));
  }
  ~Volume() {
    std::error_code ignored;
    std::filesystem::remove_all(Reports(), ignored);
  }
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;

  void Enter() const { home_.Enter(); }
  std::filesystem::path Reports() const { return home_.Data(); }

  void Change() const {
    const std::filesystem::path foreign = Reports() / "foreign.tmp";
    std::ofstream(foreign).close();
    std::filesystem::remove(foreign);
  }

 private:
  const support::TempHome home_;
};

std::unique_ptr<Volume> volume;

const Volume& MadeOnce() {
  if (!volume) volume = std::make_unique<Volume>(std::filesystem::path(getenv("KESTOR_MACHINES")) / "a");
  volume->Enter();
  return *volume;
}

// Measures a call that finds the folder changed a moment ago. The names in a folder that has been quiet for two seconds
// are cached and cost nothing.
template <typename Call>
void Measure(benchmark::State& state, const Call& call) {
  for ([[maybe_unused]] auto _ : state) {
    volume->Change();
    const auto start = std::chrono::steady_clock::now();
    const bool done = call();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    if (!done) state.SkipWithError("the call does not do what it should");
  }
}

void NetworkReading(benchmark::State& state) {
  const std::string folder = MadeOnce().Reports();
  Measure(state, [&] {
    int names = 0;
    DIR* const opened = opendir(folder.c_str());
    while (readdir(opened) != nullptr)
      ++names;
    closedir(opened);
    return names >= Models();
  });
}

void Initialise(benchmark::State& state, const char16_t* component) {
  const kestor::ComponenteMarcacao markup;
  MadeOnce();
  auto store = bench::MigratingStoreInProcess();
  Measure(state, [&] { return store->Inicializa(support::Text(u"CT"), support::Text(component)) == S_OK; });
}
void NetworkInitialisation(benchmark::State& state) {
  Initialise(state, u"01");
}
void NetworkInitialisationOfOne(benchmark::State& state) {
  Initialise(state, u"02");
}

void List(benchmark::State& state, const char16_t* component, int models) {
  MadeOnce();
  auto store = bench::StoreInProcess();
  store->Inicializa(support::Text(u"CT"), support::Text(component));
  Measure(state, [&] {
    REG_ARRAY_RELATORIO2* list = nullptr;
    if (store->GetNomeRelatorios(&list) != S_OK || list == nullptr) return false;
    const bool whole = list->nQtdeRelatorios == models;
    CoTaskMemFree(list->pregRelatorios);
    CoTaskMemFree(list);
    return whole;
  });
}
void NetworkList(benchmark::State& state) {
  List(state, u"01", Models());
}
void NetworkListOfOne(benchmark::State& state) {
  List(state, u"02", 1);
}

HRESULT ReadAndDrop(IZNPL_Relatorio2& store, const char16_t* name) {
  REG_RELATORIO2* model = nullptr;
  const HRESULT result = store.Le(support::Text(name), &model);
  if (model != nullptr) CoTaskMemFree(model->lpRelatorio);
  CoTaskMemFree(model);
  return result;
}

void NetworkLe(benchmark::State& state) {
  MadeOnce();
  auto store = bench::StoreInProcess();
  Measure(state, [&] { return ReadAndDrop(*store, u"Vendas") == S_OK; });
}

void NetworkLeMissing(benchmark::State& state) {
  MadeOnce();
  auto store = bench::StoreInProcess();
  Measure(state, [&] {
    const HRESULT result = ReadAndDrop(*store, u"Compras");
    return SUCCEEDED(result) && result != S_OK;
  });
}

void NetworkGravaNew(benchmark::State& state) {
  const std::filesystem::path file = MadeOnce().Reports() / "CT01Novo.RXL";
  auto store = bench::StoreInProcess();
  std::vector<unsigned char> content(kModelBytes);
  Measure(state, [&] { return store->Grava(support::Text(u"Novo"), 1, 0, kModelBytes, content.data()) == S_OK; });
  std::filesystem::remove(file);
}

}  // namespace

bool bench::RegisterNetworkBenchmarks() {
  if (getenv("KESTOR_MACHINES") == nullptr) return false;
  constexpr std::pair<const char*, void (*)(benchmark::State&)> kBenchmarks[] = {
      {"NetworkReading", NetworkReading},
      {"NetworkInitialisation", NetworkInitialisation},
      {"NetworkInitialisationOfOne", NetworkInitialisationOfOne},
      {"NetworkList", NetworkList},
      {"NetworkListOfOne", NetworkListOfOne},
      {"NetworkLe", NetworkLe},
      {"NetworkLeMissing", NetworkLeMissing},
      {"NetworkGravaNew", NetworkGravaNew},
  };
  for (const auto& [name, run] : kBenchmarks) {
    benchmark::RegisterBenchmark(name, run)->UseManualTime()->Iterations(1)->Repetitions(11)->Unit(
        benchmark::kMillisecond);
  }
  return true;
}

void bench::EndNetwork() {
  volume.reset();
}

std::vector<bench::Figure> bench::NetworkFigures() {
  const char* const reading = "NetworkReading";
  // The processor needs as long for a list of 20,000 names as a fast volume needs to deliver them. Writing flushes
  // twice.
  return {
      {"Network: Inicializa with nothing to migrate, 1 of 20,000 models / a readdir", "NetworkInitialisationOfOne",
       reading, 1.5},
      {"Network: the same, all 20,000 models / a readdir", "NetworkInitialisation", reading, 3.0},
      {"Network: GetNomeRelatorios, 1 of 20,000 models / a readdir", "NetworkListOfOne", reading, 1.5},
      {"Network: the same, all 20,000 models / a readdir", "NetworkList", reading, 2.5},
      {"Network: Le of a name that does not exist / a readdir", "NetworkLeMissing", reading, 1.5},
      {"Network: Grava of a name that did not exist / a readdir", "NetworkGravaNew", reading, 2.0},
      {"Network: Le of a name spelt as on the disk / a readdir", "NetworkLe", reading, 0.2},
  };
}
