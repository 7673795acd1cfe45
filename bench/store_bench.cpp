// The report store in this process, compared with the bare system calls that do the same work.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench.h"

namespace {

using bench::Empty;
using bench::Full;
using bench::kModelBytes;

void BareRead(benchmark::State& state) {
  const std::string file = Empty().Reports() / "CT01Vendas.RXL";
  std::vector<char> content(kModelBytes + 2);
  for ([[maybe_unused]] auto _ : state) {
    const int opened = open(file.c_str(), O_RDONLY);
    struct stat status {};
    fstat(opened, &status);
    if (read(opened, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
      state.SkipWithError("the file is not read");
    }
    close(opened);
  }
}
BENCHMARK(BareRead)->UseRealTime();

void Le(benchmark::State& state) {
  bench::ReadModel(state, Empty(), bench::StoreInProcess);
}
BENCHMARK(Le)->UseRealTime();
void LeFull(benchmark::State& state) {
  bench::ReadModel(state, Full(), bench::StoreInProcess);
}
BENCHMARK(LeFull)->UseRealTime();

void BareWrite(benchmark::State& state) {
  const std::string folder = Empty().Reports();
  const std::string temporary = folder + "/.bare";
  const std::string file = folder + "/bare";
  const std::vector<char> content(kModelBytes + 2);
  for ([[maybe_unused]] auto _ : state) {
    const int opened = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (write(opened, content.data(), content.size()) < 0 || fsync(opened) != 0) state.SkipWithError("not written");
    rename(temporary.c_str(), file.c_str());
    const int opened_folder = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    fsync(opened_folder);
    close(opened_folder);
    close(opened);
  }
}
BENCHMARK(BareWrite)->UseRealTime();

void WriteInProcess(benchmark::State& state, const support::Installation& installation, bool newNames,
                    ComPtr<IZNPL_Relatorio2> (*open)() = bench::StoreInProcess) {
  bench::Enter(installation);
  auto store = open();
  std::vector<unsigned char> content(kModelBytes);
  int count = 0;
  for ([[maybe_unused]] auto _ : state) {
    const std::string number = newNames ? std::to_string(count++) : std::string();
    const std::u16string name = u"Novo" + std::u16string(number.begin(), number.end());
    if (store->Grava(support::Text(name), 1, 0, kModelBytes, content.data()) != S_OK) {
      state.SkipWithError("the model is not written");
    }
    if (newNames) {
      state.PauseTiming();
      std::filesystem::remove(installation.Reports() / ("CT01Novo" + number + ".RXL"));
      state.ResumeTiming();
    }
  }
}

void Grava(benchmark::State& state) {
  WriteInProcess(state, Empty(), false);
}
BENCHMARK(Grava)->UseRealTime();
void GravaWithJournal(benchmark::State& state) {
  WriteInProcess(state, Empty(), false, bench::StoreWithJournal);
}
BENCHMARK(GravaWithJournal)->UseRealTime();
void GravaWithHistory(benchmark::State& state) {
  WriteInProcess(state, Empty(), false, bench::StoreWithHistory);
}
BENCHMARK(GravaWithHistory)->UseRealTime();
void GravaFull(benchmark::State& state) {
  WriteInProcess(state, Full(), false);
}
BENCHMARK(GravaFull)->UseRealTime();
void GravaFullWithHistory(benchmark::State& state) {
  WriteInProcess(state, Full(), false, bench::StoreWithHistory);
}
BENCHMARK(GravaFullWithHistory)->UseRealTime();
void GravaNew(benchmark::State& state) {
  WriteInProcess(state, Empty(), true);
}
BENCHMARK(GravaNew)->UseRealTime();
void GravaNewFull(benchmark::State& state) {
  WriteInProcess(state, Full(), true);
}
BENCHMARK(GravaNewFull)->UseRealTime();

}  // namespace

void bench::ReadModel(benchmark::State& state, const support::Installation& installation,
                      ComPtr<IZNPL_Relatorio2> (*open)()) {
  Enter(installation);
  auto store = open();
  const support::Text name(u"Vendas");
  REG_RELATORIO2* model = nullptr;
  for ([[maybe_unused]] auto _ : state) {
    if (store->Le(name, &model) != S_OK) {
      state.SkipWithError("the model is not read");
      break;
    }
    CoTaskMemFree(model->lpRelatorio);
    CoTaskMemFree(model);
  }
}

std::vector<bench::Figure> bench::StoreFigures() {
  return {
      {"Le of 20 kB in process / open, fstat, read, close", "Le", "BareRead", 1.5},
      {"Grava of 20 kB / create, write, fsync, rename, fsync of the folder", "Grava", "BareWrite", 1.15},
      {"Grava of 20 kB with a journal / without", "GravaWithJournal", "Grava", 1.1},
      {"Grava of 20 kB with a history / without", "GravaWithHistory", "Grava", 1.15},
      {"the same with 1,000,000 versions and 100,000 other files", "GravaFullWithHistory", "GravaFull", 1.15},
      {"Le in process, 100,000 other files / no other files", "LeFull", "Le", 1.2},
      {"Grava, 100,000 other files / no other files", "GravaFull", "Grava", 1.2},
      {"Grava of new names, 100,000 other files / no other files", "GravaNewFull", "GravaNew", 1.2},
  };
}
