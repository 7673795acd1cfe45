// What the benchmarks share.
#pragma once

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

#include "contract/interfaces.h"
#include "support/installation.h"

namespace bench {

// One figure: how many times as long as its baseline a benchmark takes, and what it may take.
struct Figure {
  std::string what;
  std::string measured;  // name of a benchmark
  std::string baseline;  // name of the benchmark that it is compared with
  double limit;
};

inline constexpr int kModelBytes = 20000;

// Files beside the model in the folders that are called full.
int CrowdFiles();
void SetCrowdFiles(int files);

// An installation with a model Vendas of kModelBytes bytes, made at its first use and shared; with a crowd of other
// files in the reports folder or without.
const support::Installation& Empty();
const support::Installation& Full();
void EndInstallations();

// Makes the home of one of the two the current one.
void Enter(const support::Installation& installation);

// A report store in this process, initialised for CT 01 in the current home.
ComPtr<IZNPL_Relatorio2> StoreInProcess();

// The same with a journal in that home, as the server has it.
ComPtr<IZNPL_Relatorio2> StoreWithJournal();

// The same with a server that keeps a history, on the file system of the reports folder. Of the full installation it
// has ten times as many versions as there are other files.
ComPtr<IZNPL_Relatorio2> StoreWithHistory();

// The same of the first generation.
ComPtr<IZNPL_Rel> FirstStoreInProcess();

// A report store in this process that is not initialised yet, and that migrates when it is. Needs a ComponenteMarcacao.
ComPtr<IZNPL_Relatorio2> MigratingStoreInProcess();

// Measures Le of the model of an installation, in the store that `open` opens there.
void ReadModel(benchmark::State& state, const support::Installation& installation, ComPtr<IZNPL_Relatorio2> (*open)());

// This process and another one, each on a processor of its own as long as the object lives. How long an exchange takes
// depends most on whether the two share one, which is chance otherwise.
class Apart {
 public:
  explicit Apart(pid_t other);
  ~Apart();
  Apart(const Apart&) = delete;
  Apart& operator=(const Apart&) = delete;

 private:
  const pid_t other_;
  cpu_set_t before_{};
};

// The content of a document as applications make them, with so many columns. Needs a ComponenteMarcacao.
std::string Content(int columns);

// Makes files by the hundred thousand beside the empty installation, and deletes them: some file systems are slow to
// make new ones then.
void AgeFileSystem();

std::vector<Figure> ChannelFigures();
std::vector<Figure> ClientFigures();
std::vector<Figure> StoreFigures();
std::vector<Figure> ListingFigures();
std::vector<Figure> LegacyFigures();
std::vector<Figure> DocumentFigures();
std::vector<Figure> ConversionFigures();
std::vector<Figure> SearchFigures();
std::vector<Figure> PreviewFigures();
std::vector<Figure> NetworkFigures();

// False where there is no network file system to measure.
bool RegisterNetworkBenchmarks();
void EndNetwork();

// Prints the memory of an idle server and its growth over `calls` calls. False when it is above what it may be.
bool MeasureMemory(int calls);

}  // namespace bench
