// A report store in this process that migrates into itself, and models of the first generation for it.
#pragma once

#include <algorithm>
#include <optional>

#include "../document/document_fixture.h"
#include "../legacy/legacy_fixture.h"
#include "legacy_model.h"
#include "migration/conversor_rel.h"

inline HRESULT MakeRel(kestor::ContagemServidor& server, REFIID iid, void** object) {
  return kestor::CRepositorioRel::Cria<kestor::CRepositorioRel>(nullptr, iid, object, server);
}

inline HRESULT Migrate(kestor::ContagemServidor& server, IZNPL_Relatorio2& store, const std::string& module,
                       const std::string& component, const std::vector<std::string>& existing) {
  kestor::CConversorRel converter(store, module, component, server, MakeRel);
  for (const std::string& name : existing)
    converter.AdicionaNomeExistente(name);
  return converter.Executa();
}

inline HRESULT MakeMigratingStore(kestor::ContagemServidor& server, REFIID iid, void** object) {
  return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, server, Migrate);
}

// Lines of the field catalogue: code, alias and type.
inline std::string CatalogueLine(int code, const std::string& alias, char type) {
  std::string line(63, ' ');
  line.replace(0, 3, std::to_string(code));
  line.replace(27, alias.size(), alias);
  line[60] = type;
  return line + "\r\n";
}

// A file of export settings with its items.
inline std::string SettingsBytes(const std::vector<tagREG_RELEXPORTACAO_ITEM>& items, tagREG_RELEXPORTACAO head = {}) {
  head.iQtdeItens = static_cast<std::uint16_t>(items.size());
  return std::string(reinterpret_cast<const char*>(&head), kBytesWithoutPointer<tagREG_RELEXPORTACAO>) +
         std::string(reinterpret_cast<const char*>(items.data()), items.size() * sizeof items[0]);
}

class ConversionTest : public LegacyTest {
 protected:
  ConversionTest() {
    support::WriteFile(Catalogue(), CatalogueLine(310, "Data & hora", 'D') + CatalogueLine(205, "Valor", 'V') +
                                        CatalogueLine(205, "Outro", 'N'));
  }

  ComPtr<IZNPL_Relatorio2> NewStore() {
    ComPtr<IZNPL_Relatorio2> store;
    MakeMigratingStore(counter_, IID_IZNPL_Relatorio2, store.OutVoid());
    return store;
  }

  std::string Initialise2(const char16_t* component = u"01") {
    return kestor::ResultCode(NewStore()->Inicializa(support::Text(u"CT"), support::Text(component)));
  }

  std::filesystem::path File(const std::string& name, const std::string& extension) const {
    return Reports() / ("CT01" + name + extension);
  }

  void WriteModel(const std::string& name, const LegacyModel& model = {}, int layout = 2) {
    support::WriteFile(File(name, ".REL"), LegacyContent(model, layout).bytes);
  }

  std::optional<kestor::ComponenteMarcacao> component_{std::in_place};
};
