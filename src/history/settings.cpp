#include "common/caminhos_instalacao.h"
#include "history.h"
#include "platform/registry/registry.h"

namespace history {

Settings ReadSettings() {
  Settings settings;
  settings.folder = kestor::CCaminhosInstalacao::BuscaCaminhoHistorico();
  registry::OwnedKey key;
  if (RegOpenKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela\\KESTOR", key.Out()) != 0) return settings;
  settings.versions = registry::ReadNumber(key.Get(), "HistoricoVersoes", 0, ~DWORD{0}, settings.versions);
  settings.days = registry::ReadNumber(key.Get(), "HistoricoDias", 0, ~DWORD{0}, settings.days);
  return settings;
}

}  // namespace history
