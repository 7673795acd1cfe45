// The folder lookups in the registry.
#include <gtest/gtest.h>
#include <set>

#include "common/caminhos_instalacao.h"
#include "common/texto_bstr.h"
#include "platform/registry/registry.h"
#include "support/installation.h"

namespace {

using kestor::CCaminhosInstalacao;
using support::SetRegistryText;

TEST(Folders, ReportsFolder) {
  const support::TempHome home;
  std::string folder = "kept";
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 16217U);
  SetRegistryText("SOFTWARE\\Norvela", "Other", "x");
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 16217U);
  EXPECT_EQ(folder, "kept");

  const std::vector<std::pair<std::string, std::string>> cases = {
      {"C:\\Rel", "C:\\Rel\\"}, {"C:\\Rel\\", "C:\\Rel\\"}, {"D:\\", "D:\\"}, {"", ""}};
  for (const auto& [entered, expected] : cases) {
    SetRegistryText("SOFTWARE\\Norvela", "Relatorios", entered);
    EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 0U);
    EXPECT_EQ(folder, expected);
  }

  // The type of the value does not count, only its bytes up to the first NUL.
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela", &key), 0);
  RegSetValueExA(key, "Relatorios", 0, REG_BINARY, reinterpret_cast<const BYTE*>("E:\\R\0tail"), 9);
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 0U);
  EXPECT_EQ(folder, "E:\\R\\");
  RegSetValueExA(key, "Relatorios", 0, REG_BINARY, reinterpret_cast<const BYTE*>("E:\\Unended"), 10);
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 0U);
  EXPECT_EQ(folder, "E:\\Unended\\");
  RegCloseKey(key);

  support::WriteFile(home.Home() / "registry.reg", "damaged");
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 16217U);
  EXPECT_EQ(support::ReadFile(home.Home() / "registry.reg"), "damaged");
}

TEST(Folders, ModuleFolder) {
  const support::TempHome home;
  std::set<std::string> keys;
  for (const kestor::ModuloFamilia& row : kestor::ModulosDaFamilia())
    keys.insert(std::string(row.subchave));
  EXPECT_EQ(keys.size(), 21U);
  for (const std::string& key : keys)
    SetRegistryText("SOFTWARE\\Norvela\\" + key, "Path", "D:\\" + key);

  for (const kestor::ModuloFamilia& row : kestor::ModulosDaFamilia()) {
    std::string folder;
    EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo(std::string(row.codigo), folder), 0U);
    EXPECT_EQ(folder, "D:\\" + std::string(row.subchave) + "\\");
  }
  std::string folder;
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo("ct", folder), 0U);
  EXPECT_EQ(folder, "D:\\Contabil\\");
  for (const char* code : {"ZZ", "", "CTX", "C"}) {
    folder = "dropped";
    EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo(code, folder), 16217U);
    EXPECT_EQ(folder, "");
  }
  ASSERT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela\\Caixa"), 0);
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo("CX", folder), 16217U);
}

TEST(Texts, OfClients) {
  EXPECT_EQ(kestor::TextoDeBstr(nullptr), "");
  EXPECT_EQ(kestor::TextoDeBstr(support::Text(u"Açúcar €")),
            "A\xE7\xFA"
            "car \x80");
  EXPECT_EQ(kestor::TextoDeBstr(support::Text(u"日本")), "??");
}

}  // namespace
