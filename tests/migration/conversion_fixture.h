// A report store in this process that migrates into itself, and models of the first generation for it.
#pragma once

#include <optional>

#include "../legacy/legacy_fixture.h"
#include "document/doc_relatorio.h"
#include "legacy_model.h"
#include "marcacao/componente_marcacao.h"
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

// Lines of the field catalogue: code, alias and type.
inline std::string CatalogueLine(int code, const std::string& alias, char type) {
  std::string line(63, ' ');
  line.replace(0, 3, std::to_string(code));
  line.replace(27, alias.size(), alias);
  line[60] = type;
  return line + "\r\n";
}

class ConversionTest : public LegacyTest {
 protected:
  ConversionTest() {
    support::WriteFile(Catalogue(), CatalogueLine(205, "Valor", 'V') + CatalogueLine(310, "Data & hora", 'D') +
                                        CatalogueLine(205, "Outro", 'N'));
  }

  ComPtr<IZNPL_Relatorio2> NewStore() {
    ComPtr<IZNPL_Relatorio2> store;
    kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(IID_IZNPL_Relatorio2, store.OutVoid(), counter_, Migrate);
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

  void WriteSettings(const std::string& name, const tagREG_RELEXPORTACAO& settings,
                     const std::vector<tagREG_RELEXPORTACAO_ITEM>& items) {
    const std::string head(reinterpret_cast<const char*>(&settings), kBytesWithoutPointer<tagREG_RELEXPORTACAO>);
    support::WriteFile(File(name, ".REE"),
                       head + std::string(reinterpret_cast<const char*>(items.data()), items.size() * sizeof items[0]));
  }

  std::optional<kestor::ComponenteMarcacao> component_{std::in_place};
};
