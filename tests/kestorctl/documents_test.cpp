// Report documents through the program and the server: migrating, showing and renumbering them.
#include "fixture.h"

using nlohmann::json;

namespace {

// Models of every layout, a catalogue and export settings, as the examples have them.
class Documents : public KestorctlTest {
 protected:
  Documents() {
    SetUpHome();
    std::filesystem::copy(Example("XCT01.REL"), Contabil());
  }

  static std::filesystem::path Example(const std::string& file) {
    return std::filesystem::path(KESTOR_EXAMPLES) / "contabil" / file;
  }

  void PutModel(const std::string& name, std::size_t bytes = std::string::npos) const {
    support::WriteFile(Reports() / ("CT01" + name + ".REL"),
                       support::ReadFile(Example(name + ".REL")).substr(0, bytes));
  }

  void PutAllModels() const {
    for (const char* name : {"Diario", "Razao", "Balancete", "Plano de contas"})
      PutModel(name);
    std::filesystem::copy(Example("Balancete.REE"), Reports() / "CT01Balancete.REE");
  }
};

TEST_F(Documents, EachModelIsToldItsFate) {
  PutAllModels();
  const std::string cut = support::ReadFile(Example("Razao.REL")).substr(0, 200);
  support::WriteFile(Reports() / "CT01Cortado.REL", cut);
  support::WriteFile(Reports() / "CT01DIARIO.RXL", "kept");

  const Outcome migrated = Run({"--json", "migrate", "CT", "01"});
  EXPECT_EQ(migrated.status, 0);
  json document = migrated.Document();
  EXPECT_EQ(document["converted"], json({"Balancete", "Plano de contas", "Razao"}));
  EXPECT_EQ(document["dropped"], json({"Diario"}));
  EXPECT_EQ(document["stayed"][0]["name"], "Cortado");
  EXPECT_EQ(support::ReadFile(Reports() / "CT01DIARIO.RXL"), "kept");
  EXPECT_EQ(support::ReadFile(Reports() / "CT01Cortado.REL"), cut);
  EXPECT_THAT(support::Names(Reports()),
              testing::ElementsAre("CT01Balancete.RXL", "CT01Cortado.REL", "CT01DIARIO.RXL", "CT01Plano de contas.RXL",
                                   "CT01Razao.RXL", "ZNRELDEL.DAT"));
  EXPECT_EQ(Run({"migrate", "CT", "01"}).output,
            "stays: Cortado: its content is empty, cut short, or of a version that is not known\n");

  support::WriteFile(Reports() / "CT01cortado.REL", cut);
  EXPECT_THAT(Run({"migrate", "CT", "01"}).output,
              testing::HasSubstr("stays: cortado: the files CT01Cortado.REL and CT01cortado.REL differ in letter case "
                                 "alone: rename or remove one of them\n"));

  std::filesystem::remove(Contabil() / "XCT01.REL");
  PutModel("Diario");
  std::filesystem::remove(Reports() / "CT01DIARIO.RXL");
  EXPECT_THAT(Run({"migrate", "CT", "01"}).output,
              testing::HasSubstr(
                  "stays: Diario: the field catalogue cannot be read (0x80040001: there is no file E:\\XCT01.REL)\n"));
}

TEST_F(Documents, APageForPeopleAndAnObjectForPrograms) {
  PutAllModels();
  EXPECT_EQ(Run({"show", "CT", "01", "Balancete"}).output,
            "report      Balancete\n"
            "\nColumns\n"
            "CODE  TITLE           TYPE     ALIGNED  WIDTH  FIXED  CONTENT    FORMAT\n"
            " 101  ContaCodigo     account  left        18\n"
            "   1  ContaDescricao  text     left        40  fixed  Descri\u00E7\u00E3o\n"
            " 302  SaldoAnterior   amount   right       16\n"
            " 303  SaldoDebitos    amount   right       16\n"
            " 304  SaldoCreditos   amount   right       16\n"
            " 306  SaldoAtual      amount   right       16\n"
            "\nSorted\n"
            "  by 108, between groups a line\n"
            "  by 101 (ContaCodigo), between groups nothing\n"
            "\nTotals\n"
            "  303 (SaldoDebitos) at each break and at the end\n"
            "  304 (SaldoCreditos) at each break and at the end\n"
            "  306 (SaldoAtual) at the end\n"
            "\nLines where\n"
            "  306 (SaldoAtual) is not \"0,00\"\n"
            "  and 105 is at most \"3\"\n"
            "\nPage\n"
            "  paper     portrait\n"
            "  margins   left 1.5, top 1.5\n"
            "  numbers   by page, from 1\n"
            "  header    \"Balancete de verifica\u00E7\u00E3o\"\n"
            "  prints    period, logo\n"
            "  fonts     header Arial 14, titles Arial 9, lines Courier New 8, footer Arial 8\n"
            "  footer    \"Fim\"\n"
            "\nExport file\n"
            "  header    \"Balancete de verifica\u00E7\u00E3o\", width 24, text\n"
            "  footer    \"Fim do balancete\", width 16, text\n");
  const json told = Run({"--json", "show", "CT", "01", "Balancete"}).Document();
  EXPECT_EQ(told["version"], 1);
  EXPECT_EQ(told["document"]["columns"][1], json({{"code", 1},
                                                  {"title", "ContaDescricao"},
                                                  {"content", "Descri\u00E7\u00E3o"},
                                                  {"width", 40},
                                                  {"alignment", "E"},
                                                  {"type", "A"},
                                                  {"fixed", true},
                                                  {"format", ""}}));
  EXPECT_EQ(told["document"]["filter"][0]["operator"], "is not");

  ExpectTold(Run({"show", "CT", "01", "Nada"}), 3, "0x00040001");
  support::WriteFile(Reports() / "CT01Dois.RXL", std::string("\2\0x", 3));
  ExpectTold(Run({"show", "CT", "01", "Dois"}), 1, "a content of version 2 is no report document");
  support::WriteFile(Reports() / "CT01Torto.RXL", std::string("\1\0<relatorio>", 13));
  ExpectTold(Run({"show", "CT", "01", "Torto"}), 1, "its content is no report document, line 1: ");
}

TEST_F(Documents, RenumberingTellsWhatItLeftAlone) {
  PutAllModels();
  Run({"migrate", "CT", "01"});
  support::WriteFile(Reports() / "CT01Dois.RXL", std::string("\2\0x", 3));
  std::filesystem::copy(Reports() / "CT01Razao.RXL", Reports() / "CT01Copia.RXL");
  std::string balancete = support::ReadFile(Reports() / "CT01Balancete.RXL");
  balancete.replace(balancete.find("nome=\"Balancete"), 15, "nome=\"BALANCETE.RXL");
  support::WriteFile(Reports() / "CT01Balancete.RXL", balancete);
  const Outcome renumbered = Run({"renumber", "CT", "01", "302=301", "101=110"});
  EXPECT_EQ(renumbered.status, 0);
  EXPECT_EQ(renumbered.output,
            "renumbered: Balancete\n"
            "not changed: Copia: its document bears another name, \"Razao\"\n"
            "not changed: Dois: a content of version 2 is no report document\n"
            "renumbered: Plano de contas\n"
            "renumbered: Razao\n");
  const json columns = Run({"--json", "show", "CT", "01", "Balancete"}).Document()["document"]["columns"];
  EXPECT_EQ(columns[0]["title"], "ContaReferencial");
  EXPECT_EQ(columns[2]["code"], 301);
  EXPECT_EQ(Run({"--json", "show", "CT", "01", "Razao"}).Document()["document"]["sortKeys"][0]["code"], 110);

  // The server takes places of fixed columns for field codes, and codes that no field has.
  for (const char* pair : {"", "1", "a=1", "1=", "70000=1", "1=2=3", "-1=5", "302=99", "1=301"})
    EXPECT_EQ(Run({"renumber", "CT", "01", "--", pair}).status, 2) << pair;
  EXPECT_EQ(Run({"renumber", "CT", "01"}).status, 2);
  ExpectTold(Run({"renumber", "ZZ", "01", "100=200"}), 1, "0x80043F59");
  const Outcome unknown = Run({"renumber", "CT", "01", "301=9999"});
  EXPECT_EQ(unknown.status, 0);
  EXPECT_EQ(unknown.errors, "the field catalogue has no field 9999\n");
  std::filesystem::remove(Contabil() / "XCT01.REL");
  ExpectTold(Run({"renumber", "CT", "01", "301=302"}), 1, "0x80040001");
}

}  // namespace
