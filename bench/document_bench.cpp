// Reading, writing and renumbering report documents, compared with the bare parser, the bare bytes and the bare files.
#include <expat.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstring>
#include <string_view>

#include "bench.h"
#include "document/doc_relatorio.h"
#include "document/rel_converte.h"
#include "marcacao/componente_marcacao.h"
#include "store/repositorio_rel2.h"

namespace {

using namespace kestor;

constexpr int kColumns = 60;
constexpr int kManyColumns = 1000 * kColumns;

// Fills a document like those of applications: `columns` columns, and sort keys, totals and conditions in proportion.
void Fill(CDocRelatorio& document, int columns) {
  document.nome = "Balancete";
  document.impressao.cabecalho.texto = "Balancete de verifica\xE7\xE3o";
  for (int i = 0; i < columns; ++i) {
    const auto code = static_cast<std::uint16_t>(100 + i);
    document.camposEscolhidos.campos.push_back({code, "Conta corrente", "", 20, 'E', 'A', false, i % 3});
    if (i % 12 == 0) document.ordenacao.campos.push_back({code, i % 3});
    if (i % 3 == 0) document.ordenacao.totalizacoes.push_back({code, true, i % 2 == 0});
    if (i % 6 == 0) document.filtro.condicoes.push_back({code, "1.1.02.003", i % 6, i % 2});
  }
}

using bench::Content;

void BareParser(benchmark::State& state) {
  const ComponenteMarcacao markup;
  const std::string content = Content(kColumns);
  for ([[maybe_unused]] auto _ : state) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(
        parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    if (XML_Parse(parser, content.data(), static_cast<int>(content.size()), XML_TRUE) != XML_STATUS_OK) {
      state.SkipWithError("the document is not read");
    }
    XML_ParserFree(parser);
  }
}
BENCHMARK(BareParser)->UseRealTime();

void Load(benchmark::State& state, int columns, int times) {
  const ComponenteMarcacao markup;
  std::string content = Content(columns);
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < times; ++i) {
      CDocRelatorio document;
      if (!document.CarregaConteudo(
              {1, static_cast<LONG>(content.size()), reinterpret_cast<std::uint8_t*>(content.data())})) {
        state.SkipWithError("the document is not read");
      }
      benchmark::DoNotOptimize(document);
    }
  }
}
void LoadDocument(benchmark::State& state) {
  Load(state, kColumns, 1);
}
BENCHMARK(LoadDocument)->UseRealTime();
void LoadThousandDocuments(benchmark::State& state) {
  Load(state, kColumns, 1000);
}
BENCHMARK(LoadThousandDocuments)->UseRealTime();
void LoadLongDocument(benchmark::State& state) {
  Load(state, kManyColumns, 1);
}
BENCHMARK(LoadLongDocument)->UseRealTime();

// Splits the content into names, values and the signs between them, as a writer gets them.
std::vector<std::string_view> Pieces(std::string_view content) {
  const auto isSign = [](char c) { return std::strchr(" =\"<>/\n", c) != nullptr; };
  std::vector<std::string_view> pieces;
  while (!content.empty()) {
    const bool signs = isSign(content.front());
    const auto* end = std::find_if(content.begin(), content.end(), [&](char c) { return isSign(c) != signs; });
    const auto bytes = static_cast<std::size_t>(end - content.begin());
    pieces.push_back(content.substr(0, bytes));
    content.remove_prefix(bytes);
  }
  return pieces;
}

void BareBytes(benchmark::State& state) {
  const ComponenteMarcacao markup;
  const std::string content = Content(kColumns);
  const std::vector<std::string_view> pieces = Pieces(content);
  for ([[maybe_unused]] auto _ : state) {
    std::string copy;
    for (const std::string_view piece : pieces)
      copy.append(piece);
    if (copy.size() != content.size()) state.SkipWithError("bytes are missing");
    benchmark::DoNotOptimize(copy.data());
  }
}
BENCHMARK(BareBytes)->UseRealTime();

void Write(benchmark::State& state, int columns, int times) {
  const ComponenteMarcacao markup;
  CDocRelatorio document;
  Fill(document, columns);
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < times; ++i) {
      const auto content = document.GeraConteudo();
      if (content->Size() == 0) state.SkipWithError("the document is not written");
    }
  }
}
void WriteDocument(benchmark::State& state) {
  Write(state, kColumns, 1);
}
BENCHMARK(WriteDocument)->UseRealTime();
void WriteThousandDocuments(benchmark::State& state) {
  Write(state, kColumns, 1000);
}
BENCHMARK(WriteThousandDocuments)->UseRealTime();
void WriteLongDocument(benchmark::State& state) {
  Write(state, kManyColumns, 1);
}
BENCHMARK(WriteLongDocument)->UseRealTime();

}  // namespace

std::string bench::Content(int columns) {
  CDocRelatorio document;
  Fill(document, columns);
  const auto content = document.GeraConteudo();
  return {reinterpret_cast<const char*>(content->Buffer()), content->Size()};
}

std::vector<bench::Figure> bench::DocumentFigures() {
  return {
      {"CarregaConteudo of 60 columns / expat with empty handlers", "LoadDocument", "BareParser", 2.0},
      {"CarregaConteudo of 60,000 columns / 1,000 of 60", "LoadLongDocument", "LoadThousandDocuments", 1.3},
      {"GeraConteudo of 60 columns / appending its names, values and signs to a string", "WriteDocument", "BareBytes",
       1.6},
      {"GeraConteudo of 60,000 columns / 1,000 of 60", "WriteLongDocument", "WriteThousandDocuments", 1.3},
  };
}
