// Helpers that the benchmarks share.
#pragma once

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

#include "contract/interfaces.h"
#include "support/installation.h"

namespace bench {

// One figure: how many times as long as its baseline a benchmark takes, and its limit.
struct Figure {
  std::string what;
  std::string measured;  // name of a benchmark
  std::string baseline;  // name of the benchmark that it is compared with
  double limit;
};

inline constexpr int kModelBytes = 20000;

// The number of other files next to the model in folders that are called full.
int CrowdFiles();
void SetCrowdFiles(int files);

// Return an installation with a model Vendas of kModelBytes bytes, made at its first use and shared; Full has a crowd
// of other files in the reports folder.
const support::Installation& Empty();
const support::Installation& Full();
void EndInstallations();

// Makes the home of the installation the current one.
void Enter(const support::Installation& installation);

// Returns a report store in this process, initialised for CT 01 in the current home.
ComPtr<IZNPL_Relatorio2> StoreInProcess();

// The same, with a journal in that home, as in the server.
ComPtr<IZNPL_Relatorio2> StoreWithJournal();

// The same, with a history on the file system of the reports folder. The history of the full installation has ten times
// as many versions as there are other files.
ComPtr<IZNPL_Relatorio2> StoreWithHistory();

// The same of the first generation.
ComPtr<IZNPL_Rel> FirstStoreInProcess();

// Returns a report store in this process that migrates once it is initialised. Needs a ComponenteMarcacao.
ComPtr<IZNPL_Relatorio2> MigratingStoreInProcess();

// Measures reading (Le) the model of an installation, in the store that `open` opens there.
void ReadModel(benchmark::State& state, const support::Installation& installation, ComPtr<IZNPL_Relatorio2> (*open)());

// Keeps this process and another one on separate processors while the object lives. The time of an exchange depends
// most on whether they share a processor, which would be left to chance.
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

// Returns the content of a document like those of applications, with that many columns. Needs a ComponenteMarcacao.
std::string Content(int columns);

// Creates and deletes hundreds of thousands of files in the empty installation, because some file systems are slow to
// create files after that.
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

// Returns false if there is no network file system to measure.
bool RegisterNetworkBenchmarks();
void EndNetwork();

// Prints the memory of an idle server and its growth over `calls` calls. Returns false if it exceeds a limit.
bool MeasureMemory(int calls);

}  // namespace bench
