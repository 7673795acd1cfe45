#include "operations.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "../document/document_fixture.h"
#include "document/rel_converte.h"

namespace {

namespace fs = std::filesystem;

using kestor::ResultCode;
using support::Text;

// The tests make thousands of homes, in memory if possible.
const bool inMemory = fs::is_directory("/dev/shm") && setenv("TMPDIR", "/dev/shm", 0) == 0;

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
  return ResultCode(result) + (result == S_OK ? " " + std::to_string(count) : "");
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

// Returns a filter whose entries differ from each other and from those of a filter of another length.
std::string FilterOf(std::size_t entries) {
  std::string bytes(entries * sizeof(tagCAMPO_FILTRO), '\0');
  std::iota(bytes.begin(), bytes.end(), static_cast<char>(entries));
  return bytes;
}

// Returns a first-generation model; with many columns it outgrows the initial buffers of the migration.
std::string FirstGeneration(int layout, std::size_t columns) {
  LegacyModel model = {.header = "Head", .filters = {{205, 1, 4, "10"}}, .keys = {{205, 1}}};
  model.columns.assign(columns, {205, 10, 'D'});
  model.columns.push_back({310, 20, 'E'});
  return LegacyContent(model, layout).bytes;
}

std::string Document(const std::string& name) {
  kestor::CDocRelatorio document;
  document.nome = name;
  document.camposEscolhidos.campos.assign(20, {205, "title", "", 10, 'E', 'A', false, 0});
  document.ordenacao.campos.push_back({205, 0});
  return std::string("\1\0", 2) + Content(document);
}

}  // namespace

Station::Station() {
  Put("CT01Vendas.RXL", Document("Vendas"));
  Put("CT01Compras.RXL", Document("Compras"));
  Put("CT01Demo.RXL", "\1\1demonstration");
  Put("CT01Antigo.REL", FirstGeneration(0, 1));
  Reconnect();
  for (const std::string& result : {Delete(*store_, u"Demo", Model::demonstration), SetDefault(*store_, u"Vendas"),
                                    SaveSettings(*rel_, u"Antigo"), WriteFilter(*rel_, u"Antigo", FilterOf(2))})
    EXPECT_EQ(result, "0x00000000");
  Put("CT01Demo.RXL", "\1\1demonstration");
  for (const std::string& name : support::Names(Reports()))
    files_[name] = support::ReadFile(Reports() / name);
}

void Station::Renew(const Operation& operation) {
  fs::remove_all(Reports());
  fs::create_directory(Reports());
  for (const auto& [name, bytes] : files_)
    Put(name, bytes);
  if (operation.prepare) operation.prepare(*this);
  before_.clear();
  for (const std::string& name : support::Names(Reports()))
    before_[name] = support::ReadFile(Reports() / name);
  fs::remove_all(History());
  fs::create_directory(History());
  Reconnect();
}

void Station::KeepHistory() {
  support::SetRegistryText("SOFTWARE\\Norvela", "Historico", History().string());
  counter_.guard = [this](const kestor::Mudanca& operation) -> files::Keeper* {
    if (!keeper_.IsWanted()) return nullptr;
    keeper_.Begin({.method = operation.metodo,
                   .module = std::string(operation.modulo),
                   .component = std::string(operation.componente),
                   .ofFirstGeneration = std::string_view(operation.classe) == "ZNPL_Rel"});
    return &keeper_;
  };
}

std::vector<std::string> Station::LostVersions() const {
  std::vector<std::string> kept;
  for (const history::Version& version : history::FindVersions(History(), "CT", "01", nullptr))
    kept.push_back(support::ReadFile(version.file));
  std::vector<std::string> lost;
  for (const auto& [name, bytes] : before_) {
    if (name.starts_with("CT01") && !(fs::exists(Reports() / name) && support::ReadFile(Reports() / name) == bytes) &&
        std::find(kept.begin(), kept.end(), bytes) == kept.end()) {
      lost.push_back(name);
    }
  }
  return lost;
}

void Station::Reconnect() {
  migrating_ = NewStore();
  CreateStore(counter_, IID_IZNPL_Relatorio2, store_.OutVoid());
  kestor::CRelConverte::Cria<kestor::CRelConverte>(IID_IZNPL_RelConverte, converter_.OutVoid(), counter_, CreateStore);
  EXPECT_EQ(store_->Inicializa(Text(u"CT"), Text(u"01")), S_OK);
  rel_ = ReadyRel();
}

State Station::Seen() {
  const ComPtr<IZNPL_Relatorio2> store = StoreTest::ReadyStore();
  const Rel rel = ReadyRel();
  State seen = {{"list", Listed(*store)}, {"first generation", Listed(*rel)}};
  for (const std::string& file : support::Names(Reports())) {
    if (!file.starts_with(".")) seen[text::Upper(file)] = Content(file, *store, *rel);
  }
  return seen;
}

std::string Station::Content(const std::string& file, IZNPL_Relatorio2& store, IZNPL_Rel& rel) {
  // A file that holds no name means the same as a missing file.
  const std::string names = file == "ZNRELPAD.DAT" ? Default(store) : file == "ZNRELDEL.DAT" ? Deleted(store) : "";
  if (file.starts_with("ZNREL")) return names == "(null)" ? "" : names;
  if (!file.starts_with("CT01")) return file;
  const std::u16string name = text::Utf8ToUtf16(file.substr(4, file.find('.') - 4));
  if (file.ends_with(".RXL")) return support::ReadModel(store, name);
  if (file.ends_with(".REL")) return Read(rel, name);
  if (file.ends_with(".REE")) return Settings(rel, name);
  return file.ends_with(".REF") ? ReadFilter(rel, name) : file;
}

std::vector<std::string> Station::HiddenFiles() const {
  std::vector<std::string> hidden = support::Names(Reports());
  std::erase_if(hidden, [](const std::string& name) { return !name.starts_with("."); });
  return hidden;
}

const std::vector<Operation>& Station::Operations() {
  using S = Station;
  using Names = Operation::Beginnings;
  const auto without = [](const Names& files) {
    return [files](S& s) {
      for (const std::string& file : files)
        fs::remove(s.Reports() / file);
    };
  };
  // The second call writes the content that the first one left.
  const auto saves = [](const char16_t* name, unsigned char flags = 0) {
    return [=](S& s) { return ResultCode(support::WriteModel(*s.store_, name, "new content", 7, flags)); };
  };
  const auto reads = [](const char16_t* name) { return [=](S& s) { return support::ReadModel(*s.store_, name); }; };
  const auto deletes = [](const char16_t* name, Model kind = Model::usual) {
    return [=](S& s) { return Delete(*s.store_, name, kind); };
  };
  const auto sets = [](const char16_t* name) { return [=](S& s) { return SetDefault(*s.store_, name); }; };
  const auto savesRel = [](const char16_t* name, bool overwrite) {
    return [=](S& s) { return Write(*s.rel_, name, "new content", overwrite); };
  };
  const auto savesSettings = [](const char16_t* name) { return [=](S& s) { return SaveSettings(*s.rel_, name); }; };
  const auto savesFilter = [](const char16_t* name, std::size_t entries) {
    return [=](S& s) { return WriteFilter(*s.rel_, name, FilterOf(entries)); };
  };
  const auto deletesRel = [](const char16_t* name) {
    return [=](S& s) { return ResultCode(s.rel_->ExcluiRelatorio(Text(name))); };
  };
  const auto listsDeleted = [](S& s) { return Deleted(*s.store_); };
  const auto clears = [](S& s) { return ResultCode(s.store_->SetRelatorioPadrao(nullptr)); };
  const auto renumbers = [](S& s) {
    REL_CODIGO_CAMPOS_ALTERADOS pair = {205, 310};
    return ResultCode(s.converter_->AlteraCodigoCampos(Text(u"CT"), Text(u"01"), 1, &pair));
  };
  const auto migrates = [](S& s) { return ResultCode(s.migrating_->Inicializa(Text(u"CT"), Text(u"01"))); };
  const auto updates = [](S& s) {
    REG_ATUALIZACAO_RELATORIO columns[2] = {{"Data & hora", 77}, {"Valor", 33}};
    return ResultCode(s.rel_->AtualizaRelatorio(Text(u"Antigo"), 11, 22, 2, columns));
  };
  const auto ofAllLayouts = [](S& s) {
    for (int layout = 0; layout < 4; ++layout) {
      const std::string name = "CT01L" + std::to_string(layout);
      s.Put(name + ".REL", FirstGeneration(layout, 60));
      s.Put(name + ".REE", s.files_["CT01Antigo.REE"]);
    }
    s.Put("CT01Vendas.REL", FirstGeneration(0, 1));
  };
  // Renumbering stores the document under the name that it bears, which is another model's.
  const auto withACopy = [](S& s) { s.Put("CT01Copia.RXL", Document("Compras")); };
  const auto withOldSettings = [](S& s) { s.Put("CT01Antigo.REE", "old" + std::string(609, '\0')); };

  const auto noDeleted = without({"ZNRELDEL.DAT", "ZNCTLARQ.DAT"});
  const Names service = {"0x80043", "0x8007", "0x80010105"};
  const Names noSaving = {"0x80040005"};
  const Names noSavingButDone = {"0x80040005", "0x00000000"};
  const Names noReading = {"0x00040001", "0x80040002"};
  const Names noSavingRel = {"0x80040005", "0x80040006"};
  const Names noFields = {"0x80040001", "0x80040002"};
  const Names noDefault = {"0x80043", "0x00000001"};
  const Names noFilter = {"0x80043", "0x80040005"};
  const auto demonstration = Model::demonstration;
  const unsigned char checks = KESTOR_VerificarModelosDemoExcluidos;
  const unsigned char mustBeNew = KESTOR_NaoSobreescrever;
  static const std::vector<Operation> operations = {
      {"Grava, new", saves(u"Novo"), noSaving},
      {"Grava, over an old one", saves(u"Vendas"), noSaving},
      {"Grava, in another letter case", saves(u"VENDAS"), noSaving},
      {"Grava, must be new", saves(u"Novo", mustBeNew), noSaving},
      {"Grava, must be new and is not", saves(u"Vendas", mustBeNew), noSaving},
      {"Grava, checked", saves(u"Novo", checks), noSaving},
      // A list that cannot be read does not prevent saving.
      {"Grava, a deleted demonstration", saves(u"Demo", checks), noSavingButDone, {}, {}, {"CT01DEMO.RXL"}},
      {"Le", reads(u"Vendas"), noReading},
      {"Le, in another letter case", reads(u"vendas.rxl"), noReading},
      {"GetNomeRelatorios", [](S& s) { return Listed(*s.store_); }, {"(null)", "Compras,Demo,Vendas,", "0x8007"}},
      {"GetNomeRelatoriosDemonstracaoExcluidos", listsDeleted, service},
      {"GetNomeRelatoriosDemonstracaoExcluidos, first", listsDeleted, service, noDeleted},
      {"ExcluiRelatorio", deletes(u"Compras"), service},
      {"ExcluiRelatorio, the default", deletes(u"Vendas"), service, {}, {"ZNRELPAD"}},
      {"ExcluiRelatorio, a demonstration", deletes(u"Compras", demonstration), service, {}, {"ZNRELDEL"}},
      {"ExcluiRelatorio, first demonstration", deletes(u"Compras", demonstration), service, noDeleted, {"ZNRELDEL"}},
      {"GetRelatorioPadrao", [](S& s) { return Default(*s.store_); }, service},
      {"GetRelatorioPadrao, first", [](S& s) { return Default(*s.store_); }, service, without({"ZNRELPAD.DAT"})},
      {"SetRelatorioPadrao, first", sets(u"Compras"), noDefault, without({"ZNRELPAD.DAT", "ZNCTLARQ.DAT"})},
      {.name = "SetRelatorioPadrao, in place", .call = sets(u"Compras"), .failures = noDefault, .unnoticed = "lseek"},
      {"SetRelatorioPadrao of none", sets(u"Nada"), service},
      {.name = "SetRelatorioPadrao, clearing", .call = clears, .failures = service, .unnoticed = "lseek"},
      {"GetCamposDisponiveis", [](S& s) { return Fields(*s.store_); }, noFields},
      {.name = "Inicializa with models of all layouts",
       .call = migrates,
       .failures = {"0x80043"},
       .prepare = ofAllLayouts,
       .untold = {""},
       .otherwise = {"list", "first generation"}},
      {"AlteraCodigoCampos", renumbers, {"0x80043"}, {}, {""}},
      {"AlteraCodigoCampos, a copied document", renumbers, {"0x80043"}, withACopy, {""}},
      {"BuscaQdeCamposArquivo", [](S& s) { return Fields(*s.rel_); }, noFields},
      {"BuscaTamanhoRelatorio", [](S& s) { return Read(*s.rel_, u"Antigo"); }, noReading},
      {"GravaRelatorio, new", savesRel(u"Outro", true), noSavingRel},
      {"GravaRelatorio, over an old one", savesRel(u"Antigo", true), noSavingRel},
      {"GravaRelatorio, must be new", savesRel(u"Outro", false), noSavingRel},
      {"GravaRelatorio, must be new and is not", savesRel(u"Antigo", false), noSavingRel},
      {"BuscaNomeRelatoriosExistentes", [](S& s) { return Listed(*s.rel_); }, {"0x00040008"}},
      // Files that cannot be deleted are skipped.
      {"ExcluiRelatorio, first generation", deletesRel(u"Antigo"), {}, {}, {""}},
      {"ExcluiRelatorio, one file of the first generation", deletesRel(u"Antigo.REE"), {}, {}, {""}},
      {"AtualizaRelatorio", updates, {"0x00040001", "0x80040001", "0x80040002", "0x80040005"}},
      {"GravaDadosExportacaoDoRelatorio, new", savesSettings(u"Outro"), noSaving},
      {"GravaDadosExportacaoDoRelatorio, over old ones", savesSettings(u"Antigo"), noSaving, withOldSettings},
      {"BuscaDadosExportacaoDoRelatorio", [](S& s) { return Settings(*s.rel_, u"Antigo"); }, {"0x80040002"}},
      {"GravaFiltroRelatorio, new", savesFilter(u"Outro", 3), noFilter},
      {"GravaFiltroRelatorio, first", savesFilter(u"Antigo", 3), noFilter, without({"CT01ANTIGO.REF", "ZNCTLARQ.DAT"})},
      {"GravaFiltroRelatorio, longer", savesFilter(u"Antigo", 3), noFilter},
      {"GravaFiltroRelatorio, shorter", savesFilter(u"Antigo", 1), noFilter},
      {"LeFiltroRelatorio", [](S& s) { return ReadFilter(*s.rel_, u"Antigo"); }, {"0x80043", "0x80040002"}},
  };
  return operations;
}
