// Renumbering and migrating the models of a module and component, compared with the bare work on the same files.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <fstream>
#include <string_view>
#include <thread>

#include "bench.h"
#include "document/doc_relatorio.h"
#include "document/rel_converte.h"
#include "legacy/repositorio_rel.h"
#include "marcacao/componente_marcacao.h"
#include "migration/conversor_rel.h"
#include "store/repositorio_rel2.h"

namespace {

using namespace kestor;
using bench::Empty;
using bench::Full;

class NoCount final : public Servidor {
 public:
  LONG Trava() override { return 1; }
  LONG Destrava() override { return 0; }
};
NoCount noCount;

HRESULT MakeFirstStore(Servidor& counter, REFIID iid, void** object) {
  return CRepositorioRel::Cria<CRepositorioRel>(nullptr, iid, object, counter);
}

HRESULT MigrateInto(Servidor& counter, IZNPL_Relatorio2& store, const std::string& module, const std::string& component,
                    const std::vector<std::string>& existing) {
  CConversorRel converter(store, module, component, counter, MakeFirstStore);
  for (const std::string& name : existing)
    converter.AdicionaNomeExistente(name);
  return converter.Executa();
}

HRESULT MakeStore(Servidor& counter, REFIID iid, void** object) {
  return CRepositorioRel2::Cria<CRepositorioRel2>(iid, object, counter, MigrateInto);
}

std::string ReadWhole(const std::string& file) {
  const int opened = open(file.c_str(), O_RDONLY);
  struct stat status {};
  fstat(opened, &status);
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  if (read(opened, content.data(), content.size()) != status.st_size) content.clear();
  close(opened);
  return content;
}

bool WriteDurably(const std::string& folder, const std::string& file, std::string_view content) {
  const std::string temporary = folder + "/.bare";
  const int opened = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  const bool written = write(opened, content.data(), content.size()) > 0 && fsync(opened) == 0;
  close(opened);
  rename(temporary.c_str(), (folder + "/" + file).c_str());
  const int openedFolder = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
  fsync(openedFolder);
  close(openedFolder);
  return written;
}

void Clear(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().filename().string().starts_with("CT02")) std::filesystem::remove(entry.path());
  }
}

// The models are of component 02, so that those of the other benchmarks stay unchanged. The catalogue has `fields`
// fields.
std::string Folder() {
  return Empty().Reports();
}
std::string ModelFile(int i, const char* extension) {
  return "CT02Modelo" + std::to_string(10000 + i) + extension;
}
std::string CatalogueFile() {
  const auto folder = Empty().Reports() / "Contabil";
  std::filesystem::create_directories(folder);
  return folder / "XCT02.REL";
}
void WriteCatalogue(int fields) {
  std::string lines;
  for (int i = 0; i < fields; ++i) {
    std::string line = "      Conta corrente       ContaCorrente         E    20 S  A  S  S  ";
    line.replace(0, 3, std::to_string(100 + i));
    lines += line + "\r\n";
  }
  const std::string file = CatalogueFile();
  if (std::filesystem::exists(file) && ReadWhole(file) == lines) return;
  support::WriteFile(file, lines);
  // The times of a file prove that it has not changed only once they are some seconds old.
  if (bench::CrowdFiles() > 1000) std::this_thread::sleep_for(std::chrono::seconds(4));
}

// ---- Renumbering ---------------------------------------------------------------------------------------------------

// 1,000 or 10,000; fewer in a quick run.
int Documents() {
  return bench::CrowdFiles() / 100;
}
int Models() {
  return bench::CrowdFiles() / 10;
}

std::string DocumentContent(int i) {
  CDocRelatorio document;
  document.nome = "Modelo" + std::to_string(10000 + i);
  for (int column = 0; column < 60; ++column) {
    const auto code = static_cast<std::uint16_t>(100 + column);
    document.camposEscolhidos.campos.push_back({code, "Conta corrente", "", 20, 'E', 'A', false, 0});
    if (column % 3 == 0) document.ordenacao.totalizacoes.push_back({code, true, false});
  }
  const auto content = document.GeraConteudo();
  return std::string("\1\0", 2) + std::string(reinterpret_cast<const char*>(content->Buffer()), content->Size());
}

void PutDocuments(int count) {
  Clear(Folder());
  for (int i = 0; i < count; ++i)
    support::WriteFile(std::filesystem::path(Folder()) / ModelFile(i, ".RXL"), DocumentContent(i));
}

void BareRenumbering(benchmark::State& state) {
  const ComponenteMarcacao markup;
  PutDocuments(Documents());
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < Documents(); ++i) {
      const std::string file = ModelFile(i, ".RXL");
      if (!WriteDurably(Folder(), file, ReadWhole(Folder() + "/" + file))) state.SkipWithError("not written");
    }
  }
  Clear(Folder());
}
BENCHMARK(BareRenumbering)->UseRealTime()->Iterations(1)->Repetitions(9);

void Renumbering(benchmark::State& state) {
  const ComponenteMarcacao markup;
  bench::Enter(Empty());
  WriteCatalogue(300);
  PutDocuments(Documents());
  ComPtr<IZNPL_RelConverte> converter;
  CRelConverte::Cria<CRelConverte>(IID_IZNPL_RelConverte, converter.OutVoid(), noCount, MakeStore);
  std::vector<REL_CODIGO_CAMPOS_ALTERADOS> pairs = {{100, 101}, {101, 100}};
  for ([[maybe_unused]] auto _ : state) {
    if (converter->AlteraCodigoCampos(support::Text(u"CT"), support::Text(u"02"), 2, pairs.data()) != S_OK) {
      state.SkipWithError("not renumbered");
    }
  }
  Clear(Folder());
}
BENCHMARK(Renumbering)->UseRealTime()->Iterations(1)->Repetitions(9);

// ---- Migration -----------------------------------------------------------------------------------------------------

constexpr std::size_t kBytesOfModel = 2000;

// Makes models of layout 2 of about 2 kB, with export settings of six items.
void PutModels(int count) {
  Clear(Folder());
  constexpr std::size_t kHeader = 556;
  constexpr std::size_t kColumn = 12;
  std::string content(kHeader, '\0');
  const std::size_t columns = (kBytesOfModel - kHeader) / kColumn;
  content[0] = 1;
  content[2] = 2;
  content[114] = static_cast<char>(columns);
  for (std::size_t i = 0; i < columns; ++i)
    content += std::string{static_cast<char>(100 + i % 100), 0, 0, 0, 20, 0, 0, 0, 'E', 0, 0, 0};
  std::string settings(612 + std::size_t{6} * 228, '\0');
  settings[604] = 6;
  for (int i = 0; i < count; ++i) {
    support::WriteFile(std::filesystem::path(Folder()) / ModelFile(i, ".REL"), content);
    support::WriteFile(std::filesystem::path(Folder()) / ModelFile(i, ".REE"), settings);
  }
}

// Returns a value of this process, such as VmRSS, in MiB.
double Memory(const char* value) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != std::string(value) + ":")
    continue;
  double kibibytes = 0;
  status >> kibibytes;
  return kibibytes / 1024;
}

// Also reports the peak growth of this process's memory.
void Migrate(benchmark::State& state, int count) {
  const ComponenteMarcacao markup;
  bench::Enter(Empty());
  WriteCatalogue(300);
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    PutModels(count);
    auto store = bench::MigratingStoreInProcess();
    std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak to the present memory
    const double before = Memory("VmRSS");
    state.ResumeTiming();
    if (store->Inicializa(support::Text(u"CT"), support::Text(u"02")) != S_OK) state.SkipWithError("not migrated");
    state.PauseTiming();
    state.counters["MiB"] = Memory("VmHWM") - before;
    if (std::filesystem::exists(Folder() + "/" + ModelFile(count - 1, ".REL"))) state.SkipWithError("a model stayed");
    Clear(Folder());
    state.ResumeTiming();
  }
}
void Migration(benchmark::State& state) {
  Migrate(state, Models());
}
BENCHMARK(Migration)->UseRealTime()->Iterations(1)->Repetitions(3);
void LargeMigration(benchmark::State& state) {
  Migrate(state, Models() * 10);
}
BENCHMARK(LargeMigration)->UseRealTime()->Iterations(1)->Repetitions(1);

// Returns a document that a migration makes.
std::string MigratedDocument() {
  const ComponenteMarcacao markup;
  bench::Enter(Empty());
  WriteCatalogue(300);
  PutModels(1);
  auto store = bench::MigratingStoreInProcess();
  store->Inicializa(support::Text(u"CT"), support::Text(u"02"));
  return ReadWhole(Folder() + "/" + ModelFile(0, ".RXL"));
}

void BareMigration(benchmark::State& state) {
  const std::string document = MigratedDocument();
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    PutModels(Models());
    state.ResumeTiming();
    for (int i = 0; i < Models(); ++i) {
      benchmark::DoNotOptimize(ReadWhole(Folder() + "/" + ModelFile(i, ".REL")));
      benchmark::DoNotOptimize(ReadWhole(Folder() + "/" + ModelFile(i, ".REE")));
      benchmark::DoNotOptimize(ReadWhole(CatalogueFile()));
      if (!WriteDurably(Folder(), ModelFile(i, ".RXL"), document)) state.SkipWithError("not written");
      unlink((Folder() + "/" + ModelFile(i, ".REE")).c_str());
      unlink((Folder() + "/" + ModelFile(i, ".REL")).c_str());
    }
    state.PauseTiming();
    Clear(Folder());
    state.ResumeTiming();
  }
}
BENCHMARK(BareMigration)->UseRealTime()->Iterations(1)->Repetitions(3);

// Does the searches of an initialisation that has nothing to migrate: for documents, and for first-generation models.
void BareSearches(benchmark::State& state) {
  const std::string folder = Full().Reports();
  for ([[maybe_unused]] auto _ : state) {
    for (int search = 0; search < 2; ++search) {
      std::size_t found = 0;
      DIR* opened = opendir(folder.c_str());
      while (const dirent* entry = readdir(opened))
        found += std::string_view(entry->d_name).starts_with("CT04") ? 1U : 0U;
      closedir(opened);
      benchmark::DoNotOptimize(found);
    }
  }
}
BENCHMARK(BareSearches)->UseRealTime();

void InitialisationAlone(benchmark::State& state) {
  const ComponenteMarcacao markup;
  bench::Enter(Full());
  for ([[maybe_unused]] auto _ : state) {
    auto store = bench::MigratingStoreInProcess();
    if (store->Inicializa(support::Text(u"CT"), support::Text(u"04")) != S_OK) state.SkipWithError("not initialised");
  }
}
BENCHMARK(InitialisationAlone)->UseRealTime();

}  // namespace

void bench::AgeFileSystem() {
  constexpr int kFiles = 500'000;
  const std::filesystem::path folder = Empty().Reports() / "Aged";
  std::filesystem::create_directory(folder);
  for (int i = 0; i < kFiles; ++i)
    support::WriteFile(folder / std::to_string(i), "");
  std::filesystem::remove_all(folder);
}

ComPtr<IZNPL_Relatorio2> bench::MigratingStoreInProcess() {
  ComPtr<IZNPL_Relatorio2> store;
  MakeStore(noCount, IID_IZNPL_Relatorio2, store.OutVoid());
  return store;
}

std::vector<bench::Figure> bench::ConversionFigures() {
  return {
      {"AlteraCodigoCampos of 1,000 models / reading and durably writing them", "Renumbering", "BareRenumbering", 0.5},
      {"Migration of 10,000 models / reading, durably writing, deleting", "Migration", "BareMigration", 0.5},
      {"Migration of 100,000 models / 10,000", "LargeMigration", "Migration", 10 * 1.1},
      {"Inicializa with nothing to migrate, 100,000 files / a readdir a search", "InitialisationAlone", "BareSearches",
       0.6},
  };
}
