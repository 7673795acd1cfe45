// Renumbering over a store in this process.
#include <array>
#include <gmock/gmock.h>
#include <map>
#include <sstream>

#include "../store/store_fixture.h"
#include "document/rel_converte.h"
#include "document_fixture.h"
#include "platform/files/files.h"

namespace {

using namespace kestor;
using Pairs = std::vector<REL_CODIGO_CAMPOS_ALTERADOS>;

// A document that has each of the codes as a column, a sort key, a total and a condition.
std::string Document(const std::string& name, const std::string& codes = "150") {
  CDocRelatorio d;
  d.nome = name;
  std::istringstream words(codes);
  for (std::uint16_t code = 0; words >> code;) {
    d.camposEscolhidos.campos.push_back({code, "title", "", 10, 'E', 'A', false, 0});
    d.ordenacao.campos.push_back({code, 0});
    d.ordenacao.totalizacoes.push_back({code, true, true});
    d.filtro.condicoes.push_back({code, "", 0, 0});
  }
  return Content(d);
}

class RenumberingTest : public StoreTest {
 protected:
  std::filesystem::path Catalogue() const { return home_.Data() / "Contabil" / "XCT01.REL"; }
  std::filesystem::path Model(const std::string& name) const { return Folder() / ("CT01" + name + ".RXL"); }

  // Fields with what each allows, as in "150cts 160-": condition, total, sort. Their aliases are "F" and the code.
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
    std::filesystem::create_directories(Catalogue().parent_path());
    support::WriteFile(Catalogue(), lines);
  }

  void WriteModel(const std::string& name, const std::string& content, char version = 1) {
    support::WriteFile(Model(name), std::string{version, '\0'} + content);
  }

  // The name that the document of a model bears, its columns with their titles, its sort keys, totals and conditions.
  std::string Read(const std::string& name) {
    CDocRelatorio d;
    EXPECT_TRUE(Load(d, support::ReadFile(Model(name)).substr(2))) << name;
    std::ostringstream told;
    told << d.nome << ":";
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

  HRESULT Renumber(Pairs pairs, const char16_t* module = u"CT") {
    ComPtr<IZNPL_RelConverte> converter;
    CRelConverte::Cria<CRelConverte>(IID_IZNPL_RelConverte, converter.OutVoid(), counter_, CreateStore);
    return converter->AlteraCodigoCampos(support::Text(module), support::Text(u"01"), static_cast<LONG>(pairs.size()),
                                         pairs.data());
  }

  ComponenteMarcacao component_;
};

TEST_F(RenumberingTest, CodesTitlesAndPermissions) {
  const Pairs pairs = {{150, 165}, {150, 160}, {160, 170}, {180, 42}, {181, 99}, {182, 100}, {5, 150}};
  const std::array<const char*, 4> cases[] = {
      {"without a catalogue nothing changes", nullptr, "150", "150title | 150 | 150 | 150"},
      {"once, by the last pair, above 99 only", "150cts 160cts 170cts 100cts", "150 160 180 181 182 300",
       "160F160 170F170 180title 181title 100F100 300title | 160 170 180 181 100 300 | 160 170 180 181 100 300 | "
       "160 170 180 181 100 300"},
      {"titles of the catalogue for renumbered columns only", "170cts 300cts", "150 160 300",
       "160title 170F170 300title | 160 170 300 | 160 170 300 | 160 170 300"},
      {"neighbours go, by the new code", "150cts 160- 301t 302s 303c", "150 150 301 302 303 150",
       "160F160 160F160 301title 302title 303title 160F160 | 302 | 301 | 303"},
      {"a code that is not applied still needs permission", "180ct", "180", "180title | | 180 | 180"},
      {"codes without a pair as well", "300t", "300 310", "300title 310title | 310 | 300 310 | 310"},
      {"the last line of a code counts", "300cts 300-", "300", "300title | | |"},
  };
  for (const auto& [what, catalogue, codes, expected] : cases) {
    SCOPED_TRACE(what);
    if (catalogue != nullptr) WriteCatalogue(catalogue);
    WriteModel("M", Document("M", codes) + "<!-- the end -->");
    EXPECT_EQ(Renumber(pairs), S_OK);
    EXPECT_EQ(Read("M"), std::string("M: ") + expected);
    EXPECT_FALSE(support::ReadFile(Model("M")).ends_with("-->")) << "it is written anew in any case";
  }
  EXPECT_EQ(counter_.count, 0);
}

// What happens to each of the files that a folder of twenty years holds. No code is replaced twice, and no file outside
// the folder, whatever names the documents bear.
TEST_F(RenumberingTest, EachFileOfAFolder) {
  WriteCatalogue("160cts");
  // File, name that its document bears, file afterwards, code afterwards. m.v2 is listed as m. A and Z1 bear
  // other names of the files that come next.
  const std::array<const char*, 4> models[] = {{"Sim", "Sim", "Sim", "160"},
                                               {"Outro", "Novo", "Outro", "150"},
                                               {"Preso", "Preso", "Preso", "150"},
                                               {"A", "b", "A", "150"},
                                               {"B", "B", "b", "160"},
                                               {"Fora", "\\..\\..\\..\\Contabil\\XCT01.REL", "Fora", "150"},
                                               {"M", "M", "M", "160"},
                                               {"m.v2", "M", "m.v2", "150"},
                                               {"Z1", "Z2.RXL. ", "Z1", "150"},
                                               {"Z2", "", "Z2", "160"}};
  for (const auto& [file, borne, fileAfterwards, code] : models)
    WriteModel(file, Document(borne));
  WriteModel("Versao2", Document("Versao2"), 2);
  WriteModel("Cortado", Document("Cortado").substr(0, 500));
  WriteModel("Vazio", "");
  std::filesystem::copy(Model("Sim"), Folder() / "CT02Sim.RXL");
  std::map<std::string, std::string> others;
  for (const char* name : {"CT01Versao2.RXL", "CT01Cortado.RXL", "CT01Vazio.RXL", "CT02Sim.RXL"})
    others[name] = support::ReadFile(Folder() / name);
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01Preso.RXL", CFile::modeRead | CFile::shareExclusive));

  EXPECT_EQ(Renumber({{150, 160}, {160, 170}}), S_OK);
  held.Close();
  for (const auto& [file, borne, fileAfterwards, code] : models)
    EXPECT_THAT(Read(fileAfterwards), testing::HasSubstr(std::string(": ") + code)) << file;
  for (const auto& [name, content] : others)
    EXPECT_EQ(support::ReadFile(Folder() / name), content) << name;
  EXPECT_TRUE(support::ReadFile(Catalogue()).starts_with("160"));
  EXPECT_EQ(Read("Novo"), "Novo: 160F160 | 160 | 160 | 160");
  EXPECT_EQ(support::Names(Folder()).size(), std::size(models) + others.size() + 2);  // with Novo and ZNRELDEL.DAT
}

TEST_F(RenumberingTest, NothingIsChangedWithoutAStore) {
  EXPECT_EQ(Renumber({}, u"??"), ServiceError(0x3F59));
  ComPtr<IZNPL_RelConverte> converter;
  CRelConverte::Cria<CRelConverte>(IID_IZNPL_RelConverte, converter.OutVoid(), counter_,
                                   [](ContagemServidor&, REFIID, void**) -> HRESULT { return E_FAIL; });
  EXPECT_EQ(converter->AlteraCodigoCampos(nullptr, nullptr, 0, nullptr), E_OUTOFMEMORY);
  EXPECT_EQ(converter->AlteraCodigoCampos(nullptr, nullptr, 1, nullptr), E_INVALIDARG);
}

}  // namespace
