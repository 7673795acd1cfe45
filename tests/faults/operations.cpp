#include "operations.h"

#include <chrono>
#include <cstring>

#include "../document/document_fixture.h"
#include "../store/store_fixture.h"
#include "document/rel_converte.h"

namespace {

using kestor::ResultCode;
using support::Text;

std::u16string Wide(const std::string& name) {
  return text::Utf8ToUtf16(name);
}

std::string Fields(IZNPL_Relatorio2& store) {
  REG_CAMPOS_DISPONIVEIS2* fields = nullptr;
  const HRESULT result = store.GetCamposDisponiveis(&fields);
  const TaskBlock<REG_CAMPOS_DISPONIVEIS2> owner(fields);
  if (fields == nullptr) return ResultCode(result);
  const TaskBlock<tagREG_CAMPOS_RELATORIO2> records(fields->pregCampos);
  return ResultCode(result) + " " + std::to_string(fields->nQtdeCampos) + records.get()[0].szApelido;
}

std::string Fields(IZNPL_Rel& rel) {
  LONG count = 0;
  const HRESULT result = rel.BuscaQdeCamposArquivo(&count);
  if (result != S_OK) return ResultCode(result);
  std::vector<tagREG_CAMPOS_RELATORIO> fields(static_cast<std::size_t>(count));
  const HRESULT handing = rel.BuscaCampos(count, fields.data());
  return ResultCode(handing) + " " + std::to_string(count) + fields.at(0).cApelido;
}

std::string Names(IZNPL_Rel& rel) {
  BSTR names = nullptr;
  const HRESULT result = rel.BuscaNomeRelatoriosExistentes(&names);
  const OwnedBstr owner(names);
  return ResultCode(result) + " " + (names == nullptr ? "" : text::Utf16ToUtf8({names, SysStringLen(names)}));
}

std::string Settings(IZNPL_Rel& rel, const std::u16string& name) {
  tagREG_RELEXPORTACAO* settings = nullptr;
  const HRESULT result = rel.BuscaDadosExportacaoDoRelatorio(Text(name), &settings);
  const TaskBlock<tagREG_RELEXPORTACAO> owner(settings);
  if (settings == nullptr) return ResultCode(result);
  const TaskBlock<tagREG_RELEXPORTACAO_ITEM> items(settings->pregItens);
  std::string read = ResultCode(result) + " " + settings->cCabDescricao;
  for (unsigned i = 0; i < settings->iQtdeItens; ++i)
    read += std::string("|") + items.get()[i].cConteudo;
  return read;
}

std::string SaveSettings(IZNPL_Rel& rel, const std::u16string& name) {
  tagREG_RELEXPORTACAO_ITEM items[3] = {{"new 1", "", 'A', 0}, {"new 2", "", 'A', 0}, {"new 3", "", 'A', 0}};
  tagREG_RELEXPORTACAO settings{};
  std::strcpy(settings.cCabDescricao, "new head");
  settings.iQtdeItens = 3;
  settings.pregItens = items;
  return ResultCode(rel.GravaDadosExportacaoDoRelatorio(Text(name), settings));
}

// A filter without entries is what a new one is until it is first written.
std::string Filter(IZNPL_Rel& rel, const std::u16string& name) {
  tagFILTRO_RELATORIO* filter = nullptr;
  const HRESULT result = rel.LeFiltroRelatorio(Text(name), &filter);
  const TaskBlock<tagFILTRO_RELATORIO> owner(filter);
  if (filter == nullptr) return ResultCode(result);
  const TaskBlock<tagCAMPO_FILTRO> entries(filter->pregValoresFiltro);
  std::string read;
  for (unsigned i = 0; i < filter->nQtdCampos; ++i)
    read += std::to_string(entries.get()[i].nCodigoCampo) + entries.get()[i].valorCampo.valor.szValor + "|";
  return read;
}

std::string SaveFilter(IZNPL_Rel& rel, const std::u16string& name, std::uint16_t entries) {
  std::vector<tagCAMPO_FILTRO> fields(entries);
  for (std::size_t i = 0; i < entries; ++i) {
    fields[i].nCodigoCampo = static_cast<std::uint16_t>(100 * entries + i);
    std::strcpy(fields[i].valorCampo.valor.szValor, "value");
  }
  tagFILTRO_RELATORIO filter = {entries, fields.data()};
  return ResultCode(rel.GravaFiltroRelatorio(Text(name), &filter));
}

std::string Update(IZNPL_Rel& rel, const std::u16string& name) {
  REG_ATUALIZACAO_RELATORIO columns[2] = {{"Data & hora", 77}, {"Valor", 33}};
  return ResultCode(rel.AtualizaRelatorio(Text(name), 11, 22, 2, columns));
}

LegacyModel Columns() {
  LegacyModel model;
  model.header = "Head";
  model.columns = {{205, 10, 'D'}, {310, 20, 'E'}};
  model.filters = {{205, 1, 4, "10"}};
  model.keys = {{205, 1}};
  return model;
}

// Longer than what the migration's buffers begin with.
LegacyModel ManyColumns() {
  LegacyModel model = Columns();
  model.columns.assign(60, {205, 10, 'D'});
  return model;
}

std::string Document(const std::string& name) {
  kestor::CDocRelatorio document;
  document.nome = name;
  for (int i = 0; i < 20; ++i)
    document.camposEscolhidos.campos.push_back({205, "title", "", 10, 'E', 'A', false, 0});
  document.ordenacao.campos.push_back({205, 0});
  return std::string("\1\0", 2) + Content(document);
}

}  // namespace

Station::Station() {
  Put("CT01Vendas.RXL", Document("Vendas"));
  Put("CT01Compras.RXL", Document("Compras"));
  Put("CT01Demo.RXL", "\1\1demonstration");
  Put("CT01Antigo.REL", LegacyContent(Columns(), 0).bytes);
  Reconnect();
  EXPECT_EQ(Delete(*store_, u"Demo", Model::demonstration) + SetDefault(*store_, u"Vendas") +
                SaveSettings(*rel_, u"Antigo") + SaveFilter(*rel_, u"Antigo", 2),
            "0x000000000x000000000x000000000x00000000");
  Put("CT01Demo.RXL", "\1\1demonstration");
  for (const std::string& name : support::Names(Reports()))
    files_[name] = support::ReadFile(Reports() / name);
}

void Station::Renew(const Operation& operation) {
  std::filesystem::remove_all(Reports());
  std::filesystem::create_directory(Reports());
  for (const auto& [name, bytes] : files_)
    Put(name, bytes);
  operation.prepare(*this);
  Reconnect();
}

void Station::Reconnect() {
  store_.Reset();
  migrating_ = NewStore();
  converter_.Reset();
  CreateStore(counter_, IID_IZNPL_Relatorio2, store_.OutVoid());
  kestor::CRelConverte::Cria<kestor::CRelConverte>(IID_IZNPL_RelConverte, converter_.OutVoid(), counter_, CreateStore);
  EXPECT_EQ(store_->Inicializa(Text(u"CT"), Text(u"01")), S_OK);
  rel_ = ReadyRel();
}

State Station::Seen() {
  ComPtr<IZNPL_Relatorio2> store;
  CreateStore(counter_, IID_IZNPL_Relatorio2, store.OutVoid());
  store->Inicializa(Text(u"CT"), Text(u"01"));
  const Rel rel = ReadyRel();
  State seen = {{"list", Listed(*store)}, {"first generation", ::Names(*rel)}};
  for (const std::string& file : support::Names(Reports())) {
    if (!file.starts_with(".")) seen[text::Upper(file)] = Content(file, *store, *rel);
  }
  return seen;
}

std::string Station::Content(const std::string& file, IZNPL_Relatorio2& store, IZNPL_Rel& rel) const {
  // A file without a name in it says the same as none.
  const std::string names = file == "ZNRELPAD.DAT" ? Default(store) : file == "ZNRELDEL.DAT" ? Deleted(store) : "";
  if (file.starts_with("ZNREL")) return names == "(null)" ? "" : names;
  if (!file.starts_with("CT01")) return file;
  const std::u16string name = Wide(file.substr(4, file.find('.') - 4));
  if (file.ends_with(".RXL")) {
    USHORT version = 0;
    const std::string content = support::ReadModel(store, name, &version);
    return std::to_string(version) + content;
  }
  if (file.ends_with(".REL")) return Read(rel, name);
  if (file.ends_with(".REE")) return Settings(rel, name);
  return file.ends_with(".REF") ? Filter(rel, name) : file;
}

std::vector<std::string> Station::HiddenFiles() const {
  std::vector<std::string> hidden = support::Names(Reports());
  std::erase_if(hidden, [](const std::string& name) { return !name.starts_with("."); });
  return hidden;
}

void Station::AgeHiddenFiles() const {
  for (const std::string& name : HiddenFiles())
    std::filesystem::last_write_time(Reports() / name,
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
}

const std::vector<Operation>& Station::Operations() {
  using S = Station;
  using Names = std::vector<std::string>;
  const auto asItIs = [](S&) {};
  const auto without = [](const Names& files) {
    return [files](S& s) {
      for (const std::string& file : files)
        s.Remove(file);
    };
  };
  // The second call finds what the first one left: its content is the same.
  const auto saves = [](const char16_t* name, int flags) {
    return [=](S& s) {
      return ResultCode(support::WriteModel(*s.store_, name, "new content", 7, static_cast<unsigned char>(flags)));
    };
  };
  const auto reads = [](const char16_t* name) { return [=](S& s) { return support::ReadModel(*s.store_, name); }; };
  const auto deletes = [](const char16_t* name, Model kind) {
    return [=](S& s) {
      char deleted = 7;
      const HRESULT result = s.store_->ExcluiRelatorio(Text(name), kind == Model::demonstration ? 1 : 0, &deleted);
      EXPECT_EQ(deleted, result == S_OK ? 1 : 0);
      return ResultCode(result);
    };
  };
  const auto sets = [](const char16_t* name) {
    return [=](S& s) {
      return ResultCode(name == nullptr ? s.store_->SetRelatorioPadrao(nullptr)
                                        : s.store_->SetRelatorioPadrao(Text(name)));
    };
  };
  const auto savesRel = [](const char16_t* name, bool overwrite) {
    return [=](S& s) { return Write(*s.rel_, name, "new content", overwrite); };
  };

  const auto renumbers = [](S& s) {
    REL_CODIGO_CAMPOS_ALTERADOS pair = {205, 310};
    return ResultCode(s.converter_->AlteraCodigoCampos(Text(u"CT"), Text(u"01"), 1, &pair));
  };
  const auto deletesRel = [](const char16_t* name) {
    return [=](S& s) { return ResultCode(s.rel_->ExcluiRelatorio(Text(name))); };
  };

  const Names service = {"0x80043", "0x8007", "0x80010105"};
  const Names noSaving = {"0x80040005"};
  const Names noReading = {"0x00040001", "0x80040002"};
  const Names noSavingRel = {"0x80040005", "0x80040006"};
  static const std::vector<Operation> operations = {
      {"Grava, new", asItIs, saves(u"Novo", 0), noSaving},
      {"Grava, over an old one", asItIs, saves(u"Vendas", 0), noSaving},
      {"Grava, in another letter case", asItIs, saves(u"VENDAS", 0), noSaving},
      {"Grava, must be new", asItIs, saves(u"Novo", KESTOR_NaoSobreescrever), noSaving},
      {"Grava, must be new and is not", asItIs, saves(u"Vendas", KESTOR_NaoSobreescrever), noSaving},
      {"Grava, checked", asItIs, saves(u"Novo", KESTOR_VerificarModelosDemoExcluidos), noSaving},
      // A list that cannot be read holds nothing up.
      {"Grava, a deleted demonstration",
       asItIs,
       saves(u"Demo", KESTOR_VerificarModelosDemoExcluidos),
       {"0x80040005", "0x00000000"},
       {},
       {"CT01DEMO.RXL"}},
      {"Le", asItIs, reads(u"Vendas"), noReading},
      {"Le, in another letter case", asItIs, reads(u"vendas.rxl"), noReading},
      {"GetNomeRelatorios",
       asItIs,
       [](S& s) { return Listed(*s.store_); },
       {"(null)", "Compras,Demo,Vendas,", "0x8007"}},
      {"GetNomeRelatoriosDemonstracaoExcluidos", asItIs, [](S& s) { return Deleted(*s.store_); }, service},
      {"GetNomeRelatoriosDemonstracaoExcluidos, first", without({"ZNRELDEL.DAT", "ZNCTLARQ.DAT"}),
       [](S& s) { return Deleted(*s.store_); }, service},
      {"ExcluiRelatorio", asItIs, deletes(u"Compras", Model::usual), service},
      {"ExcluiRelatorio, a demonstration", asItIs, deletes(u"Compras", Model::demonstration), service, {"ZNRELDEL"}},
      {"ExcluiRelatorio, the first demonstration",
       without({"ZNRELDEL.DAT", "ZNCTLARQ.DAT"}),
       deletes(u"Compras", Model::demonstration),
       service,
       {"ZNRELDEL"}},
      {"ExcluiRelatorio, the default", asItIs, deletes(u"Vendas", Model::usual), service, {"ZNRELPAD"}},
      {"GetRelatorioPadrao", asItIs, [](S& s) { return Default(*s.store_); }, service},
      {"GetRelatorioPadrao, first", without({"ZNRELPAD.DAT"}), [](S& s) { return Default(*s.store_); }, service},
      {"SetRelatorioPadrao, first",
       without({"ZNRELPAD.DAT", "ZNCTLARQ.DAT"}),
       sets(u"Compras"),
       {"0x80043", "0x00000001"}},
      {"SetRelatorioPadrao, in place", asItIs, sets(u"Compras"), {"0x80043", "0x00000001"}, {}, {}, false, "lseek"},
      {"SetRelatorioPadrao of none", asItIs, sets(u"Nada"), service},
      {"SetRelatorioPadrao, clearing", asItIs, sets(nullptr), service, {}, {}, false, "lseek"},
      {"GetCamposDisponiveis", asItIs, [](S& s) { return Fields(*s.store_); }, {"0x80040001", "0x80040002"}},
      {"Inicializa with models of all layouts",
       [](S& s) {
         for (int layout = 0; layout < 4; ++layout) {
           s.Put("CT01L" + std::to_string(layout) + ".REL", LegacyContent(ManyColumns(), layout).bytes);
           s.Put("CT01L" + std::to_string(layout) + ".REE", s.files_["CT01Antigo.REE"]);
         }
         s.Put("CT01Vendas.REL", LegacyContent(Columns(), 0).bytes);
       },
       [](S& s) { return ResultCode(s.migrating_->Inicializa(Text(u"CT"), Text(u"01"))); },
       {"0x80043"},
       {""},
       {"list", "first generation"},
       true},
      {"AlteraCodigoCampos", asItIs, renumbers, {"0x80043"}, {""}},
      // It is stored under the name that the document bears, which another model has.
      {"AlteraCodigoCampos, a copied document",
       [](S& s) { s.Put("CT01Copia.RXL", Document("Compras")); },
       renumbers,
       {"0x80043"},
       {""}},
      {"BuscaQdeCamposArquivo", asItIs, [](S& s) { return Fields(*s.rel_); }, {"0x80040001", "0x80040002"}},
      {"BuscaTamanhoRelatorio", asItIs, [](S& s) { return Read(*s.rel_, u"Antigo"); }, noReading},
      {"GravaRelatorio, new", asItIs, savesRel(u"Outro", true), noSavingRel},
      {"GravaRelatorio, over an old one", asItIs, savesRel(u"Antigo", true), noSavingRel},
      {"GravaRelatorio, must be new", asItIs, savesRel(u"Outro", false), noSavingRel},
      {"GravaRelatorio, must be new and is not", asItIs, savesRel(u"Antigo", false), noSavingRel},
      {"BuscaNomeRelatoriosExistentes", asItIs, [](S& s) { return ::Names(*s.rel_); }, {"0x00040008"}},
      // Files that cannot be deleted are passed over.
      {"ExcluiRelatorio, first generation", asItIs, deletesRel(u"Antigo"), {}, {""}},
      {"ExcluiRelatorio, one file of the first generation", asItIs, deletesRel(u"Antigo.REE"), {}, {""}},
      {"GravaRelatorioSemCallBack", asItIs,
       [](S& s) {
         unsigned char bytes[] = "new content";
         return ResultCode(s.rel_->GravaRelatorioSemCallBack(Text(u"Antigo"), 1, sizeof bytes, bytes));
       },
       noSavingRel},
      {"AtualizaRelatorio",
       asItIs,
       [](S& s) { return Update(*s.rel_, u"Antigo"); },
       {"0x00040001", "0x80040001", "0x80040002", "0x80040005"}},
      {"GravaDadosExportacaoDoRelatorio, new", asItIs, [](S& s) { return SaveSettings(*s.rel_, u"Outro"); }, noSaving},
      {"GravaDadosExportacaoDoRelatorio, over old ones",
       [](S& s) { s.Put("CT01Antigo.REE", "old" + std::string(609, '\0')); },
       [](S& s) { return SaveSettings(*s.rel_, u"Antigo"); }, noSaving},
      {"BuscaDadosExportacaoDoRelatorio", asItIs, [](S& s) { return Settings(*s.rel_, u"Antigo"); }, {"0x80040002"}},
      {"GravaFiltroRelatorio, new",
       asItIs,
       [](S& s) { return SaveFilter(*s.rel_, u"Outro", 3); },
       {"0x80043", "0x80040005"}},
      {"GravaFiltroRelatorio, the first one",
       without({"CT01ANTIGO.REF", "ZNCTLARQ.DAT"}),
       [](S& s) { return SaveFilter(*s.rel_, u"Antigo", 3); },
       {"0x80043", "0x80040005"}},
      {"GravaFiltroRelatorio, longer",
       asItIs,
       [](S& s) { return SaveFilter(*s.rel_, u"Antigo", 3); },
       {"0x80043", "0x80040005"}},
      {"GravaFiltroRelatorio, shorter",
       asItIs,
       [](S& s) { return SaveFilter(*s.rel_, u"Antigo", 1); },
       {"0x80043", "0x80040005"}},
      {"LeFiltroRelatorio", asItIs, [](S& s) { return Filter(*s.rel_, u"Antigo"); }, {"0x80043", "0x80040002"}},
  };
  return operations;
}
