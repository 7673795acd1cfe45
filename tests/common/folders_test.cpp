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

constexpr WORD kNoFolder = 16217;

TEST(Folders, ReportsFolder) {
  const support::TempHome home;
  std::string folder = "kept";
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), kNoFolder);
  EXPECT_EQ(folder, "kept");
  const std::pair<std::string, std::string> cases[] = {
      {"C:\\Rel", "C:\\Rel\\"}, {"C:\\Rel\\", "C:\\Rel\\"}, {"D:\\", "D:\\"}, {"", ""}};
  for (const auto& [entered, expected] : cases) {
    SetRegistryText("SOFTWARE\\Norvela", "Relatorios", entered);
    EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 0U);
    EXPECT_EQ(folder, expected);
  }

  // The type of the value does not count, only its bytes up to the first NUL.
  registry::OwnedKey key;
  ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela", key.Out()), 0);
  for (const DWORD size : {4U, 9U}) {
    RegSetValueExA(key.Get(), "Relatorios", 0, REG_BINARY, reinterpret_cast<const BYTE*>("E:\\R\0tail"), size);
    EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), 0U);
    EXPECT_EQ(folder, "E:\\R\\");
  }
  support::WriteFile(home.Home() / "registry.reg", "damaged");
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoRelatorios(folder), kNoFolder);
}

TEST(Folders, ModuleFolder) {
  const support::TempHome home;
  std::string folder;
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo("CT", folder), kNoFolder);
  std::set<std::string> keys;
  for (const kestor::ModuloFamilia& row : kestor::ModulosDaFamilia()) {
    const std::string key(row.subchave);
    keys.insert(key);
    SetRegistryText("SOFTWARE\\Norvela\\" + key, "Path", "D:\\" + key);
    EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo(std::string(row.codigo), folder), 0U);
    EXPECT_EQ(folder, "D:\\" + key + "\\");
  }
  EXPECT_EQ(keys.size(), 21U);
  EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo("ct", folder), 0U);
  EXPECT_EQ(folder, "D:\\Contabil\\");
  for (const char* code : {"ZZ", "", "CTX", "C"}) {
    EXPECT_EQ(CCaminhosInstalacao::BuscaCaminhoModulo(code, folder), kNoFolder);
    EXPECT_EQ(folder, "");
  }
}

TEST(Texts, OfClients) {
  EXPECT_EQ(kestor::TextoDeBstr(nullptr), "");
  EXPECT_EQ(kestor::TextoDeBstr(support::Text(u"\u00C1gua \u20AC \u65E5\u672C")), "\xC1gua \x80 ??");
}

}  // namespace
