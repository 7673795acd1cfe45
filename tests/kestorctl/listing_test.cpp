// Listing, deletion and the default report through the program, with two servers on one reports folder.
#include "fixture.h"

using testing::HasSubstr;

namespace {

class Listing : public KestorctlTest {
 protected:
  Listing() { SetUpHome(); }

  void TearDown() override {
    if (std::filesystem::exists(Folder() / "second")) EndServer(Second({"--json", "status"}));
    KestorctlTest::TearDown();
  }

  // In another home.
  Outcome Second(Arguments arguments) const {
    arguments.insert(arguments.begin(), {"--home", "second"});
    return Run(arguments);
  }

  void Write(const std::string& name) const { ASSERT_EQ(Run({"write", "CT", "01", name, "-"}, "x").status, 0); }
};

TEST_F(Listing, ModelsAsLinesAndAsADocument) {
  EXPECT_EQ(Run({"list", "CT", "01"}).output, "");
  EXPECT_EQ(Run({"list", "CT", "01", "--json"}).Document(),
            nlohmann::json({{"result", "0x00000000"}, {"names", nlohmann::json::array()}}));
  for (const char* name : {"Vendas", "Compras", "\u00C1gua"})
    Write(name);
  EXPECT_EQ(Run({"list", "CT", "01"}).output, "Compras\nVendas\n\u00C1gua\n");
  EXPECT_EQ(Run({"list", "CT", "02"}).output, "");
  EXPECT_EQ(Run({"list", "CT", "01", "--json"}).Document()["names"],
            nlohmann::json({"Compras", "Vendas", "\u00C1gua"}));
}

TEST_F(Listing, DefaultReport) {
  const auto none = nlohmann::json({{"result", "0x00000000"}, {"default", nullptr}});
  Write("Vendas");
  EXPECT_EQ(Run({"default", "CT", "01", "--json"}).Document(), none);
  const Outcome missing = Run({"default", "CT", "01", "Nada"});
  EXPECT_EQ(missing.status, 3);
  EXPECT_EQ(missing.errors, "kestorctl: 0x00000001 S_FALSE: no model of that name, or it cannot be opened\n");
  EXPECT_EQ(Run({"default", "CT", "01", "Vendas"}).status, 0);
  EXPECT_EQ(Run({"default", "CT", "01"}).output, "Vendas\n");
  EXPECT_EQ(Run({"default", "CT", "01", "Vendas", "--clear"}).status, 2);
  EXPECT_EQ(Run({"default", "CT", "01", "--clear", "--json"}).Document(), none);
  EXPECT_EQ(Run({"default", "CT", "01"}).output, "");

  // The record has room for seven characters: such a default is written and never found.
  Run({"write", "CT", "012345", "Vendas", "-"}, "x");
  const auto unfound = Run({"default", "CT", "012345", "Vendas", "--json"}).Document();
  EXPECT_EQ(unfound["default"], nullptr);
  EXPECT_THAT(unfound["note"].get<std::string>(), HasSubstr("at most 7 characters"));
}

TEST_F(Listing, Deletion) {
  const Outcome missing = Run({"delete", "CT", "01", "Nada", "--json"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.Document()["result"], "0x80070002");
  EXPECT_EQ(missing.Document()["deleted"], false);
  EXPECT_EQ(missing.Document()["detail"], "there is no model Nada");

  Write("Exemplo");
  EXPECT_EQ(Run({"delete", "CT", "01", "exemplo", "--demo", "--json"}).Document()["remembered"], true);
  EXPECT_EQ(Run({"deleted", "CT", "01"}).output, "exemplo\n");
  const Outcome refused = Run({"write", "CT", "01", "Exemplo", "-", "--check-demo"}, "x");
  EXPECT_EQ(refused.status, 3);
  EXPECT_THAT(refused.errors, HasSubstr("0x0004000C KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO"));

  // The registry names the file that cannot take the name.
  Write("Outro");
  std::filesystem::permissions(Reports() / "ZNRELDEL.DAT", std::filesystem::perms(0444));
  const Outcome forgotten = Run({"delete", "CT", "01", "Outro", "--demo"});
  EXPECT_EQ(forgotten.status, 0);
  EXPECT_THAT(forgotten.errors, HasSubstr("whether its name is remembered cannot be seen"));
  EXPECT_EQ(Registered("HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela\\Erros", "Arquivo"), "ZNRELDEL.DAT");
}

TEST_F(Listing, TwoServersShareAFolder) {
  ASSERT_EQ(Second({"setup", "--reports", Reports(), "--module", "CT=" + Contabil().string()}).status, 0);
  Write("Vendas");
  Write("Exemplo");
  EXPECT_EQ(Second({"default", "CT", "01", "Vendas"}).status, 0);
  EXPECT_EQ(Run({"default", "CT", "01"}).output, "Vendas\n");
  EXPECT_EQ(Run({"delete", "CT", "01", "Exemplo", "--demo"}).status, 0);
  EXPECT_EQ(Second({"list", "CT", "01"}).output, "Vendas\n");
  EXPECT_EQ(Second({"deleted", "CT", "01"}).output, "Exemplo\n");
  EXPECT_EQ(Second({"delete", "CT", "01", "Vendas"}).status, 0);
  EXPECT_EQ(Run({"default", "CT", "01"}).output, "");
  EXPECT_NE(Run({"status", "--json"}).Document()["server"]["pid"],
            Second({"status", "--json"}).Document()["server"]["pid"]);
}

}  // namespace
