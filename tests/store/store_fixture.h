// A report store in this process, with a folder of its own.
#pragma once

#include <gtest/gtest.h>

#include "contract/results.h"
#include "platform/text/text.h"
#include "store/repositorio_rel2.h"
#include "support/installation.h"

// Makes a report store the way its class object does.
inline HRESULT CreateStore(kestor::Servidor& counter, REFIID iid, void** object) {
  return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, counter);
}

struct Counter final : kestor::Servidor {
  LONG Trava() override { return ++count; }
  LONG Destrava() override { return --count; }
  LONG count = 0;
  files::Keeper* IniciaGuarda(const kestor::Mudanca& operation) noexcept override {
    return guard ? guard(operation) : nullptr;
  }

  void Anota(const kestor::Mudanca& change) override {
    if (told) told(change);
  }

  std::function<files::Keeper*(const kestor::Mudanca&)> guard;
  std::function<void(const kestor::Mudanca&)> told;
};

// Returns the names of a list in UTF-8, with a comma after each, and frees the list.
inline std::string TakeNames(const REG_ARRAY_RELATORIO2& list) {
  const TaskBlock<tagREG_NOME_RELATORIO2> entries(list.pregRelatorios);
  std::string names;
  for (USHORT i = 0; i < list.nQtdeRelatorios; ++i)
    names += text::ToUtf8(entries.get()[i].szNomeRelatorio) + ",";
  return names;
}

// Return what a store answers, or the result as text if it is not S_OK; "(null)" for a null list or text.
inline std::string Listed(IZNPL_Relatorio2& store) {
  REG_ARRAY_RELATORIO2* list = nullptr;
  const HRESULT result = store.GetNomeRelatorios(&list);
  const TaskBlock<REG_ARRAY_RELATORIO2> owner(list);
  if (result != S_OK) return kestor::ResultCode(result);
  return list == nullptr ? "(null)" : TakeNames(*list);
}

inline std::string Deleted(IZNPL_Relatorio2& store) {
  REG_ARRAY_RELATORIO2 list{7, nullptr};
  const HRESULT result = store.GetNomeRelatoriosDemonstracaoExcluidos(&list);
  EXPECT_TRUE(result == S_OK || (list.nQtdeRelatorios == 0 && list.pregRelatorios == nullptr));
  if (result != S_OK) return kestor::ResultCode(result);
  return list.pregRelatorios == nullptr ? "(null)" : TakeNames(list);
}

inline std::string Default(IZNPL_Relatorio2& store) {
  BSTR name = nullptr;
  const HRESULT result = store.GetRelatorioPadrao(&name);
  const std::string text = name == nullptr ? "(null)" : text::Utf16ToUtf8({name, SysStringLen(name)});
  SysFreeString(name);
  return result == S_OK ? text : kestor::ResultCode(result);
}

inline std::string SetDefault(IZNPL_Relatorio2& store, const std::u16string& name) {
  return kestor::ResultCode(store.SetRelatorioPadrao(support::Text(name)));
}

enum class Model { usual, demonstration };

inline std::string Delete(IZNPL_Relatorio2& store, const std::u16string& name, Model kind = Model::usual) {
  char deleted = 7;
  const HRESULT result = store.ExcluiRelatorio(support::Text(name), kind == Model::demonstration ? 1 : 0, &deleted);
  EXPECT_EQ(deleted, result == S_OK ? 1 : 0);
  return kestor::ResultCode(result);
}

class StoreTest : public testing::Test {
 protected:
  StoreTest() {
    std::filesystem::create_directories(Folder());
    support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\Dados.v2\\Rel");
    support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil");
  }

  std::filesystem::path Folder() const { return home_.Data() / "Dados.v2" / "Rel"; }

  ComPtr<IZNPL_Relatorio2> NewStore() {
    ComPtr<IZNPL_Relatorio2> store;
    CreateStore(counter_, IID_IZNPL_Relatorio2, store.OutVoid());
    return store;
  }

  ComPtr<IZNPL_Relatorio2> ReadyStore(const char16_t* component = u"01") {
    auto store = NewStore();
    EXPECT_EQ(store->Inicializa(support::Text(u"CT"), support::Text(component)), S_OK);
    return store;
  }

  support::TempHome home_;
  Counter counter_;
};
