// Objects of the three interfaces that note the calls they get, byte by byte as a call carries them, and answer what a
// script tells them.
#pragma once

#include <array>
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

// What stands in front of an array, a record without the pointer at its end or the count alone: its bytes, where in it
// the count lies, the bytes of that, and the bytes of an item of the array.
inline const std::map<char, std::array<std::size_t, 4>> kLayouts = {
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
    count_ = number;  // NOLINT(bugprone-signed-char-misuse): a number
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
  void Meet(REG_ARRAY_RELATORIO2* record) { Put(record, 'M'); }

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
    Put(*record, letter);
  }
  void Put(void* record, char letter) {
    const auto& [bytes, countOffset, countBytes, itemBytes] = kLayouts.at(letter);
    const std::size_t allBytes = static_cast<std::size_t>(script_.answer.count) * itemBytes;
    void* items = script_.answer.hasArray ? Made(CoTaskMemAlloc(allBytes)) : nullptr;
    if (items != nullptr) Fill(items, allBytes);
    Fill(record, bytes);
    std::memcpy(static_cast<char*>(record) + countOffset, &script_.answer.count, countBytes);
    std::memcpy(static_cast<char*>(record) + bytes, &items, sizeof items);
  }

  Script& script_;
  std::int64_t count_ = 0;  // the last number that came in
};

// Of the parameters, t is a text, i a number, n the number of items of the array after it.
class Rel final : public Recorder<IZNPL_Rel, IID_IZNPL_Rel> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR t, BSTR t2, BSTR t3) override { return Answer(__func__, t, t2, t3); }
  HRESULT BuscaCampos(LONG n, tagREG_CAMPOS_RELATORIO* out) override { return Answer(__func__, n, out); }
  HRESULT BuscaQdeCamposArquivo(LONG* out) override { return Answer(__func__, out); }
  HRESULT BuscaRelatorio(LONG n, BYTE* out) override { return Answer(__func__, n, static_cast<void*>(out)); }
  HRESULT BuscaTamanhoRelatorio(BSTR t, LONG* out) override { return Answer(__func__, t, out); }
  HRESULT GravaRelatorio(BSTR t, LONG i, LONG n, BYTE* in) override { return Answer(__func__, t, i, n, in); }
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* out) override { return Answer(__func__, out); }
  HRESULT ExcluiRelatorio(BSTR t) override { return Answer(__func__, t); }
  HRESULT AtualizaRelatorio(BSTR t, USHORT i, USHORT i2, USHORT n, REG_ATUALIZACAO_RELATORIO* in) override {
    return Answer(__func__, t, i, i2, n, in);
  }
  HRESULT GravaRelatorioSemCallBack(BSTR t, LONG i, LONG n, BYTE* in) override { return Answer(__func__, t, i, n, in); }
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR t, tagREG_RELEXPORTACAO in) override { return Answer(__func__, t, in); }
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR t, tagREG_RELEXPORTACAO** out) override {
    return Answer(__func__, t, out);
  }
  HRESULT LeFiltroRelatorio(BSTR t, tagFILTRO_RELATORIO** out) override { return Answer(__func__, t, out); }
  HRESULT GravaFiltroRelatorio(BSTR t, tagFILTRO_RELATORIO* in) override { return Answer(__func__, t, in); }
};

class Relatorio2 final : public Recorder<IZNPL_Relatorio2, IID_IZNPL_Relatorio2> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR t, BSTR t2) override { return Answer(__func__, t, t2); }
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** out) override { return Answer(__func__, out); }
  HRESULT Le(BSTR t, REG_RELATORIO2** out) override { return Answer(__func__, t, out); }
  HRESULT Grava(BSTR t, USHORT i, BYTE i2, LONG n, BYTE* in) override { return Answer(__func__, t, i, i2, n, in); }
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** out) override { return Answer(__func__, out); }
  HRESULT ExcluiRelatorio(BSTR t, char i, char* out) override { return Answer(__func__, t, i, out); }
  HRESULT GetRelatorioPadrao(BSTR* out) override { return Answer(__func__, out); }
  HRESULT SetRelatorioPadrao(BSTR t) override { return Answer(__func__, t); }
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* out) override { return Answer(__func__, out); }
};

class RelConverte final : public Recorder<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
 public:
  using Recorder::Recorder;

  HRESULT AlteraCodigoCampos(BSTR t, BSTR t2, LONG n, REL_CODIGO_CAMPOS_ALTERADOS* in) override {
    return Answer(__func__, t, t2, n, in);
  }
};

}  // namespace recorder
