// Objects of the three interfaces that note every byte of the calls they get and answer what a script tells them; and
// the same form of notes for what a caller gets out of a call.
#pragma once

#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>

#include "contract/interfaces.h"

namespace recorder {

// ---- Notes ---------------------------------------------------------------------------------------------------------

struct Bytes {
  const void* start;
  std::size_t count;
};

inline std::string Shown(const Bytes& bytes) {
  if (bytes.start == nullptr) return "null";
  return "[" + std::string(static_cast<const char*>(bytes.start), bytes.count) + "]";
}
inline std::string Shown(BSTR text) {
  return Shown(Bytes{text, SysStringByteLen(text)});
}
inline std::string Shown(const char* name) {
  return name;
}
template <typename Number>
requires std::is_integral_v<Number> std::string Shown(Number number) {
  return std::to_string(number);
}
template <typename Item>
Bytes Array(const Item* items, std::int64_t count) {
  return {items, count > 0 ? static_cast<std::size_t>(count) * sizeof(Item) : 0};
}
template <typename Record>
Bytes WithoutPointer(const Record& record) {
  return {&record, kBytesWithoutPointer<Record>};
}

template <typename... Parts>
std::string Line(const Parts&... parts) {
  std::string line;
  ((line += Shown(parts) + " "), ...);
  return line;
}

inline void Fill(void* start, std::size_t count) {
  auto* bytes = static_cast<unsigned char*>(start);
  for (std::size_t i = 0; i < count; ++i)
    bytes[i] = static_cast<unsigned char>(i * 7 + i / 256 + 3);
}

// ---- Objects -------------------------------------------------------------------------------------------------------

struct Script {
  HRESULT result = S_OK;
  LONG number = 0x01020304;
  std::optional<std::u16string> text = u"Compras|Vendas";
  bool hasRecord = true;
  bool hasArray = true;
  LONG items = 3;
  std::function<void()> interrupt = [] {};  // runs inside the method; may throw

  std::string noted;  // the last call
  std::atomic<int> objects{0};
};

template <typename Interface, const IID& iid>
class Recorder : public Interface {
 public:
  explicit Recorder(Script& script) : script_(script) { ++script_.objects; }

  HRESULT QueryInterface(REFIID asked, void** object) final {
    *object = asked == iid || asked == IID_IUnknown ? static_cast<Interface*>(this) : nullptr;
    if (*object == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG AddRef() final { return ++references_; }
  ULONG Release() final {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 protected:
  virtual ~Recorder() { --script_.objects; }

  template <typename... Parts>
  HRESULT Answer(const Parts&... call) {
    script_.noted = Line(call...);
    script_.interrupt();
    return script_.result;
  }
  BSTR NewText() const { return script_.text ? SysAllocString(script_.text->c_str()) : nullptr; }
  template <typename Record>
  bool MakeRecord(Record** record) const {
    *record = nullptr;
    if (!script_.hasRecord) return false;
    *record = static_cast<Record*>(CoTaskMemAlloc(sizeof(Record)));
    Fill(*record, sizeof(Record));
    return true;
  }
  template <typename Item>
  Item* NewArray() const {
    if (!script_.hasArray) return nullptr;
    const std::size_t bytes = static_cast<std::size_t>(script_.items) * sizeof(Item);
    auto* items = static_cast<Item*>(CoTaskMemAlloc(bytes));
    if (bytes < kCarried) Fill(items, bytes);
    return items;
  }
  template <typename Item>
  void FillBuffer(LONG count, Item* items) const {
    if (SUCCEEDED(script_.result)) Fill(items, Array(items, count).count);
  }
  USHORT ShortCount() const { return static_cast<USHORT>(script_.items); }

  Script& script_;

 private:
  static constexpr std::size_t kCarried = 100u << 20;  // what is too large to be carried is never looked at

  std::atomic<ULONG> references_{1};
};

class Rel final : public Recorder<IZNPL_Rel, IID_IZNPL_Rel> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR company, BSTR module, BSTR component) override {
    return Answer("Inicializa", company, module, component);
  }
  HRESULT BuscaCampos(LONG count, tagREG_CAMPOS_RELATORIO* fields) override {
    FillBuffer(count, fields);
    return Answer("BuscaCampos", count);
  }
  HRESULT BuscaQdeCamposArquivo(LONG* count) override {
    *count = script_.number;
    return Answer("BuscaQdeCamposArquivo");
  }
  HRESULT BuscaRelatorio(LONG count, unsigned char* bytes) override {
    FillBuffer(count, bytes);
    return Answer("BuscaRelatorio", count);
  }
  HRESULT BuscaTamanhoRelatorio(BSTR name, LONG* count) override {
    *count = script_.number;
    return Answer("BuscaTamanhoRelatorio", name);
  }
  HRESULT GravaRelatorio(BSTR name, LONG overwrite, LONG count, unsigned char* bytes) override {
    return Answer("GravaRelatorio", name, overwrite, count, Array(bytes, count));
  }
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* names) override {
    *names = NewText();
    return Answer("BuscaNomeRelatoriosExistentes");
  }
  HRESULT ExcluiRelatorio(BSTR name) override { return Answer("ExcluiRelatorio", name); }
  HRESULT AtualizaRelatorio(BSTR name, USHORT left, USHORT top, USHORT count,
                            REG_ATUALIZACAO_RELATORIO* columns) override {
    return Answer("AtualizaRelatorio", name, left, top, count, Array(columns, count));
  }
  HRESULT GravaRelatorioSemCallBack(BSTR name, LONG overwrite, LONG count, unsigned char* bytes) override {
    return Answer("GravaRelatorioSemCallBack", name, overwrite, count, Array(bytes, count));
  }
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR name, tagREG_RELEXPORTACAO record) override {
    return Answer("GravaDadosExportacaoDoRelatorio", name, WithoutPointer(record),
                  Array(record.pregItens, record.iQtdeItens));
  }
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR name, tagREG_RELEXPORTACAO** record) override {
    if (MakeRecord(record)) {
      (*record)->iQtdeItens = ShortCount();
      (*record)->pregItens = NewArray<tagREG_RELEXPORTACAO_ITEM>();
    }
    return Answer("BuscaDadosExportacaoDoRelatorio", name);
  }
  HRESULT LeFiltroRelatorio(BSTR name, tagFILTRO_RELATORIO** record) override {
    if (MakeRecord(record)) {
      (*record)->nQtdCampos = ShortCount();
      (*record)->pregValoresFiltro = NewArray<tagCAMPO_FILTRO>();
    }
    return Answer("LeFiltroRelatorio", name);
  }
  HRESULT GravaFiltroRelatorio(BSTR name, tagFILTRO_RELATORIO* record) override {
    return Answer("GravaFiltroRelatorio", name, record->nQtdCampos,
                  Array(record->pregValoresFiltro, record->nQtdCampos));
  }
};

class Relatorio2 final : public Recorder<IZNPL_Relatorio2, IID_IZNPL_Relatorio2> {
 public:
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR module, BSTR component) override { return Answer("Inicializa", module, component); }
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** record) override {
    if (MakeRecord(record)) {
      (*record)->nQtdeCampos = ShortCount();
      (*record)->pregCampos = NewArray<tagREG_CAMPOS_RELATORIO2>();
    }
    return Answer("GetCamposDisponiveis");
  }
  HRESULT Le(BSTR name, REG_RELATORIO2** record) override {
    if (MakeRecord(record)) {
      (*record)->nQtdeBytes = script_.items;
      (*record)->lpRelatorio = NewArray<std::uint8_t>();
    }
    return Answer("Le", name);
  }
  HRESULT Grava(BSTR name, USHORT version, unsigned char flag, LONG count, unsigned char* bytes) override {
    return Answer("Grava", name, version, flag, count, Array(bytes, count));
  }
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** record) override {
    if (MakeRecord(record)) FillNames(*record);
    return Answer("GetNomeRelatorios");
  }
  HRESULT ExcluiRelatorio(BSTR name, char demo, char* result) override {
    *result = static_cast<char>(script_.number);
    return Answer("ExcluiRelatorio", name, demo);
  }
  HRESULT GetRelatorioPadrao(BSTR* name) override {
    *name = NewText();
    return Answer("GetRelatorioPadrao");
  }
  HRESULT SetRelatorioPadrao(BSTR name) override { return Answer("SetRelatorioPadrao", name); }
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* record) override {
    FillNames(record);
    return Answer("GetNomeRelatoriosDemonstracaoExcluidos");
  }

 private:
  void FillNames(REG_ARRAY_RELATORIO2* record) const {
    record->nQtdeRelatorios = ShortCount();
    record->pregRelatorios = NewArray<tagREG_NOME_RELATORIO2>();
  }
};

class RelConverte final : public Recorder<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
 public:
  using Recorder::Recorder;

  HRESULT AlteraCodigoCampos(BSTR module, BSTR component, LONG count, REL_CODIGO_CAMPOS_ALTERADOS* pairs) override {
    return Answer("AlteraCodigoCampos", module, component, count, Array(pairs, count));
  }
};

}  // namespace recorder
