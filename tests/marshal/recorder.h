// Objects of the three interfaces that note the calls they get, byte by byte as a call carries them, and answer what a
// script tells them.
#pragma once

#include <atomic>
#include <concepts>
#include <cstring>
#include <functional>
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

// A record without the pointer at its end, and the array to which that leads.
struct Layout {
  std::size_t bytes;
  std::size_t countOffset;
  std::size_t countBytes;
  std::size_t itemBytes;
};
template <typename T>
inline constexpr Layout kLayout = {};
template <>
inline constexpr Layout kLayout<tagREG_RELEXPORTACAO> = {612, 604, 2, 228};
template <>
inline constexpr Layout kLayout<tagFILTRO_RELATORIO> = {2, 0, 2, 104};
template <>
inline constexpr Layout kLayout<REG_CAMPOS_DISPONIVEIS2> = {2, 0, 2, 262};
template <>
inline constexpr Layout kLayout<REG_RELATORIO2> = {6, 2, 4, 1};
template <>
inline constexpr Layout kLayout<REG_ARRAY_RELATORIO2> = {2, 0, 2, 256};

template <typename T>
concept Record = kLayout<T>
.bytes != 0;

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
    script_.noted = (std::string(method) + ... + Meet(arguments));
    script_.interrupt();
    return script_.result;
  }

  // An array of the client, with something for the object or with room for the object's.
  template <typename Item>
  static std::string In(const Item* items, std::int64_t count) {
    return Present(items) + Bytes(items, count > 0 ? static_cast<std::size_t>(count) * sizeof(Item) : 0);
  }
  template <typename Item>
  std::string Out(Item* items, LONG count) const {
    if (SUCCEEDED(script_.result) && items != nullptr) Fill(items, static_cast<std::size_t>(count) * sizeof(Item));
    return "";
  }

 private:
  static std::string Bytes(const void* start, std::size_t count) {
    return start == nullptr ? "" : std::string(static_cast<const char*>(start), count);
  }
  static std::string Present(const void* pointer) { return std::string(1, pointer == nullptr ? '\0' : '\1'); }

  // What came in by an argument; by those behind, something goes out.
  static std::string Meet(const std::string& array) { return array; }
  static std::string Meet(std::integral auto number) { return Bytes(&number, sizeof number); }
  static std::string Meet(BSTR text) {
    const UINT bytes = text == nullptr ? 0xFFFFFFFF : SysStringByteLen(text);
    return Meet(bytes) + Bytes(text, bytes);
  }
  static std::string Meet(tagREG_RELEXPORTACAO settings) {
    return Bytes(&settings, 612) + In(settings.pregItens, settings.iQtdeItens);
  }
  static std::string Meet(const tagFILTRO_RELATORIO* filter) {
    return Present(filter) + Meet(filter->nQtdCampos) + In(filter->pregValoresFiltro, filter->nQtdCampos);
  }

  template <typename Block>
  static Block* Made(Block* block) {
    if (block == nullptr) throw std::bad_alloc();
    return block;
  }

  template <std::integral Number>
  std::string Meet(Number* number) const {
    *number = static_cast<Number>(script_.answer.number);
    return "";
  }
  std::string Meet(BSTR* text) const {
    const auto& bytes = script_.answer.texts.front();
    *text = bytes ? Made(SysAllocStringByteLen(bytes->data(), static_cast<UINT>(bytes->size()))) : nullptr;
    return "";
  }
  std::string Meet(REG_ARRAY_RELATORIO2* record) const {
    Make(record);
    return "";
  }
  template <Record T>
  std::string Meet(T** record) const {
    *record = nullptr;
    if (!script_.answer.hasRecord) return "";
    *record = static_cast<T*>(Made(CoTaskMemAlloc(sizeof(T))));
    **record = {};  // the caller's to free from now on
    Make(*record);
    return "";
  }
  template <Record T>
  void Make(T* record) const {
    constexpr Layout kOwn = kLayout<T>;
    const std::size_t itemBytes = static_cast<std::size_t>(script_.answer.count) * kOwn.itemBytes;
    void* items = script_.answer.hasArray ? Made(CoTaskMemAlloc(itemBytes)) : nullptr;
    if (items != nullptr) Fill(items, itemBytes);
    auto* start = reinterpret_cast<char*>(record);
    Fill(start, kOwn.bytes);
    std::memcpy(start + kOwn.countOffset, &script_.answer.count, kOwn.countBytes);
    std::memcpy(start + kOwn.bytes, &items, sizeof items);
  }

  Script& script_;
};

class Rel final : public Recorder<IZNPL_Rel, IID_IZNPL_Rel> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR company, BSTR module, BSTR component) override {
    return Answer(__func__, company, module, component);
  }
  HRESULT BuscaCampos(LONG count, tagREG_CAMPOS_RELATORIO* fields) override {
    return Answer(__func__, count, Out(fields, count));
  }
  HRESULT BuscaQdeCamposArquivo(LONG* count) override { return Answer(__func__, count); }
  HRESULT BuscaRelatorio(LONG count, unsigned char* bytes) override {
    return Answer(__func__, count, Out(bytes, count));
  }
  HRESULT BuscaTamanhoRelatorio(BSTR name, LONG* count) override { return Answer(__func__, name, count); }
  HRESULT GravaRelatorio(BSTR name, LONG overwrite, LONG count, unsigned char* bytes) override {
    return Answer(__func__, name, overwrite, count, In(bytes, count));
  }
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* names) override { return Answer(__func__, names); }
  HRESULT ExcluiRelatorio(BSTR name) override { return Answer(__func__, name); }
  HRESULT AtualizaRelatorio(BSTR name, USHORT left, USHORT top, USHORT count,
                            REG_ATUALIZACAO_RELATORIO* columns) override {
    return Answer(__func__, name, left, top, count, In(columns, count));
  }
  HRESULT GravaRelatorioSemCallBack(BSTR name, LONG overwrite, LONG count, unsigned char* bytes) override {
    return Answer(__func__, name, overwrite, count, In(bytes, count));
  }
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR name, tagREG_RELEXPORTACAO settings) override {
    return Answer(__func__, name, settings);
  }
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR name, tagREG_RELEXPORTACAO** settings) override {
    return Answer(__func__, name, settings);
  }
  HRESULT LeFiltroRelatorio(BSTR name, tagFILTRO_RELATORIO** filter) override { return Answer(__func__, name, filter); }
  HRESULT GravaFiltroRelatorio(BSTR name, tagFILTRO_RELATORIO* filter) override {
    return Answer(__func__, name, static_cast<const tagFILTRO_RELATORIO*>(filter));
  }
};

class Relatorio2 final : public Recorder<IZNPL_Relatorio2, IID_IZNPL_Relatorio2> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR module, BSTR component) override { return Answer(__func__, module, component); }
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** fields) override { return Answer(__func__, fields); }
  HRESULT Le(BSTR name, REG_RELATORIO2** model) override { return Answer(__func__, name, model); }
  HRESULT Grava(BSTR name, USHORT version, unsigned char flag, LONG count, unsigned char* bytes) override {
    return Answer(__func__, name, version, flag, count, In(bytes, count));
  }
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** names) override { return Answer(__func__, names); }
  HRESULT ExcluiRelatorio(BSTR name, char demo, char* result) override { return Answer(__func__, name, demo, result); }
  HRESULT GetRelatorioPadrao(BSTR* name) override { return Answer(__func__, name); }
  HRESULT SetRelatorioPadrao(BSTR name) override { return Answer(__func__, name); }
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* names) override {
    return Answer(__func__, names);
  }
};

class RelConverte final : public Recorder<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
 public:
  using Recorder::Recorder;

  HRESULT AlteraCodigoCampos(BSTR module, BSTR component, LONG count, REL_CODIGO_CAMPOS_ALTERADOS* pairs) override {
    return Answer(__func__, module, component, count, In(pairs, count));
  }
};

}  // namespace recorder
