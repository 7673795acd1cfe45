// Whatever the bytes of the record files, each call has a defined result and uses only records of its own key, and an
// appended record lies at a record boundary and is found again.
//
// Input: which of the three files are there, and the order of the calls (8 bits), the lengths of the default reports
// and of the deleted names (16 bits each, little-endian), then these two and the control file.
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "common/zn_arq_ex.h"
#include "contract/interfaces.h"
#include "contract/results.h"
#include "platform/home/home.h"
#include "platform/text/text.h"
#include "store/repositorio_rel2.h"

namespace {

using namespace kestor;
namespace fs = std::filesystem;

constexpr std::size_t kRecord = 264;
constexpr std::size_t kKeyBytes = 8;
constexpr const char* kKey = "CT01";
constexpr const char* kDefaults = "ZNRELPAD.DAT";
constexpr const char* kDeleted = "ZNRELDEL.DAT";
constexpr const char* kControl = "ZNCTLARQ.DAT";

void Require(bool condition) {
  if (!condition) abort();
}

using Names = std::vector<std::string>;

std::string_view Text(std::string_view field) {
  return field.substr(0, field.find('\0'));
}

std::string Record(std::string_view key, std::string_view name) {
  std::string record(kRecord, '\0');
  record.replace(0, key.size(), key);
  record.replace(kKeyBytes, name.size(), name);
  return record;
}

bool IsOwn(std::string_view record) {
  return Text(record.substr(0, kKeyBytes)) == kKey;
}

// Returns the names under the key in the complete records after the first one.
Names NamesIn(std::string_view file) {
  Names names;
  for (std::size_t at = kRecord; at + kRecord <= file.size(); at += kRecord) {
    const std::string_view record = file.substr(at, kRecord);
    if (IsOwn(record)) names.emplace_back(Text(record.substr(kKeyBytes, 255)));
  }
  return names;
}

// Returns whether `after` is `before` with one more record. A missing first record and a cut record count as all zeros.
bool HasNew(std::string_view before, std::string_view after, std::string_view record) {
  std::string expected(before.substr(0, before.size() / kRecord * kRecord));
  if (expected.empty() || before.size() > expected.size()) expected.append(kRecord, '\0');
  return after == expected.append(record);
}

// A home whose drive D holds the record files, and two models.
class Installation {
 public:
  Installation() {
    std::string folder = (fs::temp_directory_path() / "kestor-fuzz-XXXXXX").string();
    Require(mkdtemp(folder.data()) != nullptr);
    home_ = folder;
    fs::create_directories(Drive());
    std::ofstream(home_ / "registry.reg", std::ios::binary) << "REGEDIT4\r\n\r\n"
                                                               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela]\r\n"
                                                               "\"Relatorios\"=\"D:\\\\\"\r\n\r\n"
                                                               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela\\Contabil]\r\n"
                                                               "\"Path\"=\"D:\\\\\"\r\n";
    platform::Home::Use(home_);
  }
  ~Installation() {
    std::error_code ignored;
    fs::remove_all(home_, ignored);
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  void Put(const char* name, bool isThere, std::string_view bytes) const {
    if (!isThere) {
      fs::remove(Drive() / name);
      return;
    }
    std::ofstream file(Drive() / name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    Require(file.good());
  }

  // Returns an empty string if the file is missing.
  std::string Get(const char* name) const {
    std::ifstream file(Drive() / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  ComPtr<IZNPL_Relatorio2> NewStore() {
    ComPtr<IZNPL_Relatorio2> store;
    Require(CRepositorioRel2::Cria<CRepositorioRel2>(IID_IZNPL_Relatorio2, store.OutVoid(), counter_) == S_OK);
    const OwnedBstr module(SysAllocString(u"CT"));
    const OwnedBstr component(SysAllocString(u"01"));
    Require(store->Inicializa(module.get(), component.get()) == S_OK);
    return store;
  }

 private:
  class Counter final : public Servidor {
   public:
    LONG Trava() override { return 1; }
    LONG Destrava() override { return 1; }
  };

  fs::path Drive() const { return home_ / "drives" / "d"; }

  fs::path home_;
  Counter counter_;
};

std::optional<std::string> Default(IZNPL_Relatorio2& store) {
  BSTR got = nullptr;
  Require(store.GetRelatorioPadrao(&got) == S_OK);
  const OwnedBstr name(got);
  if (!name) return std::nullopt;
  return text::FromUtf16({name.get(), SysStringLen(name.get())});
}

Names Deleted(IZNPL_Relatorio2& store) {
  REG_ARRAY_RELATORIO2 list{};
  Require(store.GetNomeRelatoriosDemonstracaoExcluidos(&list) == S_OK);
  const TaskBlock<tagREG_NOME_RELATORIO2> entries(list.pregRelatorios);
  Names names;
  for (std::size_t i = 0; i < list.nQtdeRelatorios; ++i)
    names.emplace_back(entries.get()[i].szNomeRelatorio);
  return names;
}

std::optional<std::string> FirstOf(const Names& names) {
  return names.empty() || names.front().empty() ? std::nullopt : std::optional(names.front());
}

// A file that the control file lists is not created again if it is missing.
bool IsRefused(HRESULT result, bool wasThere) {
  return !wasThere &&
         (result == ServiceError(CZNArqEx::naoEncontrado) || result == ServiceError(CZNArqEx::arquivoInvalido));
}

void CheckDefaults(const Installation& folder, IZNPL_Relatorio2& store, bool isThere) {
  const OwnedBstr model(SysAllocString(u"Modelo"));
  std::string before = folder.Get(kDefaults);
  const HRESULT set = store.SetRelatorioPadrao(model.get());
  const std::string after = folder.Get(kDefaults);
  if (set == S_OK) {
    const Names own = NamesIn(before);
    if (own.empty()) {
      Require(HasNew(before, after, Record(kKey, "Modelo")));
    } else {
      std::size_t at = kRecord;
      while (!IsOwn(std::string_view(before).substr(at, kRecord)))
        at += kRecord;
      before.replace(at, kRecord, Record(kKey, "Modelo"));
      Require(NamesIn(after) == NamesIn(before));
      Require(after.substr(0, at + kRecord) == before.substr(0, at + kRecord));
    }
    Require(Default(store) == "Modelo");
  } else {
    Require(IsRefused(set, isThere) && after == before);
  }
}

void CheckDeleted(const Installation& folder, IZNPL_Relatorio2& store, bool isThere) {
  const OwnedBstr model(SysAllocString(u"Demo"));
  const std::string before = folder.Get(kDeleted);
  char deleted = 0;
  Require(store.ExcluiRelatorio(model.get(), 1, &deleted) == S_OK && deleted == 1);
  const std::string after = folder.Get(kDeleted);
  if (!isThere && after == before) return;  // refused, but the model is deleted nevertheless
  Require(HasNew(before, after, Record(kKey, "Demo")));
  Names expected = NamesIn(before);
  expected.emplace_back("Demo");
  Require(Deleted(store) == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Installation folder;
  constexpr std::size_t kHead = 5;
  if (size < kHead) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data + kHead), size - kHead);
  const std::size_t defaultsSize = std::min<std::size_t>(data[1] + std::size_t{256} * data[2], input.size());
  const std::size_t deletedSize =
      std::min<std::size_t>(data[3] + std::size_t{256} * data[4], input.size() - defaultsSize);
  const std::string_view defaults = input.substr(0, defaultsSize);
  const std::string_view deleted = input.substr(defaultsSize, deletedSize);
  const bool hasDefaults = (data[0] & 1) != 0;
  const bool hasDeleted = (data[0] & 2) != 0;
  folder.Put(kDefaults, hasDefaults, defaults);
  folder.Put(kDeleted, hasDeleted, deleted);
  folder.Put(kControl, (data[0] & 4) != 0, input.substr(defaultsSize + deletedSize));
  for (const char* model : {"CT01Modelo.RXL", "CT01Demo.RXL"})
    folder.Put(model, true, "\1\0x");

  // Reads in either order, because a call that finds a file missing creates it.
  auto store = folder.NewStore();
  const auto read = [&] {
    Require(Default(*store) == FirstOf(NamesIn(folder.Get(kDefaults))));
    Require(Deleted(*store) == NamesIn(folder.Get(kDeleted)));
  };
  const bool readsFirst = (data[0] & 8) != 0;
  if (readsFirst) read();
  const bool defaultsFirst = (data[0] & 16) != 0;
  if (defaultsFirst) CheckDefaults(folder, *store, hasDefaults || readsFirst);
  CheckDeleted(folder, *store, hasDeleted || readsFirst);
  if (!defaultsFirst) CheckDefaults(folder, *store, true);  // a deletion has asked for the default
  read();
  store = folder.NewStore();
  read();
  return 0;
}
