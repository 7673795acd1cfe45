// Renumbering through a store in this process. The transcript renumbering.txt of kestorctl shows what happens to each
// file of a folder.
#include <array>
#include <sstream>

#include "../store/store_fixture.h"
#include "document/rel_converte.h"
#include "document_fixture.h"
#include "platform/files/files.h"

namespace {

using namespace kestor;

class RenumberingTest : public StoreTest {
 protected:
  // Writes fields with the uses that each allows, as in "150cts 160-": condition, total, sort. An alias is "F" and the
  // code.
  void WriteCatalogue(const std::string& fields) {
    std::istringstream words(fields);
    std::string lines;
    for (std::string field; words >> field;) {
      const std::string code = field.substr(0, 3);
      std::string line(69, ' ');
      line.replace(0, 3, code).replace(27, 4, "F" + code);
      for (const auto& [letter, column] : {std::pair('c', 57U), {'t', 63}, {'s', 66}})
        line[column] = field.find(letter) != std::string::npos ? 'S' : 'N';
      lines += line + "\r\n";
    }
    std::filesystem::create_directory(home_.Data() / "Contabil");
    support::WriteFile(home_.Data() / "Contabil" / "XCT01.REL", lines);
  }

  // Writes a document that uses each of the codes as a column, a sort key, a total and a condition.
  void WriteModel(const std::string& codes, const std::string& name = "M") {
    CDocRelatorio d;
    d.nome = name;
    std::istringstream words(codes);
    for (std::uint16_t code = 0; words >> code;) {
      d.camposEscolhidos.campos.push_back({code, "title", "", 10, 'E', 'A', false, 0});
      d.ordenacao.campos.push_back({code, 0});
      d.ordenacao.totalizacoes.push_back({code, true, true});
      d.filtro.condicoes.push_back({code, "", 0, 0});
    }
    support::WriteFile(Model(name), std::string("\1\0", 2) + Content(d) + "<!-- the end -->");
  }

  // Returns the document's columns with their titles, its sort keys, totals and conditions.
  std::string ReadModel(const std::string& name = "M") {
    CDocRelatorio d;
    EXPECT_TRUE(Load(d, support::ReadFile(Model(name)).substr(2)));
    std::ostringstream told;
    for (const CampoEscolhido& column : d.camposEscolhidos.campos)
      told << " " << column.codigo << column.cabecalho;
    const auto tell = [&told](const auto& records) {
      told << " |";
      for (const auto& record : records)
        told << " " << record.codigo;
    };
    tell(d.ordenacao.campos);
    tell(d.ordenacao.totalizacoes);
    tell(d.filtro.condicoes);
    return told.str();
  }

  std::string Renumber(const char16_t* module, std::size_t count, REL_CODIGO_CAMPOS_ALTERADOS* pairs) {
    ComPtr<IZNPL_RelConverte> converter;
    CRelConverte::Cria<CRelConverte>(IID_IZNPL_RelConverte, converter.OutVoid(), counter_, CreateStore);
    return ResultCode(
        converter->AlteraCodigoCampos(support::Text(module), support::Text(u"01"), static_cast<LONG>(count), pairs));
  }

  std::filesystem::path Model(const std::string& name = "M") const { return Folder() / ("CT01" + name + ".RXL"); }

  ComponenteMarcacao component_;
};

TEST_F(RenumberingTest, CodesTitlesAndPermissions) {
  REL_CODIGO_CAMPOS_ALTERADOS pairs[] = {{150, 165}, {150, 160}, {160, 170}, {180, 42},
                                         {181, 99},  {182, 100}, {5, 150}};
  const std::array<const char*, 4> cases[] = {
      {"without a catalogue nothing changes", "", "150", " 150title | 150 | 150 | 150"},
      {"once, by the last pair, above 99 only", "150cts 160cts 170cts 100cts", "150 160 180 181 182 300",
       " 160F160 170F170 180title 181title 100F100 300title | 160 170 180 181 100 300 | 160 170 180 181 100 300 | "
       "160 170 180 181 100 300"},
      {"titles of the catalogue for renumbered columns only", "170cts 300cts", "150 160 300",
       " 160title 170F170 300title | 160 170 300 | 160 170 300 | 160 170 300"},
      {"neighbours go, by the new code", "150cts 160- 301t 302s 303c", "150 150 301 302 303 150",
       " 160F160 160F160 301title 302title 303title 160F160 | 302 | 301 | 303"},
      {"a code that is not applied still needs permission", "180ct", "180", " 180title | | 180 | 180"},
      {"codes without a pair as well", "300t", "300 310", " 300title 310title | 310 | 300 310 | 310"},
      {"the last line of a code counts", "300cts 300-", "300", " 300title | | |"},
  };
  for (const auto& [what, catalogue, codes, expected] : cases) {
    SCOPED_TRACE(what);
    if (*catalogue != '\0') WriteCatalogue(catalogue);
    WriteModel(codes);
    EXPECT_EQ(Renumber(u"CT", std::size(pairs), pairs), "0x00000000");
    EXPECT_EQ(ReadModel(), expected);
    EXPECT_FALSE(support::ReadFile(Model()).ends_with("-->")) << "it is written anew in any case";
  }
  WriteCatalogue("170cts");
  WriteModel("160");
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01M.RXL", CFile::modeRead | CFile::shareExclusive));
  EXPECT_EQ(Renumber(u"CT", std::size(pairs), pairs), "0x00000000");
  EXPECT_EQ(ReadModel(), " 160title | 160 | 160 | 160") << "in other hands it stays";
  EXPECT_EQ(Renumber(u"??", std::size(pairs), pairs), "0x80043F59");
  EXPECT_EQ(Renumber(u"CT", 1, nullptr), ResultCode(E_INVALIDARG));
  EXPECT_EQ(counter_.count, 0);
}

// While the first models are flushed, another station writes and deletes models whose turn comes soon.
TEST_F(RenumberingTest, EachModelAsItIsInItsTurn) {
  constexpr unsigned kModels = 300;
  const auto name = [](unsigned i) { return "M" + std::to_string(1000 + i); };
  const auto told = [](unsigned code) {
    const std::string text = std::to_string(code);
    return " " + text + "title | " + text + " | " + text + " | " + text;
  };
  WriteCatalogue("100cts");
  std::vector<REL_CODIGO_CAMPOS_ALTERADOS> pairs;
  for (std::uint16_t i = 0; i < kModels; ++i) {
    WriteModel(std::to_string(1000 + i), name(i));
    pairs.push_back({static_cast<USHORT>(1000 + i), static_cast<USHORT>(2000 + i)});
  }
  std::string many;
  for (int i = 0; i < 2000; ++i)
    many += "1007 ";
  WriteModel(many, name(7));
  bool changed = false;
  counter_.told = [&](const Mudanca&) {
    if (std::exchange(changed, true)) return;
    for (unsigned i = 66; i < 120; ++i)
      WriteModel("1200", name(i));
    std::filesystem::remove(Model(name(90)));
  };
  EXPECT_EQ(Renumber(u"CT", pairs.size(), pairs.data()), "0x00000000");
  EXPECT_TRUE(changed);
  for (unsigned i = 0; i < kModels; ++i) {
    if (i == 90) continue;
    const std::string found = ReadModel(name(i));
    EXPECT_EQ(i == 7 ? found.substr(0, 11) : found,
              i == 7 ? " 2007title " : told(i >= 66 && i < 120 ? 2200 : 2000 + i));
  }
  EXPECT_FALSE(std::filesystem::exists(Model(name(90))));
}

}  // namespace
