#include "station.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <sstream>

#include "document/doc_relatorio.h"
#include "document/rel_converte.h"
#include "migration/conversion_fixture.h"

namespace contention {

namespace {

using support::Text;

constexpr HRESULT kInUse = static_cast<HRESULT>(0x80070020);
constexpr HRESULT kInUseForRecords = static_cast<HRESULT>(0x80043EEE);
constexpr HRESULT kTakenAway = static_cast<HRESULT>(0x80043EB7);
constexpr HRESULT kNotWritten = kestor::ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
constexpr HRESULT kNotThere = kestor::NoticeForm(KESTOR_ARQ_NAO_EXISTE);
constexpr HRESULT kThere = kestor::NoticeForm(KESTOR_ARQUIVO_JA_EXISTE);
constexpr HRESULT kNotRead = kestor::ErrorForm(KESTOR_PROBLEMAS_AO_LER);
constexpr USHORT kNoDocument = 2;
constexpr unsigned kSharedNames = 3;
constexpr int kPatienceSeconds = 20;

// The migration leaves a model that begins like this where it is: it is of a later version than any that it knows.
constexpr std::string_view kLaterVersion("\x01\xA5\x09\x00", 4);

// A content that tells for which name, by which station and as which one of its contents it was written, and that can
// be told from any other and from a part of itself.
std::string Proof(Kind kind, const std::string& name, unsigned station, unsigned sequence) {
  std::string content(kLaterVersion);
  content += name + ' ' + std::to_string(station) + ' ' + std::to_string(sequence) + ' ';
  std::minstd_rand random(sequence * kStations + station + 1);
  std::size_t size = content.size() + random() % 3000;
  if (kind == Kind::model && sequence % 16 == 0) size += 200'000;
  if (kind == Kind::settings) size = kBytesWithoutPointer<tagREG_RELEXPORTACAO> + random() % 10 * 228;
  if (kind == Kind::filter) size = (1 + random() % 30) * sizeof(tagCAMPO_FILTRO);
  while (content.size() < size)
    content += static_cast<char>(random());
  if (kind == Kind::settings) {
    const auto items = static_cast<std::uint16_t>((size - kBytesWithoutPointer<tagREG_RELEXPORTACAO>) / 228);
    std::memcpy(content.data() + offsetof(tagREG_RELEXPORTACAO, iQtdeItens), &items, sizeof items);
  }
  return content;
}

std::u16string Wide(const std::string& text) {
  return text::Utf8ToUtf16(text);
}

template <typename Item>
std::string Bytes(const Item* items, std::size_t count) {
  return {reinterpret_cast<const char*>(items), count * sizeof *items};
}

unsigned char* Data(std::string& content) {
  return reinterpret_cast<unsigned char*>(content.data());
}

unsigned NamesOf(Kind kind) {
  return kind == Kind::standard ? 1 : kNames;
}

bool MeansInUse(HRESULT result) {
  return result == kInUse || result == kInUseForRecords || result == kNotWritten;
}

}  // namespace

Station::Station(Books& books, unsigned number, std::filesystem::path reports)
    : books_(books), number_(number), reports_(std::move(reports)) {
  const auto newStore = [this](const std::string& component) {
    ComPtr<IZNPL_Relatorio2> store;
    kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(IID_IZNPL_Relatorio2, store.OutVoid(), counter_, Migrate);
    const HRESULT result = store->Inicializa(Text(u"CT"), Text(Wide(component)));
    if (FAILED(result)) Fault("no store: " + kestor::ResultCode(result));
    return store;
  };
  const auto newRel = [this](const char16_t* component) {
    ComPtr<IZNPL_Rel> rel;
    MakeRel(counter_, IID_IZNPL_Rel, rel.OutVoid());
    if (rel->Inicializa(nullptr, Text(u"CT"), Text(component)) != S_OK) Fault("no store of the first generation");
    return rel;
  };
  store_ = newStore("01");
  own_ = newStore(Key());
  rel_ = newRel(u"01");
  converting_ = newRel(u"02");
}

void Station::Fault(const std::string& what) const {
  ++books_.faults;
  std::fprintf(stderr, "station %u: %s\n", number_, what.c_str());
}

// ---- Names and contents --------------------------------------------------------------------------------------------

std::string Station::Name(Kind kind, unsigned index) const {
  static constexpr std::array kNamesOfKinds = {"Modelo", "Antigo", "Exporta", "Filtro", "Padrao"};
  return kNamesOfKinds.at(static_cast<std::size_t>(kind)) + std::to_string(number_) + "n" + std::to_string(index);
}

std::string Station::DeletedName(unsigned index) const {
  return "Demo" + std::to_string(number_) + "n" + std::to_string(index);
}

std::filesystem::path Station::File(Kind kind, const std::string& name) const {
  static constexpr std::array kExtensions = {".RXL", ".REL", ".REE", ".REF"};
  return reports_ / ("CT01" + name + kExtensions.at(static_cast<std::size_t>(kind)));
}

Entry& Station::EntryOf(Kind kind, unsigned index) const {
  return Own().entries.at(static_cast<std::size_t>(kind)).at(index);
}

// A default report is one of the station's own models that are always there.
Station::Content Station::Expected(Kind kind, unsigned index, unsigned sequence) const {
  if (sequence == kNothing) return std::nullopt;
  if (kind == Kind::standard) return Name(kind, sequence % kNames);
  return Proof(kind, Name(kind, index), number_, sequence);
}

// ---- Calls ---------------------------------------------------------------------------------------------------------

HRESULT Station::Put(Kind kind, const std::string& name, const std::string& content) {
  ++books_.calls;
  std::string bytes = content;
  const auto size = static_cast<LONG>(bytes.size());
  switch (kind) {
    case Kind::model:
      return store_->Grava(Text(Wide(name)), kNoDocument, 0, size, Data(bytes));
    case Kind::relModel:
      return rel_->GravaRelatorio(Text(Wide(name)), 1, size, Data(bytes));
    case Kind::settings: {
      tagREG_RELEXPORTACAO settings{};
      std::memcpy(&settings, bytes.data(), kBytesWithoutPointer<tagREG_RELEXPORTACAO>);
      std::vector<tagREG_RELEXPORTACAO_ITEM> items(settings.iQtdeItens);
      bytes.copy(reinterpret_cast<char*>(items.data()), items.size() * sizeof items[0],
                 kBytesWithoutPointer<tagREG_RELEXPORTACAO>);
      settings.pregItens = items.data();
      return rel_->GravaDadosExportacaoDoRelatorio(Text(Wide(name)), settings);
    }
    case Kind::filter: {
      std::vector<tagCAMPO_FILTRO> entries(bytes.size() / sizeof(tagCAMPO_FILTRO));
      std::memcpy(entries.data(), bytes.data(), bytes.size());
      tagFILTRO_RELATORIO filter{static_cast<std::uint16_t>(entries.size()), entries.data()};
      return rel_->GravaFiltroRelatorio(Text(Wide(name)), &filter);
    }
    case Kind::standard:
      return own_->SetRelatorioPadrao(Text(Wide(content)));
  }
  return E_FAIL;
}

HRESULT Station::Remove(Kind kind, const std::string& name) {
  ++books_.calls;
  if (kind == Kind::standard) return own_->SetRelatorioPadrao(nullptr);
  if (kind == Kind::relModel) return rel_->ExcluiRelatorio(Text(Wide(name)));
  if (kind == Kind::settings) return rel_->ExcluiRelatorio(Text(Wide(name + ".REE")));
  char deleted = 0;
  const HRESULT result = store_->ExcluiRelatorio(Text(Wide(name)), 0, &deleted);
  if ((result == S_OK) != (deleted == 1)) Fault("a deletion that does not know what it did");
  return result;
}

// `*content` stays empty when there is none, or when it is not to be had at the moment.
HRESULT Station::Get(Kind kind, const std::string& name, Content* content) {
  ++books_.calls;
  switch (kind) {
    case Kind::model: {
      REG_RELATORIO2* read = nullptr;
      const HRESULT result = store_->Le(Text(Wide(name)), &read);
      const TaskBlock<REG_RELATORIO2> owner(read);
      if (read == nullptr) return result;
      const TaskBlock<std::uint8_t> bytes(read->lpRelatorio);
      *content = Bytes(bytes.get(), static_cast<std::size_t>(read->nQtdeBytes));
      if (read->nVersao != kNoDocument) Fault(name + " has another version");
      return result;
    }
    case Kind::relModel: {
      LONG size = 0;
      const HRESULT result = rel_->BuscaTamanhoRelatorio(Text(Wide(name)), &size);
      if (result != S_OK) return result;
      std::string bytes(static_cast<std::size_t>(size), '\0');
      const HRESULT handedOver = rel_->BuscaRelatorio(size, Data(bytes));
      if (handedOver == S_OK) *content = bytes;
      return handedOver;
    }
    case Kind::settings: {
      tagREG_RELEXPORTACAO* read = nullptr;
      const HRESULT result = rel_->BuscaDadosExportacaoDoRelatorio(Text(Wide(name)), &read);
      const TaskBlock<tagREG_RELEXPORTACAO> owner(read);
      if (read == nullptr) return result;
      const TaskBlock<tagREG_RELEXPORTACAO_ITEM> items(read->pregItens);
      *content = Bytes(reinterpret_cast<const char*>(read), kBytesWithoutPointer<tagREG_RELEXPORTACAO>) +
                 Bytes(items.get(), read->iQtdeItens);
      return result;
    }
    case Kind::filter: {
      tagFILTRO_RELATORIO* read = nullptr;
      const HRESULT result = rel_->LeFiltroRelatorio(Text(Wide(name)), &read);
      const TaskBlock<tagFILTRO_RELATORIO> owner(read);
      if (read == nullptr) return result;
      const TaskBlock<tagCAMPO_FILTRO> entries(read->pregValoresFiltro);
      if (read->nQtdCampos != 0) *content = Bytes(entries.get(), read->nQtdCampos);
      return result;
    }
    case Kind::standard: {
      const std::string found = Default(*own_);
      if (found.starts_with("0x")) return kInUse;
      if (found != "(null)") *content = found;
      return S_OK;
    }
  }
  return E_FAIL;
}

// The content of a name that nobody else changes. Others may hold its file for a moment.
Station::Content Station::Fetch(Kind kind, const std::string& name) {
  Content content;
  HRESULT result = S_OK;
  const bool fetched = support::WaitUntil(
      [&] {
        result = Get(kind, name, &content);
        return result == S_OK || (kind != Kind::standard && !std::filesystem::exists(File(kind, name)));
      },
      kPatienceSeconds);
  if (!fetched) Fault(name + " is there and not to be had: " + kestor::ResultCode(result));
  return content;
}

// ---- What is the station's own -------------------------------------------------------------------------------------

void Station::Change(Kind kind, unsigned index) {
  Entry& entry = EntryOf(kind, index);
  const std::string name = Name(kind, index);
  const bool removes = kind != Kind::filter && entry.kept != kNothing && Chance(5);
  const unsigned sequence = removes ? kNothing : NextSequence();
  entry.pending = sequence;
  const HRESULT result = removes ? Remove(kind, name) : Put(kind, name, *Expected(kind, index, sequence));
  // A first-generation deletion passes over what is in use, and does not tell.
  if (removes && (kind == Kind::relModel || kind == Kind::settings)) return Settle(kind, index);
  if (result == S_OK) {
    entry.kept = sequence;
    ++books_.changes;
  } else if (!MeansInUse(result) && !(kind == Kind::filter && entry.kept == kNothing && result == kTakenAway)) {
    Fault("changing " + name + ": " + kestor::ResultCode(result));
  }
  entry.pending = kNoChange;
}

void Station::Check(Kind kind, unsigned index) {
  const std::string name = Name(kind, index);
  if (Fetch(kind, name) != Expected(kind, index, EntryOf(kind, index).kept))
    Fault(name + " is not what it was left as");
}

// After a call of which nobody knows what it has done.
void Station::Settle(Kind kind, unsigned index) {
  Entry& entry = EntryOf(kind, index);
  const std::string name = Name(kind, index);
  const unsigned pending = entry.pending == kNoChange ? entry.kept.load() : entry.pending.load();
  const Content found = Fetch(kind, name);
  if (found == Expected(kind, index, pending)) {
    entry.kept = pending;
  } else if (found != Expected(kind, index, entry.kept)) {
    Fault(name + " is neither the old content nor the new one");
  }
  entry.pending = kNoChange;
}

void Station::TakeOver() {
  for (unsigned i = 0; i < kNames; ++i) {
    if (std::filesystem::exists(reports_ / ("CT" + Key() + Name(Kind::standard, i) + ".RXL"))) continue;
    if (support::WriteModel(*own_, Wide(Name(Kind::standard, i)), "x") != S_OK) Fault("no model for the default");
  }
  for (const Kind kind : kKinds) {
    for (unsigned i = 0; i < NamesOf(kind); ++i)
      Settle(kind, i);
  }
}

void Station::CheckAll() {
  for (const Kind kind : kKinds) {
    for (unsigned i = 0; i < NamesOf(kind); ++i)
      Check(kind, i);
  }
  CheckDeleted();
  CheckLists();
}

void Station::DeleteDemonstration() {
  unsigned index = 0;
  while (index < kMostDeleted && Own().deleted.at(index) != Deletion::none)
    ++index;
  if (index == kMostDeleted) return;
  books_.calls += 2;
  Own().deleted.at(index) = Deletion::begun;
  const std::u16string name = Wide(DeletedName(index));
  if (support::WriteModel(*own_, name, "x") != S_OK) return Fault("no model to be deleted");
  char deleted = 0;
  const HRESULT result = own_->ExcluiRelatorio(Text(name), 1, &deleted);
  if (result != S_OK) return Fault("deleting a demonstration model: " + kestor::ResultCode(result));
  Own().deleted.at(index) = Deletion::acknowledged;
}

void Station::CheckDeleted() {
  std::string names;
  const bool read = support::WaitUntil([&] { return (names = Deleted(*own_)) != kestor::ResultCode(kInUse); });
  ++books_.calls;
  if (!read || names.starts_with("0x")) return Fault("the deleted names are not to be had: " + names);
  std::istringstream list(names == "(null)" ? "" : names);
  std::string name;
  for (unsigned i = 0; i < kMostDeleted; ++i) {
    const Deletion state = Own().deleted.at(i);
    if (state == Deletion::none) continue;
    if (name.empty()) std::getline(list, name, ',');
    const bool remembered = name == DeletedName(i);
    if (!remembered && state == Deletion::acknowledged) return Fault("deleted and forgotten: " + DeletedName(i));
    if (remembered) name.clear();
  }
  if (!name.empty() || std::getline(list, name, ',')) Fault("deleted by nobody: " + name);
}

void Station::CheckLists() {
  books_.calls += 2;
  const std::string listed = "," + Listed(*store_);
  BSTR names = nullptr;
  rel_->BuscaNomeRelatoriosExistentes(&names);
  const OwnedBstr owner(names);
  const std::string relListed = "|" + text::Utf16ToUtf8({names, SysStringLen(names)}) + "|";
  for (unsigned i = 0; i < kNames; ++i) {
    const std::string model = Name(Kind::model, i);
    if ((EntryOf(Kind::model, i).kept != kNothing) != (listed.find("," + model + ",") != std::string::npos)) {
      Fault("a list that is wrong about " + model);
    }
    const std::string rel = Name(Kind::relModel, i);
    if ((EntryOf(Kind::relModel, i).kept != kNothing) != (relListed.find("|" + rel + "|") != std::string::npos)) {
      Fault("a list that is wrong about " + rel);
    }
  }
}

// ---- What all stations share ---------------------------------------------------------------------------------------

void Station::UseShared() {
  const Kind kind = kKinds.at(random_() % 3);
  const std::string name =
      "Comum" + std::to_string(static_cast<int>(kind)) + "n" + std::to_string(random_() % kSharedNames);
  HRESULT result = S_OK;
  switch (random_() % 6) {
    case 0:
      result = Remove(kind, name);
      if (result != S_OK && !MeansInUse(result) && result != static_cast<HRESULT>(0x80070002)) break;
      return;
    case 1:
    case 2:
      result = Put(kind, name, Proof(kind, name, number_, NextSequence()));
      if (result == S_OK) ++books_.changes;
      if (result != S_OK && !MeansInUse(result)) break;
      return;
    case 3: {
      ++books_.calls;
      std::string content = Proof(Kind::model, "Comum0n0", number_, NextSequence());
      result = store_->Grava(Text(u"Comum0n0"), kNoDocument, KESTOR_NaoSobreescrever, static_cast<LONG>(content.size()),
                             Data(content));
      if (result != S_OK && result != kThere && !MeansInUse(result)) break;
      return;
    }
    default: {
      Content content;
      result = Get(kind, name, &content);
      if (result != S_OK && result != kNotThere && result != kNotRead) break;
      if (!content) return;
      std::istringstream head(content->substr(std::min(content->size(), kLaterVersion.size())));
      std::string writtenFor;
      unsigned station = kStations;
      unsigned sequence = 0;
      head >> writtenFor >> station >> sequence;
      const bool issued = station < kStations && sequence <= books_.accounts.at(station).sequence;
      if (writtenFor != name || !issued || *content != Proof(kind, name, station, sequence)) {
        Fault(name + " holds what nobody has written");
      }
      return;
    }
  }
  Fault("using " + name + ": " + kestor::ResultCode(result));
}

void Station::UseSharedDefault() {
  ++books_.calls;
  if (Chance(2)) {
    const HRESULT result =
        store_->SetRelatorioPadrao(Text(u"Comum0n" + Wide(std::to_string(random_() % kSharedNames))));
    if (result != S_OK && result != S_FALSE && result != kInUseForRecords) {
      Fault("setting the common default report: " + kestor::ResultCode(result));
    }
    return;
  }
  const std::string found = Default(*store_);
  if (found != "(null)" && !found.starts_with("Comum0n") && found != kestor::ResultCode(kInUse) &&
      found != kestor::ResultCode(kInUseForRecords)) {
    Fault("the common default report is " + found);
  }
}

// ---- Migration and renumbering -------------------------------------------------------------------------------------

// Models that are converted by whoever comes first, and renumbered to and fro.
void Station::Convert() {
  books_.calls += 2;
  for (unsigned i = 0; i < kMostConverted && Chance(2); ++i) {
    if (Own().converted.at(i)) continue;
    LegacyModel model;
    model.header = "station " + std::to_string(number_) + " model " + std::to_string(i);
    model.columns.assign(1 + i * 10, {205, 10, 'D'});
    std::string content = LegacyContent(model, static_cast<int>(i % 4)).bytes;
    const HRESULT result =
        converting_->GravaRelatorio(Text(Wide("Converte" + std::to_string(number_) + "n" + std::to_string(i))), 1,
                                    static_cast<LONG>(content.size()), Data(content));
    if (result == S_OK) Own().converted.at(i) = true;
    if (result != S_OK && !MeansInUse(result)) Fault("no model to be converted: " + kestor::ResultCode(result));
  }
  HRESULT result = S_OK;
  const char16_t* component = Chance(4) ? u"01" : u"02";
  if (Chance(2)) {
    ComPtr<IZNPL_Relatorio2> migrating;
    kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(IID_IZNPL_Relatorio2, migrating.OutVoid(), counter_,
                                                             Migrate);
    result = migrating->Inicializa(Text(u"CT"), Text(component));
  } else {
    ComPtr<IZNPL_RelConverte> renumbering;
    kestor::CRelConverte::Cria<kestor::CRelConverte>(IID_IZNPL_RelConverte, renumbering.OutVoid(), counter_,
                                                     [](kestor::ContagemServidor& server, REFIID iid, void** object) {
                                                       return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(
                                                           iid, object, server, Migrate);
                                                     });
    REL_CODIGO_CAMPOS_ALTERADOS pair = {205, 310};
    if (Chance(2)) std::swap(pair.nCodigoAntigo, pair.nNovoCodigo);
    result = renumbering->AlteraCodigoCampos(Text(u"CT"), Text(component), 1, &pair);
  }
  if (FAILED(result)) Fault("migration or renumbering: " + kestor::ResultCode(result));
}

// When all is quiet, every acknowledged model is a document, as it was written but for the codes.
void Station::CheckConverted() {
  ComPtr<IZNPL_Relatorio2> store;
  kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(IID_IZNPL_Relatorio2, store.OutVoid(), counter_, Migrate);
  if (store->Inicializa(Text(u"CT"), Text(u"02")) != S_OK) return Fault("nothing can be converted");
  for (unsigned i = 0; i < kMostConverted; ++i) {
    if (!Own().converted.at(i)) continue;
    const std::string name = "Converte" + std::to_string(number_) + "n" + std::to_string(i);
    std::string content = support::ReadModel(*store, Wide(name));
    kestor::CDocRelatorio document;
    const bool loads = document.CarregaConteudo({1, static_cast<LONG>(content.size()), Data(content)});
    const auto& columns = document.camposEscolhidos.campos;
    const bool codes = std::all_of(columns.begin(), columns.end(), [](const kestor::CampoEscolhido& column) {
      return column.codigo == 205 || column.codigo == 310;
    });
    if (!loads || document.nome != name || columns.size() != 1 + i * 10 || !codes ||
        document.impressao.cabecalho.texto != "station " + std::to_string(number_) + " model " + std::to_string(i)) {
      Fault(name + " has not been converted whole: " + content.substr(0, 200));
    }
    if (std::filesystem::exists(reports_ / ("CT02" + name + ".REL"))) Fault(name + " is still there");
  }
}

void Station::Work(std::uint32_t seed) {
  random_.seed(seed);
  while (!books_.closed) {
    const Kind kind = kKinds.at(random_() % kKinds.size());
    const auto index = static_cast<unsigned>(random_() % NamesOf(kind));
    switch (random_() % 16) {
      case 0:
        if (Chance(6)) Convert();  // takes as long as a hundred others
        break;
      case 1:
        for (int i = 0; i < 5; ++i)
          DeleteDemonstration();
        break;
      case 2:
        CheckDeleted();
        CheckLists();
        break;
      case 3:
        UseSharedDefault();
        break;
      case 4:
      case 5:
      case 6:
      case 7:
        UseShared();
        break;
      case 8:
      case 9:
      case 10:
        Check(kind, index);
        break;
      default:
        Change(kind, index);
    }
  }
}

}  // namespace contention
