// The commands legacy export and legacy filter: the files that belong to a first-generation model, byte for byte.
#include <cstring>
#include <limits>
#include <span>
#include <vector>

#include "content.h"
#include "failure.h"
#include "legacy_commands.h"

namespace kestorctl {

namespace {

constexpr const char* kExportGroupFooter =
    R"(Export settings are 612 bytes, of which bytes 604 and 605 are the number of items (little-endian), then 228 bytes per
item.

Exit status: 0 done; 1 failure; 2 wrong usage.)";

constexpr const char* kGetExportFooter =
    R"(Writes the export settings of a model to FILE, which is written whole or not at all, or to standard output: 612 bytes,
of which bytes 604 and 605 are the number of items, then 228 bytes per item. NAME counts up to its first dot.

With --json: "items", "bytes", and "contentBase64" or, with -o, "file".

Example:
  kestorctl legacy export get CT 01 Vendas -o vendas.ree

Exit status: 0 read; 1 failure, such as a model without export settings (0x80040002); 2 wrong usage.)";

constexpr const char* kPutExportFooter =
    R"(Replaces the export settings of a model, whole or not at all; the model need not exist. The content is 612 bytes, of
which bytes 604 and 605 are the number of items, then 228 bytes per item; another size is refused. NAME counts up to its
first dot.

With --json: "items" and "bytes".

Example:
  kestorctl legacy export put CT 01 Vendas vendas.ree

Exit status: 0 written; 1 failure, such as content of the wrong size; 2 wrong usage.)";

constexpr const char* kFilterGroupFooter =
    R"(A filter is a list of entries of 104 bytes.

Exit status: 0 done; 1 failure; 2 wrong usage.)";

constexpr const char* kGetFilterFooter =
    R"(Writes the filter of a model to FILE, which is written whole or not at all, or to standard output: 104 bytes per entry,
and nothing before them. NAME counts up to its first dot.

With --json: "entries", "bytes", and "contentBase64" or, with -o, "file".

Example:
  kestorctl legacy filter get CT 01 Vendas -o vendas.filter

Exit status: 0 read; 1 failure, such as a model without a filter (0x80043EB7); 2 wrong usage.)";

constexpr const char* kPutFilterFooter =
    R"(Replaces the filter of a model, which need not exist. The content is 104 bytes per entry, at most 65535 entries; another
size is refused. NAME counts up to its first dot.

With --json: "entries" and "bytes".

Examples:
  kestorctl legacy filter put CT 01 Vendas vendas.filter
  kestorctl legacy filter put CT 01 Vendas - < /dev/null

Exit status: 0 written; 1 failure, such as content of the wrong size, or a filter that was made once and has disappeared
(0x80043EB7); 2 wrong usage.)";

constexpr std::size_t kHeaderBytes = kBytesWithoutPointer<tagREG_RELEXPORTACAO>;
constexpr std::size_t kItemBytes = sizeof(tagREG_RELEXPORTACAO_ITEM);
constexpr std::size_t kEntryBytes = sizeof(tagCAMPO_FILTRO);

// Copies bytes that are a whole number of records.
template <typename Record>
std::vector<Record> Records(std::string_view bytes) {
  std::vector<Record> records(bytes.size() / sizeof(Record));
  if (!records.empty()) std::memcpy(records.data(), bytes.data(), bytes.size());
  return records;
}

[[noreturn]] void Refuse(const std::string& file, std::size_t size, const std::string& expected) {
  throw LocalFailure((file == "-" ? "standard input" : file) + " holds " + std::to_string(size) + " bytes: " + expected,
                     E_INVALIDARG);
}

std::span<tagREG_RELEXPORTACAO_ITEM> ItemsOf(const tagREG_RELEXPORTACAO& settings) {
  return {settings.pregItens, settings.iQtdeItens};
}

std::span<tagCAMPO_FILTRO> ItemsOf(const tagFILTRO_RELATORIO& filter) {
  return {filter.pregValoresFiltro, filter.nQtdCampos};
}

// Gives out the first bytes of the record, and its items; `items` is the name of these in the document.
template <typename Record>
void Get(const ReadOptions& options, HRESULT (IZNPL_Rel::*read)(BSTR, Record**), std::size_t headBytes,
         const char* items, Answer& answer) {
  const LegacyStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  Record* record = nullptr;
  Conclude((store.operator->()->*read)(ToBstr(options.model.name).get(), &record), answer);
  if (answer.result != S_OK) return;
  const TaskBlock<Record> owner(record);
  const auto list = ItemsOf(*record);
  const TaskBlock<typename decltype(list)::element_type> itemsOwner(list.data());

  std::string content(reinterpret_cast<const char*>(record), headBytes);
  content.append(reinterpret_cast<const char*>(list.data()), list.size_bytes());
  answer.data[items] = list.size();
  HandOut(content, options.output, answer, ContentForm::kBytes);
}

void GetExport(const ReadOptions& options, Answer& answer) {
  Get(options, &IZNPL_Rel::BuscaDadosExportacaoDoRelatorio, kHeaderBytes, "items", answer);
}

void GetFilter(const ReadOptions& options, Answer& answer) {
  Get(options, &IZNPL_Rel::LeFiltroRelatorio, 0, "entries", answer);
}

// Returns the settings without their items.
tagREG_RELEXPORTACAO Header(const std::string& file, const std::string& content) {
  if (content.size() < kHeaderBytes) {
    Refuse(file, content.size(), "export settings have at least " + std::to_string(kHeaderBytes));
  }
  tagREG_RELEXPORTACAO settings{};
  std::memcpy(&settings, content.data(), kHeaderBytes);
  const std::size_t expected = kHeaderBytes + settings.iQtdeItens * kItemBytes;
  if (content.size() != expected) {
    Refuse(file, content.size(),
           "export settings of " + std::to_string(settings.iQtdeItens) + " items (bytes 604 and 605) have " +
               std::to_string(expected));
  }
  return settings;
}

void RequireFilter(const std::string& file, std::size_t size) {
  constexpr std::size_t kMostEntries = std::numeric_limits<USHORT>::max();
  const std::size_t whole = size / kEntryBytes * kEntryBytes;
  if (whole != size) {
    Refuse(
        file, size,
        "a filter has 104 bytes an entry, so " + std::to_string(whole) + " or " + std::to_string(whole + kEntryBytes));
  }
  if (size / kEntryBytes > kMostEntries) {
    Refuse(
        file, size,
        "a filter has at most 65535 entries of 104 bytes, " + std::to_string(kMostEntries * kEntryBytes) + " in all");
  }
}

// Stores what the input holds; `items` is the name of its items in the document.
template <typename Companion>
void Put(const WriteOptions& options, const char* items, Answer& answer) {
  const std::string content = TakeIn(options.input);
  Companion companion(options.input, content);
  const LegacyStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  Conclude(companion.Store(store, options.model.name), answer);
  if (answer.result != S_OK) return;
  answer.data[items] = companion.Count();
  answer.data["bytes"] = content.size();
}

void PutExport(const WriteOptions& options, Answer& answer) {
  Put<ExportSettings>(options, "items", answer);
}

void PutFilter(const WriteOptions& options, Answer& answer) {
  Put<Filter>(options, "entries", answer);
}

// One kind of file that belongs to a model.
struct Companion {
  CommandTexts group;
  CommandTexts getTexts;
  void (*get)(const ReadOptions&, Answer&);
  CommandTexts putTexts;
  void (*put)(const WriteOptions&, Answer&);
};

constexpr Companion kCompanions[] = {
    {{"export", "Read and write the export settings of a model", kExportGroupFooter},
     {"get", "Read export settings", kGetExportFooter},
     GetExport,
     {"put", "Write export settings", kPutExportFooter},
     PutExport},
    {{"filter", "Read and write the filter of a model", kFilterGroupFooter},
     {"get", "Read a filter", kGetFilterFooter},
     GetFilter,
     {"put", "Write a filter", kPutFilterFooter},
     PutFilter},
};

}  // namespace

ExportSettings::ExportSettings(const std::string& file, const std::string& content)
    : settings_(Header(file, content)),
      items_(Records<tagREG_RELEXPORTACAO_ITEM>(std::string_view(content).substr(kHeaderBytes))) {
  settings_.pregItens = items_.data();
}

HRESULT ExportSettings::Store(const LegacyStore& store, const std::string& model) const {
  return store->GravaDadosExportacaoDoRelatorio(ToBstr(model).get(), settings_);
}

Filter::Filter(const std::string& file, const std::string& content) {
  RequireFilter(file, content.size());
  entries_ = Records<tagCAMPO_FILTRO>(content);
}

HRESULT Filter::Store(const LegacyStore& store, const std::string& model) {
  tagFILTRO_RELATORIO filter = {static_cast<USHORT>(entries_.size()), entries_.data()};
  return store->GravaFiltroRelatorio(ToBstr(model).get(), &filter);
}

void AddCompanions(CLI::App* legacy, Command* chosen) {
  for (const Companion& companion : kCompanions) {
    CLI::App* group = AddGroup(legacy, companion.group);
    const auto get = AddCommand(group, chosen, companion.getTexts, companion.get);
    AddReadOptions(get.command, get.options);
    const auto put = AddCommand(group, chosen, companion.putTexts, companion.put);
    AddWriteOptions(put.command, put.options);
  }
}

}  // namespace kestorctl
