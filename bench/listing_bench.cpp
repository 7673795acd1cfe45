// Listing and the default report, compared with the bare system calls that do the same work.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <fstream>

#include "bench.h"
#include "platform/files/files.h"

namespace {

using bench::Empty;
using bench::Full;

constexpr std::size_t kRecord = 264;

// Makes models of component 03, a tenth of the crowd, and returns their number.
int Models() {
  static bool made = false;
  const int models = bench::CrowdFiles() / 10;
  for (int i = 0; i < models && !made; ++i)
    std::ofstream(Full().Reports() / ("CT03Modelo " + std::to_string(i * 7919 % models) + ".RXL"));
  made = true;
  return models;
}

void BareList(benchmark::State& state) {
  const auto models = static_cast<std::size_t>(Models());
  const std::string folder = Full().Reports();
  for ([[maybe_unused]] auto _ : state) {
    std::vector<std::string> names;
    DIR* const opened = opendir(folder.c_str());
    while (const dirent* entry = readdir(opened)) {
      const std::string_view name = entry->d_name;
      if (name.starts_with("CT03") && name.ends_with(".RXL")) names.emplace_back(name);
    }
    closedir(opened);
    std::sort(names.begin(), names.end());
    if (names.size() != models) state.SkipWithError("not all models are found");
  }
}
BENCHMARK(BareList)->UseRealTime();

void ListModels(benchmark::State& state) {
  const int models = Models();
  bench::Enter(Full());
  auto store = bench::StoreInProcess();
  store->Inicializa(support::Text(u"CT"), support::Text(u"03"));
  for ([[maybe_unused]] auto _ : state) {
    REG_ARRAY_RELATORIO2* list = nullptr;
    if (store->GetNomeRelatorios(&list) != S_OK || list->nQtdeRelatorios != models) {
      state.SkipWithError("not all models are listed");
      break;
    }
    CoTaskMemFree(list->pregRelatorios);
    CoTaskMemFree(list);
  }
}

// Lists models with the list of deleted names present: empty, or with as many names as there are models, none of them a
// model's.
void List(benchmark::State& state) {
  support::WriteFile(Full().Reports() / "ZNRELDEL.DAT", std::string(kRecord, '\0'));
  ListModels(state);
}
BENCHMARK(List)->UseRealTime();
void ListDeleted(benchmark::State& state) {
  std::string records(kRecord * static_cast<std::size_t>(Models() + 1), '\0');
  for (int i = 1; i <= Models(); ++i) {
    const std::string name = "Apagado " + std::to_string(i);
    records.replace(kRecord * static_cast<std::size_t>(i), 4, "CT03");
    records.replace(kRecord * static_cast<std::size_t>(i) + 8, name.size(), name);
  }
  support::WriteFile(Full().Reports() / "ZNRELDEL.DAT", records);
  ListModels(state);
  std::filesystem::remove(Full().Reports() / "ZNRELDEL.DAT");
}
BENCHMARK(ListDeleted)->UseRealTime();

// Opens and locks a file of the empty folder as a share mode does.
int OpenLocked(const std::string& file, int flags, short lock) {
  const int opened = open(file.c_str(), flags);
  struct flock range {};
  range.l_type = lock;
  range.l_start = off_t{1} << 62;
  range.l_len = 1;
  return fcntl(opened, F_OFD_SETLK, &range) == 0 ? opened : -1;
}

// Returns a store that remembers where its default report is recorded.
ComPtr<IZNPL_Relatorio2> StoreWithDefault() {
  bench::Enter(Empty());
  auto store = bench::StoreInProcess();
  BSTR name = nullptr;
  store->SetRelatorioPadrao(support::Text(u"Vendas"));
  store->GetRelatorioPadrao(&name);
  SysFreeString(name);
  return store;
}

void BareDefault(benchmark::State& state) {
  StoreWithDefault();
  const std::string file = Empty().Home().Home() / "drives" / "d" / "ZNRELPAD.DAT";
  char record[kRecord];
  for ([[maybe_unused]] auto _ : state) {
    const int opened = OpenLocked(file, O_RDWR, F_RDLCK);
    if (pread(opened, record, sizeof record, kRecord) != kRecord) state.SkipWithError("the record is not read");
    close(opened);
  }
}
BENCHMARK(BareDefault)->UseRealTime();

void Default(benchmark::State& state) {
  auto store = StoreWithDefault();
  for ([[maybe_unused]] auto _ : state) {
    BSTR name = nullptr;
    if (store->GetRelatorioPadrao(&name) != S_OK || name == nullptr) state.SkipWithError("there is no default");
    SysFreeString(name);
  }
}
BENCHMARK(Default)->UseRealTime();

void BareSetDefault(benchmark::State& state) {
  StoreWithDefault();
  const std::string model = Empty().Home().Home() / "drives" / "d" / "CT01Vendas.RXL";
  const std::string file = Empty().Home().Home() / "drives" / "d" / "ZNRELPAD.DAT";
  const std::string record = support::ReadFile(file).substr(kRecord);
  for ([[maybe_unused]] auto _ : state) {
    close(OpenLocked(model, O_RDWR, F_WRLCK));
    const int opened = OpenLocked(file, O_RDWR, F_WRLCK);
    if (pwrite(opened, record.data(), kRecord, kRecord) != kRecord || fdatasync(opened) != 0) {
      state.SkipWithError("the record is not written");
    }
    close(opened);
  }
}
BENCHMARK(BareSetDefault)->UseRealTime();

void SetDefault(benchmark::State& state) {
  auto store = StoreWithDefault();
  const support::Text name(u"Vendas");
  for ([[maybe_unused]] auto _ : state) {
    if (store->SetRelatorioPadrao(name) != S_OK) state.SkipWithError("the default is not set");
  }
}
BENCHMARK(SetDefault)->UseRealTime();

void BareWaits(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < 29; ++i)
      Sleep(1);
  }
}
BENCHMARK(BareWaits)->UseRealTime();

void SetDefaultHeld(benchmark::State& state) {
  auto store = StoreWithDefault();
  const support::Text name(u"Vendas");
  CFile holder;
  holder.Open("D:\\ZNRELPAD.DAT", CFile::modeReadWrite | CFile::shareDenyWrite);
  for ([[maybe_unused]] auto _ : state) {
    if (SUCCEEDED(store->SetRelatorioPadrao(name))) state.SkipWithError("the file is not held");
  }
}
BENCHMARK(SetDefaultHeld)->UseRealTime();

}  // namespace

std::vector<bench::Figure> bench::ListingFigures() {
  return {
      {"GetNomeRelatorios, 10,000 models of 110,000 files / readdir and sort", "List", "BareList", 1.5},
      {"GetNomeRelatorios, 10,000 deleted names / none", "ListDeleted", "List", 2.0},
      {"GetRelatorioPadrao / open, lock, read, close", "Default", "BareDefault", 1.5},
      {"SetRelatorioPadrao / open, lock, close; open, lock, write, flush, close", "SetDefault", "BareSetDefault", 1.5},
      {"SetRelatorioPadrao of a file in other hands / 29 waits of 1 ms", "SetDefaultHeld", "BareWaits", 2.0},
  };
}
