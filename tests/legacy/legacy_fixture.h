// Stores of both generations in this process, with a reports folder and a module folder of their own.
#pragma once

#include <cstring>
#include <gtest/gtest.h>
#include <new>

#include "../store/store_fixture.h"
#include "legacy/repositorio_rel.h"

// Returns the names of the models, or the result as text if it is not S_OK.
inline std::string Listed(IZNPL_Rel& rel) {
  BSTR names = nullptr;
  const HRESULT result = rel.BuscaNomeRelatoriosExistentes(&names);
  const OwnedBstr owner(names);
  return result == S_OK ? text::Utf16ToUtf8({names, SysStringLen(names)}) : kestor::ResultCode(result);
}

class LegacyTest : public StoreTest {
 protected:
  using Rel = ComPtr<IZNPL_Rel>;

  LegacyTest() {
    std::filesystem::create_directories(Module());
    support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil.v2");
  }

  std::filesystem::path Reports() const { return Folder(); }
  std::filesystem::path Module() const { return home_.Data() / "Contabil.v2"; }
  std::filesystem::path Catalogue() const { return Module() / "XCT01.REL"; }

  Rel NewRel() {
    Rel rel;
    kestor::CRepositorioRel::Cria<kestor::CRepositorioRel>(nullptr, IID_IZNPL_Rel, rel.OutVoid(), counter_);
    if (rel.Get() == nullptr) throw std::bad_alloc();
    return rel;
  }

  Rel ReadyRel() {
    Rel rel = NewRel();
    EXPECT_EQ(Initialise(*rel, u"CT", u"01"), "0x00000000");
    return rel;
  }

  static std::string Initialise(IZNPL_Rel& rel, const std::u16string& module, const std::u16string& component) {
    return kestor::ResultCode(
        rel.Inicializa(support::Text(u"Norvela"), support::Text(module), support::Text(component)));
  }

  // Reads a model and returns its content, or the result of the call that is not S_OK.
  static std::string Read(IZNPL_Rel& rel, const std::u16string& name) {
    LONG size = -1;
    HRESULT result = rel.BuscaTamanhoRelatorio(support::Text(name), &size);
    if (result != S_OK) return kestor::ResultCode(result);
    std::string content(static_cast<std::size_t>(size), '?');
    result = rel.BuscaRelatorio(size, reinterpret_cast<unsigned char*>(content.data()));
    return result == S_OK ? content : kestor::ResultCode(result);
  }

  static std::string Write(IZNPL_Rel& rel, const std::u16string& name, std::string content, bool overwrite = true) {
    return kestor::ResultCode(rel.GravaRelatorio(support::Text(name), overwrite ? 1 : 0,
                                                 static_cast<LONG>(content.size()),
                                                 reinterpret_cast<unsigned char*>(content.data())));
  }

  // Returns the bytes of a filter's entries. A new filter has no entries until it is first written.
  static std::string ReadFilter(IZNPL_Rel& rel, const std::u16string& name) {
    tagFILTRO_RELATORIO* filter = nullptr;
    const HRESULT result = rel.LeFiltroRelatorio(support::Text(name), &filter);
    const TaskBlock<tagFILTRO_RELATORIO> owner(filter);
    if (filter == nullptr) return kestor::ResultCode(result);
    const TaskBlock<tagCAMPO_FILTRO> entries(filter->pregValoresFiltro);
    return {reinterpret_cast<const char*>(entries.get()), filter->nQtdCampos * sizeof(tagCAMPO_FILTRO)};
  }

  static std::string WriteFilter(IZNPL_Rel& rel, const std::u16string& name, const std::string& bytes) {
    std::vector<tagCAMPO_FILTRO> entries(bytes.size() / sizeof(tagCAMPO_FILTRO));
    std::memcpy(entries.data(), bytes.data(), bytes.size());
    tagFILTRO_RELATORIO filter{static_cast<std::uint16_t>(entries.size()), entries.data()};
    return kestor::ResultCode(rel.GravaFiltroRelatorio(support::Text(name), &filter));
  }
};
