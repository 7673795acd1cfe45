// A station of an installation that many stations share, and the books about what all of them have done.
#pragma once

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "document/rel_converte.h"
#include "migration/conversion_fixture.h"
#include "platform/files/files.h"

namespace contention {

using support::Text;

inline constexpr unsigned kStations = 4;
inline constexpr unsigned kNames = 4;  // of each kind that a station has to itself; one default report
inline constexpr unsigned kMostDeleted = 4000;
inline constexpr unsigned kMostConverted = 12;
inline constexpr unsigned kNothing = 0;  // the content that is not there
inline constexpr unsigned kNoChange = ~0U;

// What a station keeps under a name: models of both generations, filters, and the default report of its own key.
enum class Kind { model, relModel, filter, standard };
inline constexpr std::array kKinds = {Kind::model, Kind::relModel, Kind::filter, Kind::standard};

// The sequence number of the content that was last acknowledged, and of the one that a call is about to put there. A
// station that is killed in between leaves either.
struct Entry {
  std::atomic<unsigned> kept{kNothing};
  std::atomic<unsigned> pending{kNoChange};
};

struct Account {
  std::array<std::array<Entry, kNames>, kKinds.size()> entries;
  std::atomic<unsigned> sequence{kNothing};                   // the last number that was given out
  std::atomic<unsigned> deleted{0};                           // demonstration models whose names are remembered
  std::array<std::atomic<bool>, kMostConverted> converted{};  // models acknowledged that the migration converts
};

// In memory that the stations share; outlives those that are killed.
struct Books {
  std::array<Account, kStations> accounts;
  std::atomic<unsigned> calls{0};
  std::atomic<unsigned> changes{0};  // acknowledged, of entries and common names
  std::atomic<unsigned> faults{0};
  std::atomic<bool> closed{false};
};

inline bool MeansInUse(HRESULT result) {
  return result == static_cast<HRESULT>(0x80070020) || result == static_cast<HRESULT>(0x80043EEE) ||
         result == kestor::ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
}

inline unsigned NamesOf(Kind kind) {
  return kind == Kind::standard ? 1 : kNames;
}

// The migration leaves a model that begins like this where it is: it is of a later version than any that it knows.
inline constexpr std::string_view kLaterVersion("\x01\xA5\x09\x00", 4);

// A content that tells for which name, by which station and as which one of its contents it was written, and that can
// be told from any other and from a part of itself.
inline std::string Proof(Kind kind, const std::string& name, unsigned station, unsigned sequence) {
  std::string content(kLaterVersion);
  content += name + ' ' + std::to_string(station) + ' ' + std::to_string(sequence) + ' ';
  std::minstd_rand random(sequence * kStations + station + 1);
  std::size_t size = content.size() + random() % 3000;
  if (kind == Kind::model && sequence % 16 == 0) size += 200'000;
  if (kind == Kind::filter) size = (1 + random() % 30) * sizeof(tagCAMPO_FILTRO);
  while (content.size() < size)
    content += static_cast<char>(random());
  return content;
}

// One process's access to the shared folders, for the names of station `number`. What is not as it must be is printed
// and counted in the books.
class Station {
 public:
  Station(Books& books, unsigned number, std::filesystem::path reports)
      : books_(books), own_(books.accounts.at(number)), number_(number), reports_(std::move(reports)) {
    common_ = NewStore("01");
    keys_ = NewStore(key_);
    rel_ = NewRel(u"01");
    converting_ = NewRel(u"02");
  }

  // What a killed predecessor left: each name holds the old content or the new one. To be called before anything else.
  void TakeOver() {
    for (unsigned i = 0; i < kNames; ++i) {
      const std::string name = Name(Kind::standard, i);
      if (std::filesystem::exists(reports_ / ("CT" + key_ + name + ".RXL"))) continue;
      if (support::WriteModel(*keys_, Wide(name), "x") != S_OK) Fault("no model for the default");
    }
    ForAllNames(&Station::Settle);
    if (Remembered() == DeletedNames(own_.deleted + 1)) ++own_.deleted;
  }

  // Does something, at random; again and again until the books are closed.
  void Work(std::uint32_t seed) {
    random_.seed(seed);
    while (!books_.closed) {
      const Kind kind = kKinds.at(random_() % kKinds.size());
      const auto index = static_cast<unsigned>(random_() % NamesOf(kind));
      const auto action = random_() % 16;
      if (action < 5) {
        Change(kind, index);
      } else if (action < 8) {
        Check(kind, index);
      } else if (action < 12) {
        UseShared();
      } else if (action == 12) {
        UseSharedDefault();
      } else if (action == 13) {
        CheckLists();
      } else if (action == 14) {
        for (int i = 0; i < 5; ++i)
          DeleteDemonstration();
      } else if (Chance(6)) {
        Convert();  // takes as long as a hundred others
      }
    }
  }

  // All that was acknowledged is there.
  void CheckAll() {
    ForAllNames(&Station::Check);
    CheckLists();
    CheckConverted();
  }

 private:
  using Content = std::optional<std::string>;

  static std::u16string Wide(const std::string& text) { return text::Utf8ToUtf16(text); }
  static Text Named(const std::string& name) { return Text(Wide(name)); }
  static unsigned char* Data(std::string& content) { return reinterpret_cast<unsigned char*>(content.data()); }

  void Fault(const std::string& what) const {
    ++books_.faults;
    std::fprintf(stderr, "station %u: %s\n", number_, what.c_str());
  }
  void FaultUnless(bool right, const std::string& what, HRESULT result) const {
    if (!right) Fault(what + ": " + kestor::ResultCode(result));
  }

  bool Chance(unsigned one) { return random_() % one == 0; }

  // ---- Stores, names and contents ----------------------------------------------------------------------------------

  ComPtr<IZNPL_Relatorio2> NewStore(const std::string& component) {
    ComPtr<IZNPL_Relatorio2> store;
    MakeStore(counter_, IID_IZNPL_Relatorio2, store.OutVoid());
    const HRESULT result = store->Inicializa(Text(u"CT"), Named(component));
    FaultUnless(SUCCEEDED(result), "no store, or no migration", result);
    return store;
  }

  static HRESULT MakeStore(kestor::ContagemServidor& server, REFIID iid, void** object) {
    return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, server, Migrate);
  }

  ComPtr<IZNPL_Rel> NewRel(const char16_t* component) {
    ComPtr<IZNPL_Rel> rel;
    MakeRel(counter_, IID_IZNPL_Rel, rel.OutVoid());
    if (rel->Inicializa(nullptr, Text(u"CT"), Text(component)) != S_OK) Fault("no store of the first generation");
    return rel;
  }

  std::string Numbered(const char* name, unsigned index) const {
    return name + std::to_string(number_) + "n" + std::to_string(index);
  }

  std::string Name(Kind kind, unsigned index) const {
    static constexpr std::array kNamesOfKinds = {"Modelo", "Antigo", "Filtro", "Padrao"};
    return Numbered(kNamesOfKinds.at(static_cast<std::size_t>(kind)), index);
  }

  bool HasFile(Kind kind, const std::string& name) const {
    static constexpr std::array kExtensions = {".RXL", ".REL", ".REF"};
    return std::filesystem::exists(reports_ / ("CT01" + name + kExtensions.at(static_cast<std::size_t>(kind))));
  }

  Entry& EntryOf(Kind kind, unsigned index) const { return own_.entries.at(static_cast<std::size_t>(kind)).at(index); }

  void ForAllNames(void (Station::*action)(Kind, unsigned)) {
    for (const Kind kind : kKinds) {
      for (unsigned i = 0; i < NamesOf(kind); ++i)
        (this->*action)(kind, i);
    }
  }

  // A default report is one of the station's own models that are always there.
  Content Expected(Kind kind, unsigned index, unsigned sequence) const {
    if (sequence == kNothing) return std::nullopt;
    if (kind == Kind::standard) return Name(kind, sequence % kNames);
    return Proof(kind, Name(kind, index), number_, sequence);
  }

  // ---- Calls -------------------------------------------------------------------------------------------------------

  HRESULT Put(Kind kind, const std::string& name, std::string content, unsigned char flags = 0) {
    ++books_.calls;
    const auto size = static_cast<LONG>(content.size());
    if (kind == Kind::standard) return keys_->SetRelatorioPadrao(Named(content));
    if (kind == Kind::model) return common_->Grava(Named(name), kNoDocument, flags, size, Data(content));
    if (kind == Kind::relModel) return rel_->GravaRelatorio(Named(name), 1, size, Data(content));
    std::vector<tagCAMPO_FILTRO> entries(content.size() / sizeof(tagCAMPO_FILTRO));
    std::memcpy(entries.data(), content.data(), content.size());
    tagFILTRO_RELATORIO filter{static_cast<std::uint16_t>(entries.size()), entries.data()};
    return rel_->GravaFiltroRelatorio(Named(name), &filter);
  }

  HRESULT Remove(Kind kind, const std::string& name) {
    ++books_.calls;
    if (kind == Kind::standard) return keys_->SetRelatorioPadrao(nullptr);
    if (kind == Kind::relModel) return rel_->ExcluiRelatorio(Named(name));
    char deleted = 0;
    const HRESULT result = common_->ExcluiRelatorio(Named(name), 0, &deleted);
    if ((result == S_OK) != (deleted == 1)) Fault("a deletion that does not know what it did");
    return result;
  }

  // `*content` stays empty when there is none, or when it is not to be had at the moment.
  HRESULT Get(Kind kind, const std::string& name, Content* content) {
    ++books_.calls;
    if (kind == Kind::standard) {
      const std::string found = Default(*keys_);
      if (found.starts_with("0x")) return E_FAIL;
      if (found != "(null)") *content = found;
      return S_OK;
    }
    if (kind == Kind::model) {
      REG_RELATORIO2* read = nullptr;
      const HRESULT result = common_->Le(Named(name), &read);
      const TaskBlock<REG_RELATORIO2> owner(read);
      if (read == nullptr) return result;
      const TaskBlock<std::uint8_t> bytes(read->lpRelatorio);
      *content = std::string(bytes.get(), bytes.get() + read->nQtdeBytes);
      if (read->nVersao != kNoDocument) Fault(name + " has another version");
      return result;
    }
    if (kind == Kind::relModel) {
      LONG size = 0;
      const HRESULT result = rel_->BuscaTamanhoRelatorio(Named(name), &size);
      if (result != S_OK) return result;
      std::string bytes(static_cast<std::size_t>(size), '\0');
      const HRESULT handedOver = rel_->BuscaRelatorio(size, Data(bytes));
      if (handedOver == S_OK) *content = bytes;
      return handedOver;
    }
    tagFILTRO_RELATORIO* read = nullptr;
    const HRESULT result = rel_->LeFiltroRelatorio(Named(name), &read);
    const TaskBlock<tagFILTRO_RELATORIO> owner(read);
    if (read == nullptr) return result;
    const TaskBlock<tagCAMPO_FILTRO> entries(read->pregValoresFiltro);
    const auto* bytes = reinterpret_cast<const char*>(entries.get());
    if (read->nQtdCampos != 0) *content = std::string(bytes, read->nQtdCampos * sizeof(tagCAMPO_FILTRO));
    return result;
  }

  // The content of a name that nobody else changes. Others may hold its file for a moment.
  Content Fetch(Kind kind, const std::string& name) {
    Content content;
    HRESULT result = S_OK;
    const bool fetched = support::WaitUntil([&] {
      result = Get(kind, name, &content);
      return result == S_OK || (kind != Kind::standard && !HasFile(kind, name));
    });
    FaultUnless(fetched, name + " is there and not to be had", result);
    return content;
  }

  // ---- What is the station's own -----------------------------------------------------------------------------------

  void Change(Kind kind, unsigned index) {
    Entry& entry = EntryOf(kind, index);
    const std::string name = Name(kind, index);
    const bool removes = kind != Kind::filter && entry.kept != kNothing && Chance(5);
    const unsigned sequence = removes ? kNothing : ++own_.sequence;
    entry.pending = sequence;
    const HRESULT result = removes ? Remove(kind, name) : Put(kind, name, *Expected(kind, index, sequence));
    // A first-generation deletion passes over what is in use, and does not tell.
    if (removes && kind == Kind::relModel) return Settle(kind, index);
    FaultUnless(result == S_OK || MeansInUse(result), "changing " + name, result);
    if (result == S_OK) {
      entry.kept = sequence;
      ++books_.changes;
    }
    entry.pending = kNoChange;
  }

  void Check(Kind kind, unsigned index) {
    const std::string name = Name(kind, index);
    if (Fetch(kind, name) != Expected(kind, index, EntryOf(kind, index).kept))
      Fault(name + " is not what it was left as");
  }

  // After a call of which nobody knows what it has done.
  void Settle(Kind kind, unsigned index) {
    Entry& entry = EntryOf(kind, index);
    const unsigned pending = entry.pending == kNoChange ? entry.kept.load() : entry.pending.load();
    const Content found = Fetch(kind, Name(kind, index));
    if (found == Expected(kind, index, pending)) {
      entry.kept = pending;
    } else if (found != Expected(kind, index, entry.kept)) {
      Fault(Name(kind, index) + " is neither the old content nor the new one");
    }
    entry.pending = kNoChange;
  }

  void DeleteDemonstration() {
    if (own_.deleted == kMostDeleted) return;
    books_.calls += 2;
    const std::u16string name = Wide(Numbered("Demo", own_.deleted));
    if (support::WriteModel(*keys_, name, "x") != S_OK) return Fault("no model to be deleted");
    char deleted = 0;
    const HRESULT result = keys_->ExcluiRelatorio(Text(name), 1, &deleted);
    FaultUnless(result == S_OK, "deleting a demonstration model", result);
    // A list that others have in use all the time does not get the name.
    if (Remembered() == DeletedNames(own_.deleted + 1)) ++own_.deleted;
  }

  std::string DeletedNames(unsigned count) const {
    std::string names;
    for (unsigned i = 0; i < count; ++i)
      names += Numbered("Demo", i) + ",";
    return names;
  }

  // The names of deleted demonstration models, as the store has them.
  std::string Remembered() {
    ++books_.calls;
    std::string names;
    support::WaitUntil([&] { return (names = Deleted(*keys_)) != "0x80070020"; });
    return names == "(null)" ? "" : names;
  }

  void CheckLists() {
    if (Remembered() != DeletedNames(own_.deleted)) Fault("another list of deleted models: " + Remembered());
    books_.calls += 2;
    BSTR names = nullptr;
    rel_->BuscaNomeRelatoriosExistentes(&names);
    const OwnedBstr owner(names);
    const std::pair<Kind, std::string> lists[] = {
        {Kind::model, "," + Listed(*common_)},
        {Kind::relModel, "|" + text::Utf16ToUtf8({names, SysStringLen(names)}) + "|"}};
    for (const auto& [kind, list] : lists) {
      for (unsigned i = 0; i < kNames; ++i) {
        const bool listed = list.find(list[0] + Name(kind, i) + list[0]) != std::string::npos;
        if (listed != (EntryOf(kind, i).kept != kNothing)) Fault("a list that is wrong about " + Name(kind, i));
      }
    }
  }

  // ---- What all stations share -------------------------------------------------------------------------------------

  std::string SharedName(Kind kind) {
    return "Comum" + std::to_string(static_cast<int>(kind)) + "n" + std::to_string(random_() % 3);
  }

  void UseShared() {
    const Kind kind = Chance(2) ? Kind::model : Kind::relModel;
    const std::string name = SharedName(kind);
    const auto action = random_() % 6;
    if (action > 3) return CheckShared(kind, name);
    if (action == 0) {
      const HRESULT result = Remove(kind, name);
      const bool isGone = result == static_cast<HRESULT>(0x80070002);
      return FaultUnless(result == S_OK || isGone || MeansInUse(result), "deleting " + name, result);
    }
    const bool mustBeNew = action == 3 && kind == Kind::model;
    const HRESULT result = Put(kind, name, Proof(kind, name, number_, ++own_.sequence),
                               static_cast<unsigned char>(mustBeNew ? KESTOR_NaoSobreescrever : 0));
    if (result == S_OK) ++books_.changes;
    const bool isThere = mustBeNew && result == kestor::NoticeForm(KESTOR_ARQUIVO_JA_EXISTE);
    FaultUnless(result == S_OK || isThere || MeansInUse(result), "writing " + name, result);
  }

  void CheckShared(Kind kind, const std::string& name) {
    Content content;
    const HRESULT result = Get(kind, name, &content);
    FaultUnless(result == S_OK || result == kestor::NoticeForm(KESTOR_ARQ_NAO_EXISTE), "reading " + name, result);
    if (!content) return;
    std::istringstream head(content->substr(std::min(content->size(), kLaterVersion.size())));
    std::string writtenFor;
    unsigned station = kStations;
    unsigned sequence = 0;
    head >> writtenFor >> station >> sequence;
    const bool issued = station < kStations && sequence <= books_.accounts.at(station).sequence;
    if (writtenFor != name || !issued || *content != Proof(kind, name, station, sequence))
      Fault(name + " holds what nobody has written");
  }

  void UseSharedDefault() {
    ++books_.calls;
    const bool sets = Chance(2);
    const std::string told = sets ? SetDefault(*common_, Wide(SharedName(Kind::model))) : Default(*common_);
    const bool right = sets ? told == "0x00000000" || told == "0x00000001" : told == "(null)" || IsSharedModel(told);
    if (!right && told != "0x80043EEE" && (sets || told != "0x80070020")) Fault("the common default report: " + told);
  }

  static bool IsSharedModel(const std::string& name) { return name.starts_with("Comum0n"); }

  // ---- Migration and renumbering -----------------------------------------------------------------------------------

  static std::string Header(const std::string& name) { return "the model " + name; }

  // Models that are converted by whoever comes first, and renumbered to and fro.
  void Convert() {
    books_.calls += 2;
    for (unsigned i = 0; i < kMostConverted && Chance(2); ++i) {
      if (own_.converted.at(i)) continue;
      const std::string name = Numbered("Converte", i);
      LegacyModel model;
      model.header = Header(name);
      model.columns.assign(1 + i * 10, {205, 10, 'D'});
      std::string content = LegacyContent(model, static_cast<int>(i % 4)).bytes;
      const HRESULT result =
          converting_->GravaRelatorio(Named(name), 1, static_cast<LONG>(content.size()), Data(content));
      if (result == S_OK) own_.converted.at(i) = true;
      FaultUnless(result == S_OK || MeansInUse(result), "no model to be converted", result);
    }
    const std::string component = Chance(4) ? "01" : "02";
    if (Chance(2)) {
      NewStore(component);
      return;
    }
    ComPtr<IZNPL_RelConverte> renumbering;
    kestor::CRelConverte::Cria<kestor::CRelConverte>(IID_IZNPL_RelConverte, renumbering.OutVoid(), counter_, MakeStore);
    REL_CODIGO_CAMPOS_ALTERADOS pair = {205, 310};
    if (Chance(2)) std::swap(pair.nCodigoAntigo, pair.nNovoCodigo);
    const HRESULT result = renumbering->AlteraCodigoCampos(Text(u"CT"), Named(component), 1, &pair);
    FaultUnless(SUCCEEDED(result), "renumbering", result);
  }

  // When all is quiet, every acknowledged model is a document, as it was written but for the codes.
  void CheckConverted() {
    const auto store = NewStore("02");
    for (unsigned i = 0; i < kMostConverted; ++i) {
      if (!own_.converted.at(i)) continue;
      const std::string name = Numbered("Converte", i);
      std::string content = support::ReadModel(*store, Wide(name));
      kestor::CDocRelatorio document;
      const bool loads = document.CarregaConteudo({1, static_cast<LONG>(content.size()), Data(content)});
      const auto& columns = document.camposEscolhidos.campos;
      const bool codes = std::all_of(columns.begin(), columns.end(),
                                     [](const auto& column) { return column.codigo == 205 || column.codigo == 310; });
      if (!loads || document.nome != name || columns.size() != 1 + i * 10 || !codes ||
          document.impressao.cabecalho.texto != Header(name)) {
        Fault(name + " has not been converted whole: " + content.substr(0, 200));
      }
      if (std::filesystem::exists(reports_ / ("CT02" + name + ".REL"))) Fault(name + " is still there");
    }
  }

  static constexpr USHORT kNoDocument = 2;

  Books& books_;
  Account& own_;
  const unsigned number_;
  const std::string key_ = "K" + std::to_string(number_);
  const std::filesystem::path reports_;
  std::mt19937 random_;
  Counter counter_;
  ComPtr<IZNPL_Relatorio2> common_;  // component 01: everybody's
  ComPtr<IZNPL_Relatorio2> keys_;    // the station's own key
  ComPtr<IZNPL_Rel> rel_;            // component 01
  ComPtr<IZNPL_Rel> converting_;     // component 02, whose models are converted
};

}  // namespace contention
