#include "kestor.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "common/texto_bstr.h"
#include "contract/interfaces.h"
#include "contract/results.h"
#include "marshal/marshal.h"
#include "platform/com/error_info.h"
#include "platform/com/long_calls.h"
#include "platform/home/home.h"
#include "platform/text/text.h"

namespace {

// ---- Records: those of the contract under names of C ---------------------------------------------------------------

static_assert(KESTOR_INVALID_POINTER == E_POINTER && KESTOR_INVALID_ARGUMENT == E_INVALIDARG);
static_assert(KESTOR_OUT_OF_MEMORY == E_OUTOFMEMORY && KESTOR_NOT_REGISTERED == REGDB_E_CLASSNOTREG);
static_assert(KESTOR_NO_SERVER == rpc::kServerUnavailable && KESTOR_SERVER_LOST == rpc::kCallFailed);
static_assert(KESTOR_TIMED_OUT == HRESULT_FROM_WIN32(ERROR_TIMEOUT));

static_assert(sizeof(kestor_field) == sizeof(tagREG_CAMPOS_RELATORIO2));
static_assert(offsetof(kestor_field, alias) == offsetof(tagREG_CAMPOS_RELATORIO2, szApelido));
static_assert(offsetof(kestor_field, options) == offsetof(tagREG_CAMPOS_RELATORIO2, szOpcoes));
static_assert(offsetof(kestor_field, may_filter) == offsetof(tagREG_CAMPOS_RELATORIO2, bPodeFiltrar));
static_assert(offsetof(kestor_field, may_sort) == offsetof(tagREG_CAMPOS_RELATORIO2, bPodeOrdenar));
static_assert(offsetof(kestor_field, type) == offsetof(tagREG_CAMPOS_RELATORIO2, cTipo));
static_assert(sizeof(kestor_legacy_field) == sizeof(tagREG_CAMPOS_RELATORIO));
static_assert(offsetof(kestor_legacy_field, alias) == offsetof(tagREG_CAMPOS_RELATORIO, cApelido));
static_assert(offsetof(kestor_legacy_field, may_filter) == offsetof(tagREG_CAMPOS_RELATORIO, bCondicao));
static_assert(offsetof(kestor_legacy_field, may_total) == offsetof(tagREG_CAMPOS_RELATORIO, bTotalizavel));
static_assert(offsetof(kestor_legacy_field, type) == offsetof(tagREG_CAMPOS_RELATORIO, cTipo));
static_assert(sizeof(kestor_column) == sizeof(REG_ATUALIZACAO_RELATORIO));
static_assert(offsetof(kestor_column, width) == offsetof(REG_ATUALIZACAO_RELATORIO, iTamanho));
static_assert(sizeof(kestor_export) == kBytesWithoutPointer<tagREG_RELEXPORTACAO>);
static_assert(offsetof(kestor_export, item_count) == offsetof(tagREG_RELEXPORTACAO, iQtdeItens));
static_assert(offsetof(kestor_export, delimiter) == offsetof(tagREG_RELEXPORTACAO, cDelimitador));
static_assert(sizeof(kestor_export_item) == sizeof(tagREG_RELEXPORTACAO_ITEM));
static_assert(offsetof(kestor_export_item, type) == offsetof(tagREG_RELEXPORTACAO_ITEM, cTipo));
static_assert(sizeof(kestor_filter_entry) == sizeof(tagCAMPO_FILTRO));
static_assert(offsetof(kestor_filter_entry, type) == offsetof(tagCAMPO_FILTRO, valorCampo.nTipo));
static_assert(sizeof(kestor_code_change) == sizeof(REL_CODIGO_CAMPOS_ALTERADOS));
static_assert(offsetof(kestor_code_change, to) == offsetof(REL_CODIGO_CAMPOS_ALTERADOS, nNovoCodigo));

// ---- What every call has -------------------------------------------------------------------------------------------

// No exception leaves the library.
template <typename Work>
kestor_result Guarded(const Work& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception&) {
    return E_FAIL;
  }
}

void RegisterOnce() {
  static std::once_flag once;
  std::call_once(once, marshal::RegisterInterfaces);
}

std::chrono::milliseconds TimeOf(const kestor_options* options) {
  return std::chrono::milliseconds(options == nullptr ? 0 : options->milliseconds);
}

// Returns whether the options have the members of the first version. A program built with an older header lacks later
// ones.
bool AreWhole(const kestor_options* options) {
  return options == nullptr || options->size >= offsetof(kestor_options, only_if_running) + 1;
}

bool IsText(const char* text) {
  return text != nullptr && text::IsValidUtf8(text);
}

OwnedBstr ToBstr(const char* utf8) {
  return kestor::NovoBstr(text::Utf8ToUtf16(utf8));
}

// Allocates a block that kestor_free frees.
template <typename Item>
TaskBlock<Item> NewItems(std::size_t count, std::size_t more = 0) {
  if (count > (std::numeric_limits<std::size_t>::max() - more) / sizeof(Item)) throw std::bad_alloc();
  return NewTaskBlock<Item>(count * sizeof(Item) + more);
}

// Hands out records of the contract under their C names. Never returns NULL.
template <typename Item, typename Record>
Item* HandOut(TaskBlock<Record> records) {
  static_assert(sizeof(Item) == sizeof(Record));
  if (!records) return NewItems<Item>(0).release();
  return reinterpret_cast<Item*>(records.release());
}

char* CopyText(const std::string& text) {
  char* const copy = NewItems<char>(text.size() + 1).release();
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

kestor_names CopyNames(const std::vector<std::string>& names) {
  std::size_t bytes = 0;
  for (const std::string& name : names)
    bytes += name.size() + 1;
  kestor_names copy = {NewItems<char*>(names.size(), bytes).release(), names.size()};
  char* next = reinterpret_cast<char*>(copy.names + names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    copy.names[i] = next;
    std::memcpy(next, names[i].c_str(), names[i].size() + 1);
    next += names[i].size() + 1;
  }
  return copy;
}

// Copies the names and frees the records, even those that come with a result that the server never gives.
std::vector<std::string> TakeNames(const REG_ARRAY_RELATORIO2& list) {
  const TaskBlock<tagREG_NOME_RELATORIO2> records(list.pregRelatorios);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < list.nQtdeRelatorios; ++i) {
    const char* const name = records.get()[i].szNomeRelatorio;
    names.push_back(text::ToUtf8(std::string_view(name, strnlen(name, sizeof records.get()[i].szNomeRelatorio))));
  }
  return names;
}

// Fetches the reason for the last result while the connection that has it is still open.
void KeepReason() {
  ComPtr<IErrorInfo> information;
  if (GetErrorInfo(0, information.Out()) == S_OK) SetErrorInfo(0, information.Get());
}

// An object of the server, and the time limit of its calls.
template <typename Interface>
struct Handle {
  template <typename Work>
  kestor_result Call(const Work& work) {
    return Guarded([&]() -> kestor_result {
      const com::WithinTime limit(time);
      return work(*object.Get());
    });
  }

  ComPtr<Interface> object;
  std::chrono::milliseconds time{};
};

template <typename Opened, typename Interface, typename Initialise>
kestor_result Open(const kestor_options* options, REFCLSID clsid, REFIID iid, Opened** opened,
                   const Initialise& initialise) {
  return Guarded([&]() -> kestor_result {
    RegisterOnce();
    auto handle = std::make_unique<Opened>();
    handle->time = TimeOf(options);
    const com::WithinTime limit(handle->time);
    const bool mayStart = options == nullptr || options->only_if_running == 0;
    HRESULT result = mayStart ? CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER, iid, handle->object.OutVoid())
                              : com::CreateWhereServed(clsid, iid, handle->object.OutVoid());
    if (SUCCEEDED(result)) {
      result = initialise(*handle->object.Get());
      if (FAILED(result)) KeepReason();
    }
    if (FAILED(result)) return result;
    *opened = handle.release();
    return result;
  });
}

bool FitsCount(std::size_t count) {
  return count <= std::numeric_limits<USHORT>::max();
}

bool FitsSize(std::size_t size) {
  return size <= static_cast<std::size_t>(std::numeric_limits<LONG>::max());
}

// Returns whether an answer could carry so many items. A false count from a server must not cost memory.
bool FitsAnswer(LONG count, std::size_t itemBytes) {
  return count >= 0 && static_cast<std::size_t>(count) <= channel::kMaxPayloadBytes / itemBytes;
}

unsigned char* BytesOf(const void* bytes) {
  return const_cast<unsigned char*>(static_cast<const unsigned char*>(bytes));
}

thread_local std::string said;   // by kestor_last_reason
thread_local std::string name;   // by kestor_result_name
thread_local std::string meant;  // by kestor_result_meaning

template <typename Make>
const char* Say(std::string* place, const Make& make) {
  try {
    *place = make();
    return place->c_str();
  } catch (const std::exception&) {
    return "";
  }
}

}  // namespace

struct kestor_reports : Handle<IZNPL_Relatorio2> {};
struct kestor_legacy : Handle<IZNPL_Rel> {};

// ---- Results -------------------------------------------------------------------------------------------------------

const char* kestor_result_name(kestor_result result) {
  return Say(&name, [&] { return kestor::Describe(result).name; });
}

const char* kestor_result_meaning(kestor_result result) {
  return Say(&meant, [&] { return kestor::Describe(result).meaning; });
}

const char* kestor_last_reason(void) {
  return Say(&said, [] {
    ComPtr<IErrorInfo> information;
    return GetErrorInfo(0, information.Out()) == S_OK ? com::DescriptionOf(*information) : std::string();
  });
}

void kestor_free(void* block) {
  CoTaskMemFree(block);
}

kestor_result kestor_use_home(const char* folder) {
  if (folder == nullptr) return E_POINTER;
  if (*folder == '\0') return E_INVALIDARG;
  return Guarded([&]() -> kestor_result {
    platform::Home::Use(folder);
    return S_OK;
  });
}

// ---- Texts of records ----------------------------------------------------------------------------------------------

char* kestor_to_utf8(const char* field, size_t room) {
  if (field == nullptr) return nullptr;
  try {
    return CopyText(text::ToUtf8(std::string_view(field, strnlen(field, room))));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

kestor_result kestor_from_utf8(const char* utf8, char* field, size_t room) {
  if (utf8 == nullptr || field == nullptr) return E_POINTER;
  if (room == 0) return E_INVALIDARG;
  return Guarded([&]() -> kestor_result {
    std::string ansi;
    const bool isExact = text::FromUtf8Exactly(utf8, &ansi);
    if (!isExact) ansi = text::FromUtf8(utf8);
    const std::size_t bytes = std::min(ansi.size(), room - 1);
    std::memset(field, 0, room);
    ansi.copy(field, bytes);
    return isExact && bytes == ansi.size() ? S_OK : E_INVALIDARG;
  });
}

// ---- Second generation ---------------------------------------------------------------------------------------------

kestor_result kestor_reports_open(const kestor_options* options, const char* module, const char* component,
                                  kestor_reports** store) {
  if (store == nullptr) return E_POINTER;
  *store = nullptr;
  if (module == nullptr || component == nullptr) return E_POINTER;
  if (!AreWhole(options) || !IsText(module) || !IsText(component)) return E_INVALIDARG;
  return Open<kestor_reports, IZNPL_Relatorio2>(
      options, CLSID_ZNPL_Relatorio2, IID_IZNPL_Relatorio2, store,
      [&](IZNPL_Relatorio2& object) { return object.Inicializa(ToBstr(module).get(), ToBstr(component).get()); });
}

void kestor_reports_close(kestor_reports* store) {
  delete store;
}

kestor_result kestor_reports_list(kestor_reports* store, kestor_names* names) {
  if (names == nullptr) return E_POINTER;
  *names = {};
  if (store == nullptr) return E_POINTER;
  return store->Call([&](IZNPL_Relatorio2& object) {
    REG_ARRAY_RELATORIO2* list = nullptr;
    const HRESULT result = object.GetNomeRelatorios(&list);
    const TaskBlock<REG_ARRAY_RELATORIO2> owner(list);
    const std::vector<std::string> found = list == nullptr ? std::vector<std::string>() : TakeNames(*list);
    if (result == S_OK) *names = CopyNames(found);
    return result;
  });
}

kestor_result kestor_reports_read(kestor_reports* store, const char* model, kestor_content* content) {
  if (content == nullptr) return E_POINTER;
  *content = {};
  if (store == nullptr || model == nullptr) return E_POINTER;
  if (!IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Relatorio2& object) {
    REG_RELATORIO2* record = nullptr;
    const HRESULT result = object.Le(ToBstr(model).get(), &record);
    const TaskBlock<REG_RELATORIO2> owner(record);
    if (record == nullptr) return result;
    TaskBlock<std::uint8_t> bytes(record->lpRelatorio);
    if (result != S_OK) return result;
    *content = {HandOut<std::uint8_t>(std::move(bytes)), static_cast<std::size_t>(record->nQtdeBytes), record->nVersao};
    return result;
  });
}

kestor_result kestor_reports_write(kestor_reports* store, const char* model, uint16_t version, unsigned flags,
                                   const void* bytes, size_t size) {
  if (store == nullptr || model == nullptr || (bytes == nullptr && size != 0)) return E_POINTER;
  constexpr unsigned kFlags = KESTOR_KEEP_EXISTING | KESTOR_CHECK_DEMONSTRATIONS;
  if (!IsText(model) || (flags & ~kFlags) != 0 || !FitsSize(size)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Relatorio2& object) {
    return object.Grava(ToBstr(model).get(), version, static_cast<unsigned char>(flags), static_cast<LONG>(size),
                        BytesOf(bytes));
  });
}

kestor_result kestor_reports_delete(kestor_reports* store, const char* model, int demonstration) {
  if (store == nullptr || model == nullptr) return E_POINTER;
  if (!IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Relatorio2& object) {
    char deleted = 0;
    return object.ExcluiRelatorio(ToBstr(model).get(), static_cast<char>(demonstration != 0 ? 1 : 0), &deleted);
  });
}

kestor_result kestor_reports_get_default(kestor_reports* store, char** model) {
  if (model == nullptr) return E_POINTER;
  *model = nullptr;
  if (store == nullptr) return E_POINTER;
  return store->Call([&](IZNPL_Relatorio2& object) {
    BSTR text = nullptr;
    const HRESULT result = object.GetRelatorioPadrao(&text);
    const OwnedBstr owner(text);
    if (result == S_OK && text != nullptr) *model = CopyText(text::Utf16ToUtf8({text, SysStringLen(text)}));
    return result;
  });
}

kestor_result kestor_reports_set_default(kestor_reports* store, const char* model) {
  if (store == nullptr) return E_POINTER;
  if (model != nullptr && !IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Relatorio2& object) {
    return object.SetRelatorioPadrao(model == nullptr ? nullptr : ToBstr(model).get());
  });
}

kestor_result kestor_reports_deleted(kestor_reports* store, kestor_names* names) {
  if (names == nullptr) return E_POINTER;
  *names = {};
  if (store == nullptr) return E_POINTER;
  return store->Call([&](IZNPL_Relatorio2& object) {
    REG_ARRAY_RELATORIO2 list{};
    const HRESULT result = object.GetNomeRelatoriosDemonstracaoExcluidos(&list);
    const std::vector<std::string> found = TakeNames(list);
    if (result == S_OK) *names = CopyNames(found);
    return result;
  });
}

kestor_result kestor_reports_fields(kestor_reports* store, kestor_field** fields, size_t* count) {
  if (fields == nullptr || count == nullptr) return E_POINTER;
  *fields = nullptr;
  *count = 0;
  if (store == nullptr) return E_POINTER;
  return store->Call([&](IZNPL_Relatorio2& object) {
    REG_CAMPOS_DISPONIVEIS2* list = nullptr;
    const HRESULT result = object.GetCamposDisponiveis(&list);
    const TaskBlock<REG_CAMPOS_DISPONIVEIS2> owner(list);
    if (list == nullptr) return result;
    TaskBlock<tagREG_CAMPOS_RELATORIO2> records(list->pregCampos);
    if (result != S_OK) return result;
    *fields = HandOut<kestor_field>(std::move(records));
    *count = list->nQtdeCampos;
    return result;
  });
}

// ---- First generation ----------------------------------------------------------------------------------------------

kestor_result kestor_legacy_open(const kestor_options* options, const char* module, const char* component,
                                 kestor_legacy** store) {
  if (store == nullptr) return E_POINTER;
  *store = nullptr;
  if (module == nullptr || component == nullptr) return E_POINTER;
  if (!AreWhole(options) || !IsText(module) || !IsText(component)) return E_INVALIDARG;
  return Open<kestor_legacy, IZNPL_Rel>(options, CLSID_ZNPL_Rel, IID_IZNPL_Rel, store, [&](IZNPL_Rel& object) {
    return object.Inicializa(nullptr, ToBstr(module).get(), ToBstr(component).get());
  });
}

void kestor_legacy_close(kestor_legacy* store) {
  delete store;
}

kestor_result kestor_legacy_list(kestor_legacy* store, kestor_names* names) {
  if (names == nullptr) return E_POINTER;
  *names = {};
  if (store == nullptr) return E_POINTER;
  return store->Call([&](IZNPL_Rel& object) {
    BSTR joined = nullptr;
    const HRESULT result = object.BuscaNomeRelatoriosExistentes(&joined);
    const OwnedBstr owner(joined);
    if (result != S_OK) return result;
    const std::string text = joined == nullptr ? "" : text::Utf16ToUtf8({joined, SysStringLen(joined)});
    std::vector<std::string> found;
    for (std::size_t start = 0; !text.empty() && start <= text.size();) {
      const std::size_t bar = std::min(text.find('|', start), text.size());
      found.push_back(text.substr(start, bar - start));
      start = bar + 1;
    }
    *names = CopyNames(found);
    return result;
  });
}

kestor_result kestor_legacy_read(kestor_legacy* store, const char* model, kestor_content* content) {
  if (content == nullptr) return E_POINTER;
  *content = {};
  if (store == nullptr || model == nullptr) return E_POINTER;
  if (!IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) {
    LONG size = 0;
    HRESULT result = object.BuscaTamanhoRelatorio(ToBstr(model).get(), &size);
    if (result != S_OK) return result;
    if (!FitsAnswer(size, 1)) return rpc::kBadStubData;
    TaskBlock<std::uint8_t> bytes = NewItems<std::uint8_t>(static_cast<std::size_t>(size));
    result = object.BuscaRelatorio(size, bytes.get());
    if (result != S_OK) return result;
    *content = {bytes.release(), static_cast<std::size_t>(size), 0};
    return result;
  });
}

namespace {

kestor_result WriteLegacy(kestor_legacy* store, const char* model, unsigned flags, const void* bytes, size_t size,
                          HRESULT (IZNPL_Rel::*method)(BSTR, LONG, LONG, unsigned char*)) {
  if (store == nullptr || model == nullptr || (bytes == nullptr && size != 0)) return E_POINTER;
  if (!IsText(model) || (flags & ~unsigned{KESTOR_KEEP_EXISTING}) != 0 || !FitsSize(size)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) {
    return (object.*method)(ToBstr(model).get(), (flags & KESTOR_KEEP_EXISTING) != 0 ? 0 : 1, static_cast<LONG>(size),
                            BytesOf(bytes));
  });
}

}  // namespace

kestor_result kestor_legacy_write(kestor_legacy* store, const char* model, unsigned flags, const void* bytes,
                                  size_t size) {
  return WriteLegacy(store, model, flags, bytes, size, &IZNPL_Rel::GravaRelatorio);
}

kestor_result kestor_legacy_write_quietly(kestor_legacy* store, const char* model, unsigned flags, const void* bytes,
                                          size_t size) {
  return WriteLegacy(store, model, flags, bytes, size, &IZNPL_Rel::GravaRelatorioSemCallBack);
}

kestor_result kestor_legacy_delete(kestor_legacy* store, const char* model) {
  if (store == nullptr || model == nullptr) return E_POINTER;
  if (!IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) { return object.ExcluiRelatorio(ToBstr(model).get()); });
}

kestor_result kestor_legacy_update(kestor_legacy* store, const char* model, uint16_t left, uint16_t top,
                                   const kestor_column* columns, size_t count) {
  if (store == nullptr || model == nullptr || (columns == nullptr && count != 0)) return E_POINTER;
  if (!IsText(model) || !FitsCount(count)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) {
    std::vector<REG_ATUALIZACAO_RELATORIO> records(count + 1);
    if (count != 0) std::memcpy(records.data(), columns, count * sizeof *columns);
    return object.AtualizaRelatorio(ToBstr(model).get(), left, top, static_cast<USHORT>(count), records.data());
  });
}

kestor_result kestor_legacy_get_export(kestor_legacy* store, const char* model, kestor_export* settings,
                                       kestor_export_item** items) {
  if (settings == nullptr || items == nullptr) return E_POINTER;
  *settings = {};
  *items = nullptr;
  if (store == nullptr || model == nullptr) return E_POINTER;
  if (!IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) {
    tagREG_RELEXPORTACAO* record = nullptr;
    const HRESULT result = object.BuscaDadosExportacaoDoRelatorio(ToBstr(model).get(), &record);
    const TaskBlock<tagREG_RELEXPORTACAO> owner(record);
    if (record == nullptr) return result;
    TaskBlock<tagREG_RELEXPORTACAO_ITEM> records(record->pregItens);
    if (result != S_OK) return result;
    *items = HandOut<kestor_export_item>(std::move(records));
    std::memcpy(settings, record, sizeof *settings);
    return result;
  });
}

kestor_result kestor_legacy_put_export(kestor_legacy* store, const char* model, const kestor_export* settings,
                                       const kestor_export_item* items) {
  if (store == nullptr || model == nullptr || settings == nullptr) return E_POINTER;
  if (items == nullptr && settings->item_count != 0) return E_POINTER;
  if (!IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) {
    std::vector<tagREG_RELEXPORTACAO_ITEM> records(settings->item_count + std::size_t{1});
    if (settings->item_count != 0) std::memcpy(records.data(), items, settings->item_count * sizeof *items);
    tagREG_RELEXPORTACAO record{};
    std::memcpy(&record, settings, sizeof *settings);
    record.pregItens = records.data();
    return object.GravaDadosExportacaoDoRelatorio(ToBstr(model).get(), record);
  });
}

kestor_result kestor_legacy_get_filter(kestor_legacy* store, const char* model, kestor_filter_entry** entries,
                                       size_t* count) {
  if (entries == nullptr || count == nullptr) return E_POINTER;
  *entries = nullptr;
  *count = 0;
  if (store == nullptr || model == nullptr) return E_POINTER;
  if (!IsText(model)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) {
    tagFILTRO_RELATORIO* record = nullptr;
    const HRESULT result = object.LeFiltroRelatorio(ToBstr(model).get(), &record);
    const TaskBlock<tagFILTRO_RELATORIO> owner(record);
    if (record == nullptr) return result;
    TaskBlock<tagCAMPO_FILTRO> records(record->pregValoresFiltro);
    if (result != S_OK) return result;
    *entries = HandOut<kestor_filter_entry>(std::move(records));
    *count = record->nQtdCampos;
    return result;
  });
}

kestor_result kestor_legacy_put_filter(kestor_legacy* store, const char* model, const kestor_filter_entry* entries,
                                       size_t count) {
  if (store == nullptr || model == nullptr || (entries == nullptr && count != 0)) return E_POINTER;
  if (!IsText(model) || !FitsCount(count)) return E_INVALIDARG;
  return store->Call([&](IZNPL_Rel& object) {
    std::vector<tagCAMPO_FILTRO> records(count + 1);
    if (count != 0) std::memcpy(records.data(), entries, count * sizeof *entries);
    tagFILTRO_RELATORIO filter = {static_cast<USHORT>(count), records.data()};
    return object.GravaFiltroRelatorio(ToBstr(model).get(), &filter);
  });
}

kestor_result kestor_legacy_fields(kestor_legacy* store, kestor_legacy_field** fields, size_t* count) {
  if (fields == nullptr || count == nullptr) return E_POINTER;
  *fields = nullptr;
  *count = 0;
  if (store == nullptr) return E_POINTER;
  return store->Call([&](IZNPL_Rel& object) {
    LONG number = 0;
    HRESULT result = object.BuscaQdeCamposArquivo(&number);
    if (result != S_OK) return result;
    if (!FitsAnswer(number, sizeof(tagREG_CAMPOS_RELATORIO))) return rpc::kBadStubData;
    const auto items = static_cast<std::size_t>(number);
    TaskBlock<tagREG_CAMPOS_RELATORIO> records = NewItems<tagREG_CAMPOS_RELATORIO>(items);
    result = object.BuscaCampos(number, records.get());
    if (result != S_OK) return result;
    *fields = HandOut<kestor_legacy_field>(std::move(records));
    *count = items;
    return result;
  });
}

// ---- Renumbering ---------------------------------------------------------------------------------------------------

kestor_result kestor_renumber(const kestor_options* options, const char* module, const char* component,
                              const kestor_code_change* changes, size_t count) {
  struct Converter : Handle<IZNPL_RelConverte> {};
  if (module == nullptr || component == nullptr || (changes == nullptr && count != 0)) return E_POINTER;
  if (!AreWhole(options) || !IsText(module) || !IsText(component) || !FitsSize(count)) return E_INVALIDARG;
  Converter* converter = nullptr;
  const kestor_result result = Open<Converter, IZNPL_RelConverte>(
      options, CLSID_ZNPL_RelConverte, IID_IZNPL_RelConverte, &converter, [](IZNPL_RelConverte&) { return S_OK; });
  if (result != S_OK) return result;
  const std::unique_ptr<Converter> owner(converter);
  return converter->Call([&](IZNPL_RelConverte& object) {
    std::vector<REL_CODIGO_CAMPOS_ALTERADOS> records(count + 1);
    if (count != 0) std::memcpy(records.data(), changes, count * sizeof *changes);
    const HRESULT renumbered = object.AlteraCodigoCampos(ToBstr(module).get(), ToBstr(component).get(),
                                                         static_cast<LONG>(count), records.data());
    if (renumbered != S_OK) KeepReason();
    return renumbered;
  });
}
