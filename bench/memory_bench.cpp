// The memory of the server process; and the installations that all benchmarks share.
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>

#include "bench.h"
#include "history/history.h"
#include "legacy/repositorio_rel.h"
#include "platform/home/home.h"
#include "server/relato.h"
#include "store/repositorio_rel2.h"

namespace {

int crowdFiles = 100000;
std::unique_ptr<support::Installation> installations[2];

class NoCounting final : public kestor::Servidor {
  LONG Trava() override { return 0; }
  LONG Destrava() override { return 0; }
};

class WithJournal final : public kestor::Servidor {
 public:
  WithJournal() : journal_(platform::Home::Current()) {}
  LONG Trava() override { return 0; }
  LONG Destrava() override { return 0; }

 private:
  void Anota(const kestor::Mudanca& change) override { kestor::RelataAoDiario(change, journal_); }

  journal::Writer journal_;
};

class WithHistory final : public kestor::Servidor {
 public:
  LONG Trava() override { return 0; }
  LONG Destrava() override { return 0; }

 private:
  files::Keeper* IniciaGuarda(const kestor::Mudanca& operation) noexcept override {
    if (!keeper_.IsWanted()) return nullptr;
    keeper_.Begin({.method = operation.metodo,
                   .module = std::string(operation.modulo),
                   .component = std::string(operation.componente)});
    return &keeper_;
  }

  history::Keeper keeper_;
};

// Makes versions, as many for each model as the limit permits, for as many models as needed.
void MakeVersions(const std::filesystem::path& history, int versions) {
  constexpr int kOfModel = 50;
  history::Version version;
  version.method = "Grava";
  version.extension = ".RXL";
  for (int i = 0; i < versions; ++i) {
    const std::filesystem::path model = history / "FS" / "02" / ("Modelo " + std::to_string(i / kOfModel));
    if (i % kOfModel == 0) std::filesystem::create_directories(model);
    version.time = std::chrono::time_point_cast<std::chrono::microseconds>(history::Clock::now());
    std::ofstream(model / history::NameOf(version));
  }
}

ComPtr<IZNPL_Relatorio2> StoreOf(kestor::Servidor& server) {
  ComPtr<IZNPL_Relatorio2> store;
  kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(IID_IZNPL_Relatorio2, store.OutVoid(), server);
  store->Inicializa(support::Text(u"CT"), support::Text(u"01"));
  return store;
}

const support::Installation& MadeOnce(std::unique_ptr<support::Installation>& installation, int files) {
  if (installation) return *installation;
  installation = std::make_unique<support::Installation>();
  const std::filesystem::path history = installation->Home().Home() / "history";
  std::filesystem::create_directory(history);
  support::SetRegistryText("SOFTWARE\\Norvela", "Historico", history.string());
  MakeVersions(history, 10 * files);
  support::WriteFile(installation->Reports() / "CT01Vendas.RXL", std::string(bench::kModelBytes + 2, 'x'));
  for (int i = 0; i < files; ++i) {
    std::ofstream(installation->Reports() / ("FS02Outro modelo " + std::to_string(i) + ".RXL"));
  }
  return *installation;
}

// Returns the resident memory of a process in KiB.
long ResidentKiB(pid_t pid) {
  std::istringstream status(support::ReadFile("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
  }
  return 0;
}

}  // namespace

namespace bench {

int CrowdFiles() {
  return crowdFiles;
}
void SetCrowdFiles(int files) {
  crowdFiles = files;
}

const support::Installation& Empty() {
  return MadeOnce(installations[0], 0);
}
const support::Installation& Full() {
  return MadeOnce(installations[1], CrowdFiles());
}

void EndInstallations() {
  for (auto& installation : installations) {
    if (!installation) continue;
    Enter(*installation);
    installation.reset();
  }
}

void Enter(const support::Installation& installation) {
  installation.Home().Enter();
}

ComPtr<IZNPL_Relatorio2> StoreInProcess() {
  static NoCounting counting;
  return StoreOf(counting);
}

ComPtr<IZNPL_Relatorio2> StoreWithJournal() {
  static WithJournal server;
  return StoreOf(server);
}

ComPtr<IZNPL_Relatorio2> StoreWithHistory() {
  static WithHistory server;
  return StoreOf(server);
}

ComPtr<IZNPL_Rel> FirstStoreInProcess() {
  static NoCounting counting;
  ComPtr<IZNPL_Rel> store;
  kestor::CRepositorioRel::Cria<kestor::CRepositorioRel>(nullptr, IID_IZNPL_Rel, store.OutVoid(), counting);
  store->Inicializa(nullptr, support::Text(u"CT"), support::Text(u"01"));
  return store;
}

bool MeasureMemory(int calls) {
  constexpr long kIdleLimitKiB = 8 * 1024;
  constexpr long kGrowthLimitKiB = 64;
  Enter(Empty());
  auto store = support::OpenStore();
  const pid_t server = Empty().ServerPid();
  const support::Text name(u"Vendas");
  const auto call = [&](int times) {
    for (int i = 0; i < times; ++i) {
      REG_RELATORIO2* model = nullptr;
      if (store->Le(i % 2 == 0 ? static_cast<BSTR>(name) : nullptr, &model) == S_OK) {
        CoTaskMemFree(model->lpRelatorio);
        CoTaskMemFree(model);
      }
    }
  };
  call(1000);
  const long before = ResidentKiB(server);
  call(calls);
  const long after = ResidentKiB(server);
  std::printf("\nServer: %ld KiB resident when idle (at most %ld); %+ld KiB over %d calls (at most %ld)\n", after,
              kIdleLimitKiB, after - before, calls, kGrowthLimitKiB);
  return after <= kIdleLimitKiB && after - before <= kGrowthLimitKiB;
}

}  // namespace bench
