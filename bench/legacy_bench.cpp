// The first generation: field catalogue and models, compared with the bare work.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>

#include "bench.h"
#include "legacy/catalogo_campos.h"
#include "legacy/repositorio_rel.h"

namespace {

using bench::Empty;
using bench::kModelBytes;

constexpr std::size_t kLines = 65535;

// Returns a catalogue of as many lines as the newer list can hold.
const std::string& Catalogue() {
  static const std::string catalogue = [] {
    const std::string line =
        "   123Conta corrente       ContaCorrente         E    20 S  A  N  S  Aberta|Fechada|Bloqueada\r\n";
    std::string all;
    for (std::size_t i = 1; i < kLines; ++i)
      all += line;
    return all;
  }();
  return catalogue;
}

std::string CatalogueFile() {
  static bool made = false;
  const auto folder = Empty().Reports() / "Contabil";
  std::filesystem::create_directories(folder);
  const std::string file = folder / "XCT01.REL";
  if (!made) support::WriteFile(file, Catalogue());
  made = true;
  return file;
}

// Reads the file once, allocates one block of records, and copies each line into its record.
void BareCatalogue(benchmark::State& state) {
  const std::string file = CatalogueFile();
  for ([[maybe_unused]] auto _ : state) {
    const int opened = open(file.c_str(), O_RDONLY);
    struct stat status {};
    fstat(opened, &status);
    const auto size = static_cast<std::size_t>(status.st_size);
    const auto content = std::make_unique_for_overwrite<char[]>(size);
    if (read(opened, content.get(), size) != status.st_size) state.SkipWithError("the catalogue is not read");
    close(opened);
    const auto records = std::make_unique_for_overwrite<tagREG_CAMPOS_RELATORIO[]>(kLines);
    auto* record = records.get();
    const char* line = content.get();
    const char* const end = line + size;
    while (line < end) {
      const auto* lf = static_cast<const char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
      *record = {};
      std::memcpy(record, line, static_cast<std::size_t>(lf - line));
      ++record;
      line = lf + 1;
    }
    benchmark::DoNotOptimize(records.get());
  }
}
BENCHMARK(BareCatalogue)->UseRealTime();

void CatalogueFields(benchmark::State& state) {
  const std::string file = CatalogueFile();
  bench::Enter(Empty());
  auto store = bench::FirstStoreInProcess();
  for ([[maybe_unused]] auto _ : state) {
    LONG count = 0;
    if (store->BuscaQdeCamposArquivo(&count) != S_OK || count != LONG{kLines}) {
      state.SkipWithError("the catalogue is not read");
    }
    store->BuscaCampos(0, nullptr);  // releases the records
  }
}
BENCHMARK(CatalogueFields)->UseRealTime();

void FirstRead(benchmark::State& state) {
  bench::Enter(Empty());
  auto store = bench::FirstStoreInProcess();
  support::WriteFile(Empty().Reports() / "CT01Vendas.REL", std::string(kModelBytes, 'x'));
  const support::Text name(u"Vendas");
  std::vector<unsigned char> content(kModelBytes);
  for ([[maybe_unused]] auto _ : state) {
    LONG size = 0;
    if (store->BuscaTamanhoRelatorio(name, &size) != S_OK || store->BuscaRelatorio(size, content.data()) != S_OK) {
      state.SkipWithError("the model is not read");
    }
  }
}
BENCHMARK(FirstRead)->UseRealTime();

void FirstWrite(benchmark::State& state) {
  bench::Enter(Empty());
  auto store = bench::FirstStoreInProcess();
  const support::Text name(u"Novo");
  std::vector<unsigned char> content(kModelBytes);
  for ([[maybe_unused]] auto _ : state) {
    if (store->GravaRelatorio(name, 1, kModelBytes, content.data()) != S_OK) {
      state.SkipWithError("the model is not written");
    }
  }
}
BENCHMARK(FirstWrite)->UseRealTime();

}  // namespace

std::vector<bench::Figure> bench::LegacyFigures() {
  return {
      {"Catalogue of 65,535 lines / read, find the line ends, copy the lines", "CatalogueFields", "BareCatalogue", 2.0},
      {"BuscaTamanhoRelatorio and BuscaRelatorio of 20 kB / open, fstat, read, close", "FirstRead", "BareRead", 1.5},
      {"GravaRelatorio of 20 kB / create, write, fsync, rename, fsync of the folder", "FirstWrite", "BareWrite", 1.15},
  };
}
