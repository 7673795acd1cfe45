// Which file each operation means by a name, the meaning of names, and the folders that the registry names.
#include <gtest/gtest.h>
#include <set>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/texto_bstr.h"
#include "platform/registry/registry.h"
#include "support/installation.h"

namespace {

using namespace kestor;

using support::SetRegistryText;

const std::string kPrefix = "D:\\Rel.v2\\CT01";

TEST(Names, EachOperationHasItsRule) {
  // File names as the first generation reads, writes and updates them (companions differ only in the extension), and as
  // the second reads and writes them.
  const std::string rows[][6] = {
      {"Vendas", "Vendas.REL", "Vendas", "Vendas.REL", "Vendas.RXL", "Vendas.RXL"},
      {"Vendas.TXT", "Vendas.TXT", "Vendas", "Vendas.TXT.REL", "Vendas.TXT.RXL", "Vendas.TXT"},
      {"vendas.rel", "vendas.rel", "vendas", "vendas.rel", "vendas.rel.RXL", "vendas.rel"},
      {"a.Relv.x", "a.Relv.x", "a", "a.Relv.x", "a.Relv.x.RXL", "a.Relv.x"},
      {"Vendas.rxl", "Vendas.rxl", "Vendas", "Vendas.rxl.REL", "Vendas.rxl", "Vendas.rxl"},
      {"a.b.RXL", "a.b.RXL", "a", "a.b.RXL.REL", "a.b.RXL", "a.b.RXL"},
      {"Vendas.", "Vendas.", "Vendas", "Vendas..REL", "Vendas..RXL", "Vendas."},
      {"", ".REL", "", ".REL", ".RXL", ".RXL"}};
  for (const auto& [name, read, written, updated, read2, written2] : rows) {
    SCOPED_TRACE(name);
    EXPECT_EQ(CaminhoRelLido(kPrefix, name), kPrefix + read);
    EXPECT_EQ(CaminhoRelGravado(kPrefix, name), kPrefix + written + ".REL");
    EXPECT_EQ(CaminhoExportacao(kPrefix, name), kPrefix + written + ".REE");
    EXPECT_EQ(CaminhoFiltro(kPrefix, name), kPrefix + written + ".REF");
    EXPECT_EQ(CaminhoRelAtualizado(kPrefix, name), kPrefix + updated);
    EXPECT_EQ(CaminhoRelatorioLido(kPrefix, name), kPrefix + read2);
    EXPECT_EQ(CaminhoRelatorioGravado(kPrefix, name), kPrefix + written2);
  }
  EXPECT_EQ(CaminhoRelatorioLido("CT.R", "xl"), "CT.Rxl") << "the whole path ends in the extension";
  EXPECT_EQ(ModuloRel("ABC") + "," + ComponenteRel("DEFG"), "AB,DEF");
  EXPECT_EQ(CaminhoCatalogo("E:\\App.v2\\", "CT", "0001"), "E:\\App.v2\\XCT0001.REL");
  EXPECT_EQ(CaminhoCatalogo("E:\\", "CT", "0.1"), "E:\\XCT0.1");
}

TEST(Names, NamesOfOneFile) {
  const std::vector<std::string> files[] = {{"B", "b", "B.RXL", "b.rxl", "B.RXL.", "b.Rxl . ", "B.rxl "},
                                            {"B "},
                                            {"B.", "b.."},
                                            {"B.v2", "b.V2."},
                                            {"\xC9", "\xE9", "\xE9.rxl"},  // the accented letters as well
                                            {""}};
  std::set<std::string> keys;
  for (const auto& names : files) {
    EXPECT_TRUE(keys.insert(ChaveRelatorio(names[0])).second) << names[0];
    for (const std::string& name : names)
      EXPECT_EQ(ChaveRelatorio(name), ChaveRelatorio(names[0]));
  }
}

TEST(Names, WhatNamesSay) {
  EXPECT_EQ(NomeDoModelo("CT01.RXL", 4), "");
  EXPECT_EQ(NomeDoModelo("CT", 4), "") << "the codes had a wild card";
  EXPECT_EQ(NomeDoArquivo("b").size() + PastaDoCaminho("b").size() + NomeDoArquivo("D:\\").size(), 0U);
  for (const char* name : {"..\\A", "a/b", "D:A", "A. v2"})
    EXPECT_EQ(FicaNaPasta(name), *name == 'A') << name;
  EXPECT_EQ(TextoDeBstr(nullptr), "");
  EXPECT_EQ(TextoDeBstr(support::Text(u"\u00C1gua \u20AC \u65E5\u672C")), "\xC1gua \x80 ??");
}

TEST(Folders, AreThoseOfTheRegistryWithABackslashAtTheirEnd) {
  using Folders = CCaminhosInstalacao;
  constexpr WORD kNoFolder = 16217;
  const support::TempHome home;
  std::string folder = "kept";
  EXPECT_EQ(Folders::BuscaCaminhoRelatorios(folder), kNoFolder);
  EXPECT_EQ(folder, "kept");
  // The type of the value does not matter, only its bytes up to the first NUL.
  registry::OwnedKey key;
  ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela", key.Out()), 0);
  for (const auto& [size, expected] : {std::pair(0U, ""), {3U, "E:\\"}, {4U, "E:\\R\\"}, {9U, "E:\\R\\"}}) {
    RegSetValueExA(key.Get(), "Relatorios", 0, REG_BINARY, reinterpret_cast<const BYTE*>("E:\\R\0tail"), size);
    EXPECT_EQ(Folders::BuscaCaminhoRelatorios(folder), 0U);
    EXPECT_EQ(folder, expected) << size;
  }

  EXPECT_EQ(Folders::BuscaCaminhoModulo("CT", folder), kNoFolder);
  SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil");
  EXPECT_EQ(Folders::BuscaCaminhoModulo("ct", folder), 0U);
  EXPECT_EQ(folder, "D:\\Contabil\\");
  for (const char* code : {"ZZ", "", "CTX", "C"}) {
    EXPECT_EQ(Folders::BuscaCaminhoModulo(code, folder), kNoFolder);
    EXPECT_EQ(folder, "");
  }
  support::WriteFile(home.Home() / "registry.reg", "damaged");
  EXPECT_EQ(Folders::BuscaCaminhoRelatorios(folder), kNoFolder);
}

}  // namespace
