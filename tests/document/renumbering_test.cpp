// Renumbering over a store in this process.
#include <gmock/gmock.h>
#include <map>
#include <sstream>

#include "../store/create_store.h"
#include "contract/results.h"
#include "document/rel_converte.h"
#include "document_fixture.h"
#include "platform/files/files.h"
#include "support/installation.h"
#include "support/support.h"

namespace {

using namespace kestor;
using Pairs = std::vector<REL_CODIGO_CAMPOS_ALTERADOS>;

class Counter final : public ContagemServidor {
 public:
  LONG Trava() override { return highest = std::max(highest, ++count), count; }
  LONG Destrava() override { return --count; }
  LONG count = 0;
  LONG highest = 0;
};

class RenumberingTest : public DocumentTest {
 protected:
  RenumberingTest() {
    std::filesystem::create_directories(Folder());
    std::filesystem::create_directories(home_.Data() / "Contabil");
    support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\Rel");
    support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil");
  }

  std::filesystem::path Folder() const { return home_.Data() / "Rel"; }

  // A catalogue with the fields `codes`, whose aliases are "F" and the code, and what each allows: condition, total,
  // sort.
  void WriteCatalogue(const std::vector<std::pair<int, std::string>>& fields) {
    std::string lines;
    for (const auto& [code, allowed] : fields)
      lines += CatalogueLine(code, allowed);
    support::WriteFile(home_.Data() / "Contabil" / "XCT01.REL", lines);
  }

  void WriteModel(const std::string& name, const std::string& content, char version = 1) {
    support::WriteFile(Folder() / ("CT01" + name + ".RXL"), std::string{version, '\0'} + content);
  }

  CDocRelatorio& ReadModel(const std::string& name, CDocRelatorio& document) {
    const std::string file = support::ReadFile(Folder() / ("CT01" + name + ".RXL"));
    EXPECT_TRUE(Load(document, file.substr(2))) << name;
    return document;
  }

  HRESULT Renumber(Pairs pairs, const char16_t* module = u"CT") {
    ComPtr<IZNPL_RelConverte> converter;
    CRelConverte::Cria<CRelConverte>(IID_IZNPL_RelConverte, converter.OutVoid(), counter_, CreateStore);
    return converter->AlteraCodigoCampos(support::Text(module), support::Text(u"01"), static_cast<LONG>(pairs.size()),
                                         pairs.data());
  }

  support::TempHome home_;
  Counter counter_;

 private:
  static std::string CatalogueLine(int code, const std::string& allowed);
};

std::string RenumberingTest::CatalogueLine(int code, const std::string& allowed) {
  std::string line(69, ' ');
  const auto put = [&line](std::size_t column, const std::string& text) { line.replace(column, text.size(), text); };
  put(0, std::to_string(code));
  put(27, "F" + std::to_string(code));
  put(57, allowed.find('c') != std::string::npos ? "S" : "N");
  put(63, allowed.find('t') != std::string::npos ? "S" : "N");
  put(66, allowed.find('s') != std::string::npos ? "S" : "N");
  return line + "\r\n";
}

CampoEscolhido Column(std::uint16_t code, bool fixed = false) {
  return {code, "title", "", 10, 'E', 'A', fixed, 0};
}

// The codes and titles of a document: columns, sort keys, totals, conditions.
std::string Codes(const CDocRelatorio& d) {
  std::string codes;
  for (const auto& column : d.camposEscolhidos.campos)
    codes += std::to_string(column.codigo) + column.cabecalho + " ";
  codes += "|";
  for (const auto& key : d.ordenacao.campos)
    codes += " " + std::to_string(key.codigo);
  codes += " |";
  for (const auto& total : d.ordenacao.totalizacoes)
    codes += " " + std::to_string(total.codigo);
  codes += " |";
  for (const auto& condition : d.filtro.condicoes)
    codes += " " + std::to_string(condition.codigo);
  return codes;
}

TEST_F(RenumberingTest, CodesTitlesAndPermissions) {
  const Pairs pairs = {{150, 165}, {150, 160}, {160, 170}, {180, 42}, {181, 99}, {182, 100}, {5, 150}};
  struct Case {
    const char* what;
    std::vector<std::pair<int, std::string>> catalogue;
    Pairs pairs;
    std::string codes;  // of columns, sort keys, totals and conditions alike
    std::string expected;
  };
  const Case cases[] = {
      {"once, by the last pair, above 99 only",
       {{150, "cts"}, {160, "cts"}, {170, "cts"}, {100, "cts"}},
       pairs,
       "150 160 180 181 182 300",
       "160F160 170F170 180title 181title 100F100 300title | 160 170 180 181 100 300 | 160 170 180 181 100 300 | 160 "
       "170 "
       "180 181 100 300"},
      {"titles of the catalogue for renumbered columns only",
       {{170, "cts"}, {300, "cts"}},
       pairs,
       "150 160 300",
       "160title 170F170 300title | 160 170 300 | 160 170 300 | 160 170 300"},
      {"neighbours go, by the new code",
       {{150, "cts"}, {160, ""}, {301, "t"}, {302, "s"}, {303, "c"}},
       pairs,
       "150 150 301 302 303 150",
       "160F160 160F160 301title 302title 303title 160F160 | 302 | 301 | 303"},
      {"a code that is not applied still needs permission", {{180, "ct"}}, pairs, "180", "180title | | 180 | 180"},
      {"no pairs", {{150, "t"}}, {}, "150 160", "150title 160title | 160 | 150 160 | 160"},
      {"the last line of a code counts", {{150, "cts"}, {150, ""}}, {}, "150", "150title | | |"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    WriteCatalogue(c.catalogue);
    CDocRelatorio d;
    d.nome = "M";
    std::istringstream codes(c.codes);
    for (std::uint16_t code = 0; codes >> code;) {
      d.camposEscolhidos.campos.push_back(Column(code));
      d.ordenacao.campos.push_back({code, 0});
      d.ordenacao.totalizacoes.push_back({code, true, true});
      d.filtro.condicoes.push_back({code, "", 0, 0});
    }
    WriteModel("M", Content(d));
    EXPECT_EQ(Renumber(c.pairs), S_OK);
    CDocRelatorio changed;
    EXPECT_EQ(Codes(ReadModel("M", changed)), c.expected);
  }
  EXPECT_EQ(counter_.count, 0);
  EXPECT_EQ(counter_.highest, 2);  // the store counts among the live objects while it works
}

// What happens to each of the files that a folder of twenty years holds, and that nothing else is touched.
TEST_F(RenumberingTest, EachFileOfAFolder) {
  WriteCatalogue({{160, "cts"}});
  CDocRelatorio d;
  d.camposEscolhidos.campos = {Column(150), Column(300, true)};
  d.ordenacao.totalizacoes = {{9, false, false}};
  for (const char* name : {"Antes", "Sim", "Outro"}) {
    d.nome = std::string(name) == "Outro" ? "Novo" : name;
    WriteModel(name, Content(d));
  }
  WriteModel("Versao2", Content(d), 2);
  WriteModel("Cortado", Content(d).substr(0, 500));
  WriteModel("Vazio", "");
  d.nome = "Preso";
  WriteModel("Preso", Content(d));
  support::WriteFile(Folder() / "CT02Sim.RXL", "another component's");
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Rel\\CT01Preso.RXL", CFile::modeRead | CFile::shareExclusive));

  std::map<std::string, std::string> before;
  for (const std::string& name : support::Names(Folder()))
    before[name] = support::ReadFile(Folder() / name);
  EXPECT_EQ(Renumber({{150, 160}}), S_OK);
  held.Close();

  std::vector<std::string> changed;
  for (const std::string& name : support::Names(Folder())) {
    if (before[name] != support::ReadFile(Folder() / name)) changed.push_back(name);
  }
  EXPECT_THAT(changed, testing::ElementsAre("CT01Antes.RXL", "CT01Novo.RXL", "CT01Sim.RXL", "ZNRELDEL.DAT"));
  for (const char* name : {"Antes", "Novo", "Sim"}) {
    CDocRelatorio now;
    EXPECT_EQ(Codes(ReadModel(name, now)), "160F160 1title | | |");
    EXPECT_EQ(now.nome, name);
  }
}

// No code is replaced twice, and no file outside the folder, whatever names the documents bear.
TEST_F(RenumberingTest, NamesOfDocuments) {
  WriteCatalogue({});
  CDocRelatorio d;
  d.camposEscolhidos.campos = {Column(150)};
  const auto put = [&](const std::string& name, const std::string& ownName) {
    d.nome = ownName;
    WriteModel(name, Content(d));
  };
  put("A", "b");
  put("B", "B");
  put("Fora", "\\..\\..\\Contabil\\XCT01.REL");
  put("M", "M");
  put("m.v2", "M");  // listed as m
  // Other names of the files that come next.
  const std::pair<const char*, const char*> aliases[] = {{"X1", "X2.RXL"}, {"Y1", "y2.RXL"}, {"Z1", "Z2.RXL. "}};
  for (const auto& [name, alias] : aliases) {
    put(name, alias);
    put(std::string(1, name[0]) + "2", "");
  }
  EXPECT_EQ(Renumber({{150, 160}, {160, 170}}), S_OK);
  EXPECT_EQ(support::ReadFile(home_.Data() / "Contabil" / "XCT01.REL"), "");
  const std::map<std::string, std::string> expected = {
      {"A", "150title | | |"},  {"b", "160title | | |"},  {"M", "160title | | |"}, {"Fora", "150title | | |"},
      {"X2", "160title | | |"}, {"y2", "160title | | |"}, {"Z2", "160title | | |"}};
  for (const auto& [name, codes] : expected) {
    CDocRelatorio now;
    EXPECT_EQ(Codes(ReadModel(name, now)), codes) << name;
  }
}

TEST_F(RenumberingTest, WithoutCatalogueModelsAreOnlyNormalised) {
  CDocRelatorio d;
  d.nome = "M";
  d.camposEscolhidos.campos = {Column(150)};
  d.ordenacao.totalizacoes = {{9, false, false}};
  std::string content = Content(d);
  WriteModel("M", content + "<!-- the end -->");
  EXPECT_EQ(Renumber({{150, 160}}), S_OK);
  EXPECT_EQ(support::ReadFile(Folder() / "CT01M.RXL").substr(2), content);
}

TEST_F(RenumberingTest, NothingIsChangedWithoutAStore) {
  WriteModel("M", "x");
  EXPECT_EQ(Renumber({}, u"??"), ServiceError(0x3F59));
  ComPtr<IZNPL_RelConverte> converter;
  CRelConverte::Cria<CRelConverte>(IID_IZNPL_RelConverte, converter.OutVoid(), counter_,
                                   [](ContagemServidor&, REFIID, void**) -> HRESULT { return E_FAIL; });
  EXPECT_EQ(converter->AlteraCodigoCampos(nullptr, nullptr, 0, nullptr), E_OUTOFMEMORY);
  EXPECT_EQ(converter->AlteraCodigoCampos(nullptr, nullptr, 1, nullptr), E_INVALIDARG);
  EXPECT_THAT(support::Names(Folder()), testing::ElementsAre("CT01M.RXL"));
}

}  // namespace
