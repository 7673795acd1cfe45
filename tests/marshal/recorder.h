// Objects of the three interfaces that note the calls they get, byte by byte as a call carries them, and answer what a
// script tells them.
#pragma once

#include <atomic>
#include <concepts>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "contract/interfaces.h"
#include "platform/com/object.h"

namespace recorder {

// What the arguments of a call, or of an answer, are made of.
struct Content {
  std::vector<std::optional<std::string>> texts = {"Vendas", "01", "Ltda"};  // their bytes
  LONG number = 0x01828384;
  LONG count = 3;               // of the items of an array
  unsigned char hasRecord = 1;  // 0 or 1, or a byte that no peer may send
  unsigned char hasArray = 1;   // the same
};

struct Script {
  HRESULT result = S_OK;
  Content answer;
  std::function<void()> interrupt = [] {};  // runs inside the method; may throw

  std::string noted;  // the last call: the method's name, and what came in
  std::atomic<int> objects{0};
};

// Every place has a byte of its own, so that nothing can be shifted unnoticed.
inline void Fill(void* start, std::size_t count) {
  auto* bytes = static_cast<unsigned char*>(start);
  for (std::size_t i = 0; i < count; ++i)
    bytes[i] = static_cast<unsigned char>(i * 7 + i / 256 + 3);
}

// What stands in front of an array: a record without the pointer at its end, or the count alone.
struct Layout {
  std::size_t bytes, countOffset, countBytes, itemBytes;
};
inline const std::map<char, Layout> kLayouts = {
    {'b', {4, 0, 4, 1}},        // bytes
    {'B', {4, 0, 4, 1}},        // bytes of which the method judges the count
    {'c', {2, 0, 2, 30}},       // columns
    {'p', {4, 0, 4, 4}},        // pairs
    {'E', {612, 604, 2, 228}},  // export settings
    {'F', {2, 0, 2, 104}},      // filter
    {'K', {2, 0, 2, 262}},      // fields
    {'L', {6, 2, 4, 1}},        // model
    {'M', {2, 0, 2, 256}},      // names
};

template <typename Interface, const IID& iid>
class Recorder : public com::CountedObject<Interface, iid> {
 public:
  explicit Recorder(Script& script) : script_(script) {
    ++script_.objects;
    Recorder::CountedObject::AddRef();
  }

 protected:
  ~Recorder() override { --script_.objects; }

  template <typename... Arguments>
  HRESULT Answer(const char* method, Arguments... arguments) {
    script_.noted = method;
    (Meet(arguments), ...);
    script_.interrupt();
    return script_.result;
  }

 private:
  void Note(const void* bytes, std::size_t count) { script_.noted.append(static_cast<const char*>(bytes), count); }
  template <typename Item>
  void NoteArray(const Item* items, std::int64_t count) {
    script_.noted += items == nullptr ? '\0' : '\1';
    if (items != nullptr && count > 0) Note(items, static_cast<std::size_t>(count) * sizeof(Item));
  }

  // What comes in by an argument. An array has as many items as the number in front of it says.
  void Meet(std::integral auto number) {
    Note(&number, sizeof number);
    count_ = number;
  }
  void Meet(BSTR text) {
    const UINT bytes = SysStringByteLen(text);
    Meet(text == nullptr ? 0xFFFFFFFF : bytes);
    Note(text, bytes);
  }
  void Meet(BYTE* bytes) { NoteArray(bytes, count_); }
  void Meet(REG_ATUALIZACAO_RELATORIO* columns) { NoteArray(columns, count_); }
  void Meet(REL_CODIGO_CAMPOS_ALTERADOS* pairs) { NoteArray(pairs, count_); }
  void Meet(tagREG_RELEXPORTACAO settings) {
    Note(&settings, 612);
    NoteArray(settings.pregItens, settings.iQtdeItens);
  }
  void Meet(tagFILTRO_RELATORIO* filter) {
    NoteArray(filter, 0);
    Note(filter, 2);
    NoteArray(filter->pregValoresFiltro, filter->nQtdCampos);
  }

  // What goes out by an argument: into room for as many items as the number in front of it says, or where the caller
  // finds it.
  void Meet(void* room, std::size_t itemBytes = 1) {
    if (SUCCEEDED(script_.result) && room != nullptr) Fill(room, static_cast<std::size_t>(count_) * itemBytes);
  }
  void Meet(tagREG_CAMPOS_RELATORIO* room) { Meet(room, sizeof *room); }
  template <std::integral Number>
  void Meet(Number* number) {
    *number = static_cast<Number>(script_.answer.number);
  }
  void Meet(BSTR* text) {
    const auto& bytes = script_.answer.texts.front();
    *text = bytes ? Made(SysAllocStringByteLen(bytes->data(), static_cast<UINT>(bytes->size()))) : nullptr;
  }
  void Meet(tagREG_RELEXPORTACAO** record) { Make(record, 'E'); }
  void Meet(tagFILTRO_RELATORIO** record) { Make(record, 'F'); }
  void Meet(REG_CAMPOS_DISPONIVEIS2** record) { Make(record, 'K'); }
  void Meet(REG_RELATORIO2** record) { Make(record, 'L'); }
  void Meet(REG_ARRAY_RELATORIO2** record) { Make(record, 'M'); }
  void Meet(REG_ARRAY_RELATORIO2* record) { Put(record, kLayouts.at('M')); }

  template <typename Block>
  static Block* Made(Block* block) {
    if (block == nullptr) throw std::bad_alloc();
    return block;
  }
  template <typename Record>
  void Make(Record** record, char letter) {
    if (!script_.answer.hasRecord) return;
    *record = static_cast<Record*>(Made(CoTaskMemAlloc(sizeof(Record))));
    **record = {};  // the caller's to free from now on
    Put(*record, kLayouts.at(letter));
  }
  void Put(void* record, const Layout& layout) {
    const std::size_t itemBytes = static_cast<std::size_t>(script_.answer.count) * layout.itemBytes;
    void* items = script_.answer.hasArray ? Made(CoTaskMemAlloc(itemBytes)) : nullptr;
    if (items != nullptr) Fill(items, itemBytes);
    Fill(record, layout.bytes);
    std::memcpy(static_cast<char*>(record) + layout.countOffset, &script_.answer.count, layout.countBytes);
    std::memcpy(static_cast<char*>(record) + layout.bytes, &items, sizeof items);
  }

  Script& script_;
  std::int64_t count_ = 0;  // the last number that came in
};

class Rel final : public Recorder<IZNPL_Rel, IID_IZNPL_Rel> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR company, BSTR module, BSTR key) override { return Answer(__func__, company, module, key); }
  HRESULT BuscaCampos(LONG n, tagREG_CAMPOS_RELATORIO* out) override { return Answer(__func__, n, out); }
  HRESULT BuscaQdeCamposArquivo(LONG* n) override { return Answer(__func__, n); }
  HRESULT BuscaRelatorio(LONG n, BYTE* out) override { return Answer(__func__, n, static_cast<void*>(out)); }
  HRESULT BuscaTamanhoRelatorio(BSTR name, LONG* n) override { return Answer(__func__, name, n); }
  HRESULT GravaRelatorio(BSTR name, LONG flag, LONG n, BYTE* in) override {
    return Answer(__func__, name, flag, n, in);
  }
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* names) override { return Answer(__func__, names); }
  HRESULT ExcluiRelatorio(BSTR name) override { return Answer(__func__, name); }
  HRESULT AtualizaRelatorio(BSTR name, USHORT x, USHORT y, USHORT n, REG_ATUALIZACAO_RELATORIO* in) override {
    return Answer(__func__, name, x, y, n, in);
  }
  HRESULT GravaRelatorioSemCallBack(BSTR name, LONG flag, LONG n, BYTE* in) override {
    return Answer(__func__, name, flag, n, in);
  }
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR name, tagREG_RELEXPORTACAO in) override {
    return Answer(__func__, name, in);
  }
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR name, tagREG_RELEXPORTACAO** out) override {
    return Answer(__func__, name, out);
  }
  HRESULT LeFiltroRelatorio(BSTR name, tagFILTRO_RELATORIO** out) override { return Answer(__func__, name, out); }
  HRESULT GravaFiltroRelatorio(BSTR name, tagFILTRO_RELATORIO* in) override { return Answer(__func__, name, in); }
};

class Relatorio2 final : public Recorder<IZNPL_Relatorio2, IID_IZNPL_Relatorio2> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR module, BSTR key) override { return Answer(__func__, module, key); }
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** out) override { return Answer(__func__, out); }
  HRESULT Le(BSTR name, REG_RELATORIO2** out) override { return Answer(__func__, name, out); }
  HRESULT Grava(BSTR name, USHORT version, BYTE flag, LONG n, BYTE* in) override {
    return Answer(__func__, name, version, flag, n, in);
  }
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** out) override { return Answer(__func__, out); }
  HRESULT ExcluiRelatorio(BSTR name, char demo, char* deleted) override {
    return Answer(__func__, name, demo, deleted);
  }
  HRESULT GetRelatorioPadrao(BSTR* name) override { return Answer(__func__, name); }
  HRESULT SetRelatorioPadrao(BSTR name) override { return Answer(__func__, name); }
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* out) override { return Answer(__func__, out); }
};

class RelConverte final : public Recorder<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
 public:
  using Recorder::Recorder;

  HRESULT AlteraCodigoCampos(BSTR module, BSTR key, LONG n, REL_CODIGO_CAMPOS_ALTERADOS* in) override {
    return Answer(__func__, module, key, n, in);
  }
};

}  // namespace recorder
