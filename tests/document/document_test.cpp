// Report documents: written, read back, and read as other programs write them. What their values mean to a reader is
// shown by the transcript documents.txt of kestorctl.
#include <algorithm>
#include <gmock/gmock.h>
#include <random>
#include <regex>

#include "document_fixture.h"
#include "support/support.h"

namespace {

using namespace kestor;

// A file of this folder.
std::string Stored(const std::string& file) {
  return support::ReadFile(std::filesystem::path(KESTOR_DOCUMENTS) / file);
}

// full.xml has every element and attribute, and every word of the lists.
TEST_F(DocumentTest, WrittenAsItWasRead) {
  CDocRelatorio d;
  EXPECT_TRUE(Load(d, Stored("full.xml")));
  EXPECT_EQ(Content(d), Stored("full.xml"));
  EXPECT_TRUE(Load(d, R"(<relatorio dataInicial="" dataFinal="" nome=""/>)"));
  EXPECT_EQ(Content(d), Stored("new.xml")) << "something of an earlier content is left";
  EXPECT_EQ(Content(CDocRelatorio()), Stored("new.xml"));
}

TEST_F(DocumentTest, ValuesWithoutAWordOfTheirOwn) {
  CDocRelatorio d;
  d.impressao.tipoNumeracao = 2;
  d.impressao.orientacao = -1;
  d.camposEscolhidos.campos = {{300, "", "", 0, 'E', 'A', false, 3}};
  d.ordenacao.campos = {{1, 3}};
  d.filtro.condicoes = {{2, "", 6, 2}};
  d.exportacao.cabecalho.tipo = 2;
  EXPECT_THAT(Content(d), testing::ContainsRegex(R"("folha" orientacao="paisagem">.* tipoDado="A" fixo="0"/>.*)"
                                                 R"(separador="".*operador="" comparador="ou".*tipo="N")"));
}

// The full document with random values of every type, and with lists of any length.
struct RandomDocument : CDocRelatorio {
  explicit RandomDocument(unsigned seed) {
    std::mt19937 random(seed);
    const auto below = [&](unsigned limit) { return static_cast<int>(random() % limit); };
    const auto byte = [&] { return static_cast<char>(below(256)); };
    const auto number = [&] { return static_cast<std::int32_t>(random() >> below(32)); };
    const auto code = [&] { return static_cast<std::uint16_t>(number()); };
    const auto text = [&] {
      std::string value(static_cast<std::size_t>(below(30)), '\0');
      std::generate(value.begin(), value.end(), [&] { return static_cast<char>(1 + below(255)); });
      return value;
    };
    EXPECT_TRUE(Load(*this, Stored("full.xml")));
    nome = text();
    impressao.margemEsquerda = static_cast<float>(below(2'000'000) - 1'000'000) / 64;  // exact with six decimals
    for (int n = below(8); n > 0; --n) {
      camposEscolhidos.campos.push_back({code(), text(), text(), number(), byte(), byte(), false, below(3)});
      ordenacao.campos.push_back({code(), below(3)});
      ordenacao.totalizacoes.push_back({code(), n % 2 == 0, true});
      filtro.condicoes.push_back({code(), text(), below(6), below(2)});
    }
  }
};

TEST_F(DocumentTest, RandomDocumentsComeBack) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    const RandomDocument written(seed);
    const std::string content = Content(written);
    CDocRelatorio read;
    ASSERT_TRUE(Load(read, content)) << content;
    EXPECT_TRUE(read == written) << content;
  }
}

// Each attribute left out in turn.
TEST_F(DocumentTest, AttributesThatMayBeMissing) {
  const std::string full = Stored("full.xml");
  const std::regex attribute(" (\\w+)=\"[^\"]*\"");
  std::string optional;
  for (std::sregex_iterator it(full.begin(), full.end(), attribute), end; it != end; ++it) {
    CDocRelatorio d;
    if (!Load(d, std::string(full.begin(), (*it)[0].first) + std::string((*it)[0].second, full.end()))) continue;
    optional += (*it)[1].str() + "@" + std::to_string(std::count(full.begin(), (*it)[0].first, '\n')) + " ";
  }
  EXPECT_EQ(
      optional,
      "encoding@0 versao@1 criadoEm@1 usuario@1 empresa@1 orientacao@2 cabecalhoAdicional@3 textoFinal@4 texto2@5 "
      "formatoValor@8 codigo@9 formatoValor@9 codigo@10 descricao@29 tamanho@29 tipo@29 descricao@32 tamanho@32 "
      "tipo@32 ");
}

// The cases of rules.txt.
TEST_F(DocumentTest, RulesOfTheReader) {
  const std::string rules = Stored("rules.txt");
  const std::regex rule(R"(\n(.+)\n- (.+)((?:\n\+ .+)*)((?:\n[=!] .+)+))");
  const auto joined = [](const std::string& lines) { return std::regex_replace(lines, std::regex("\n. "), ""); };
  std::ptrdiff_t cases = 0;
  for (std::sregex_iterator it(rules.begin(), rules.end(), rule), end; it != end; ++it, ++cases) {
    const std::string replaced = (*it)[2];
    const std::string expected = (*it)[4];
    SCOPED_TRACE((*it)[1]);
    std::string document = Stored("full.xml");
    document.replace(document.find(replaced), replaced.size(), joined((*it)[3]));
    CDocRelatorio d;
    EXPECT_EQ(Load(d, document), expected.starts_with("\n="));
    EXPECT_THAT(Content(d), testing::ContainsRegex(joined(expected)));
    CDocRelatorio again;
    EXPECT_TRUE(Load(again, Content(d)));
    EXPECT_EQ(Content(again), Content(d));
  }
  const std::regex beginning("\n- ");
  EXPECT_EQ(cases, std::distance(std::sregex_iterator(rules.begin(), rules.end(), beginning), {}))
      << "a case is malformed";
}

// ---- The stream ----------------------------------------------------------------------------------------------------

TEST(MemStream, RoomGrowsInSteps) {
  CMemStream stream;
  const std::string bytes(5000, 'x');
  const std::pair<ULONG, ULONG> cases[] = {{1023, 1024}, {1, 1024}, {1, 2048}, {0, 2048}, {5000, 6144}};
  for (const auto& [count, capacity] : cases) {
    EXPECT_EQ(stream.Write(bytes.data(), count, nullptr), S_OK);
    EXPECT_EQ(stream.Capacity(), capacity) << count;
  }
  EXPECT_EQ(stream.Write(bytes.data(), 0xFFFFFFFF, nullptr), E_OUTOFMEMORY);
}

}  // namespace
