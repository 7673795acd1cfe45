// Which file each operation means by a name, and what names say.
#include "common/nomes_arquivos.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace kestor;

const std::string kPrefix = "D:\\Rel.v2\\CT01";

TEST(Names, EachOperationHasItsRule) {
  struct Row {
    const char* name;
    const char* read;     // first generation
    const char* written;  // its companions differ in the extension alone
    const char* updated;
    const char* read2;  // second generation
    const char* written2;
  };
  const Row rows[] = {
      {"Vendas", "Vendas.REL", "Vendas.REL", "Vendas.REL", "Vendas.RXL", "Vendas.RXL"},
      {"Vendas.TXT", "Vendas.TXT", "Vendas.REL", "Vendas.TXT.REL", "Vendas.TXT.RXL", "Vendas.TXT"},
      {"vendas.rel", "vendas.rel", "vendas.REL", "vendas.rel", "vendas.rel.RXL", "vendas.rel"},
      {"a.Relv.x", "a.Relv.x", "a.REL", "a.Relv.x", "a.Relv.x.RXL", "a.Relv.x"},
      {"Vendas.rxl", "Vendas.rxl", "Vendas.REL", "Vendas.rxl.REL", "Vendas.rxl", "Vendas.rxl"},
      {"a.b.RXL", "a.b.RXL", "a.REL", "a.b.RXL.REL", "a.b.RXL", "a.b.RXL"},
      {"Vendas.", "Vendas.", "Vendas.REL", "Vendas..REL", "Vendas..RXL", "Vendas."},
      {".x", ".x", ".REL", ".x.REL", ".x.RXL", ".x"},
      {"", ".REL", ".REL", ".REL", ".RXL", ".RXL"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string stem = std::string(row.written).substr(0, std::string(row.written).size() - 4);
    EXPECT_EQ(CaminhoRelLido(kPrefix, row.name), kPrefix + row.read);
    EXPECT_EQ(CaminhoRelGravado(kPrefix, row.name), kPrefix + row.written);
    EXPECT_EQ(CaminhoExportacao(kPrefix, row.name), kPrefix + stem + ".REE");
    EXPECT_EQ(CaminhoFiltro(kPrefix, row.name), kPrefix + stem + ".REF");
    EXPECT_EQ(CaminhoRelAtualizado(kPrefix, row.name), kPrefix + row.updated);
    EXPECT_EQ(CaminhoRelatorioLido(kPrefix, row.name), kPrefix + row.read2);
    EXPECT_EQ(CaminhoRelatorioGravado(kPrefix, row.name), kPrefix + row.written2);
  }
  EXPECT_EQ(CaminhosRelExcluidos(kPrefix, "A"), (std::vector<std::string>{kPrefix + "A.REL", kPrefix + "A.REE"}));
  EXPECT_EQ(CaminhosRelExcluidos(kPrefix, "A.REE"), (std::vector<std::string>{kPrefix + "A.REE"}));
  EXPECT_EQ(CaminhoRelatorioLido("CT.R", "xl"), "CT.Rxl") << "the whole path ends in the extension";
}

TEST(Names, CodesCataloguesAndRecordFiles) {
  EXPECT_EQ(ModuloRel("ABC") + "," + ModuloRel("A") + "," + ComponenteRel("DEFG") + "," + ComponenteRel("01"),
            "AB,A,DEF,01");
  EXPECT_EQ(CaminhoCatalogo("E:\\App.v2\\", "CT", "0001"), "E:\\App.v2\\XCT0001.REL");
  EXPECT_EQ(CaminhoCatalogo("E:\\", "CT", "0.1"), "E:\\XCT0.1");
  EXPECT_EQ(CaminhoPadroes("D:\\") + CaminhoExcluidos("D:\\") + CaminhoControle("D:\\"),
            "D:\\ZNRELPAD.DATD:\\ZNRELDEL.DATD:\\ZNCTLARQ.DAT");
}

TEST(Names, NamesOfOneFile) {
  const std::vector<std::vector<std::string>> files = {
      {"B", "b", "B.RXL", "b.rxl", "B.RXL.", "b.Rxl . ", "B.rxl "},
      {"B "},
      {"B.", "b.."},
      {"B.v2", "b.V2."},
      {"\xC9", "\xE9", "\xE9.rxl"},  // the accented letters as well
      {""},
  };
  for (std::size_t i = 0; i < files.size(); ++i) {
    for (const std::string& name : files[i]) {
      for (std::size_t other = 0; other < files.size(); ++other)
        EXPECT_EQ(ChaveRelatorio(name) == ChaveRelatorio(files[other].front()), i == other) << name << " " << other;
    }
  }
}

TEST(Names, WhatNamesSay) {
  EXPECT_EQ(NomeDoModelo("CT01Vendas.v2.RXL", 4), "Vendas");
  EXPECT_EQ(NomeDoModelo("CT01.RXL", 4), "");
  EXPECT_EQ(NomeDoModelo("CT", 4), "") << "the codes had a wild card";
  EXPECT_EQ(std::string(PastaDoCaminho("D:\\a\\b")) + "|" + std::string(NomeDoArquivo("D:\\a\\b")), "D:\\a\\|b");
  EXPECT_EQ(NomeDoArquivo("b").size() + PastaDoCaminho("b").size() + NomeDoArquivo("D:\\").size(), 0U);
  for (const char* name : {"..\\A", "a/b", "D:A"})
    EXPECT_FALSE(FicaNaPasta(name)) << name;
  EXPECT_TRUE(FicaNaPasta("A. v2"));
}

}  // namespace
