// First-generation models as their clients write them, and a report store in this process that migrates them.
#pragma once

#include <array>
#include <optional>
#include <set>

#include "../document/document_fixture.h"
#include "../legacy/legacy_fixture.h"
#include "migration/conversor_rel.h"

// ---- Models of the first generation ---------------------------------------------------------------------------------

struct LegacyModel {
  struct Font {
    std::string name;
    unsigned size = 0;
  };
  struct Column {
    std::uint32_t code = 0, width = 0;
    char alignment = 'E';
  };
  struct Filter {
    std::uint32_t code = 0, connector = 0, comparison = 0;
    std::string value;
  };
  struct Key {
    std::uint32_t code = 0, separator = 0;
  };
  using Total = std::uint16_t;

  std::string header = {}, footer = {}, closing = {};
  std::uint32_t firstDate = 0, lastDate = 0, totalsOnly = 0, bySheet = 0, reserved = 0, firstPage = 0, period = 0;
  std::uint32_t left = 0, top = 0, logo = 0;
  std::array<Font, 4> fonts = {};  // of the header, the column titles, the details and the footer
  std::vector<Column> columns = {};
  std::vector<Filter> filters = {};
  std::vector<Key> keys = {};
  std::vector<Total> subtotals = {}, totals = {};
};

// The content of a model in one of the layouts. Unused bytes are not zeros.
class LegacyContent {
 public:
  LegacyContent(const LegacyModel& m, int layout) : layout_(layout) {
    if (layout != 0) bytes = {1, '\xA5', static_cast<char>(layout), 0};
    layout == 3 ? WriteLayout3(m) : WriteEarlierLayout(m);
    ends.insert(bytes.size());
  }

  std::string bytes;
  std::set<std::size_t> ends;  // lengths at which the content may end and still be complete

 private:
  void Numbers(int width, std::initializer_list<std::size_t> numbers) {
    for (const std::size_t number : numbers) {
      for (int i = 0; i < width; ++i)
        bytes += static_cast<char>(number >> 8 * i);
    }
  }
  void Field(std::string text, std::size_t width) {
    if (text.size() < width) text += '\0';
    text.resize(width, '\xA5');
    bytes += text;
  }
  void Counted(const std::string& text) {
    Numbers(4, {text.size()});
    if (!text.empty()) bytes += text + '\0';
  }

  void Record(const LegacyModel::Column& column) {
    Numbers(4, {column.code, column.width});
    bytes += column.alignment;
    if (layout_ == 1 || layout_ == 2) bytes.append(3, '\xA5');
  }
  void Record(const LegacyModel::Filter& filter) {
    Numbers(4, {filter.code, filter.connector, filter.comparison});
    Field(filter.value, 40);
  }
  void Record(const LegacyModel::Key& key) { Numbers(4, {key.code, key.separator}); }
  void Record(LegacyModel::Total code) { Numbers(2, {code, 0xA5A5}); }

  // Appends records, with a count of `countWidth` bytes in front, and in layout 0 with a zero after them.
  template <typename Records>
  void Section(const Records& records, int countWidth = 0) {
    Numbers(countWidth, {records.size()});
    for (const auto& record : records) {
      if (layout_ == 0) ends.insert(bytes.size());
      Record(record);
    }
    if (layout_ != 0) return;
    ends.insert(bytes.size());
    Numbers(4, {0});
  }

  void WriteEarlierLayout(const LegacyModel& m) {
    Field(m.header, 40);
    Field(m.footer, 40);
    Numbers(2, {m.firstDate, m.lastDate});
    Numbers(4, {m.totalsOnly, m.bySheet, m.reserved});
    if (layout_ != 0) Numbers(4, {m.period, 0xA5A5A5A5});
    Numbers(2, {m.left, m.top});
    Numbers(layout_ == 0 ? 4 : 2, {m.firstPage});
    if (layout_ != 0)
      Numbers(2, {m.columns.size(), m.filters.size(), m.keys.size(), m.totals.size(), m.subtotals.size()});
    if (layout_ == 2) {
      for (const LegacyModel::Font& font : m.fonts) {
        Field(font.name, 100);
        Numbers(2, {font.size});
      }
      Numbers(1, {m.logo});
      bytes.append(23, '\xA5');
    }
    Section(m.columns);
    Section(m.filters);
    Section(m.keys);
    Section(m.subtotals);
    Section(m.totals);
  }

  void WriteLayout3(const LegacyModel& m) {
    Numbers(2, {m.firstDate, m.lastDate});
    Section(m.keys, 4);
    Numbers(4, {m.totalsOnly});
    Section(m.columns, 2);
    Section(m.filters, 2);
    Section(m.subtotals, 4);
    Section(m.totals, 4);
    Numbers(2, {m.left, m.top});
    Numbers(4, {m.bySheet, m.firstPage, m.reserved, m.period, m.logo});
    Counted(m.header);
    for (const LegacyModel::Font& font : {m.fonts[0], m.fonts[1], m.fonts[2]}) {
      Numbers(2, {font.size});
      Counted(font.name);
    }
    Counted(m.closing);
    Counted(m.footer);
    Numbers(2, {m.fonts[3].size});
    Counted(m.fonts[3].name);
  }

  const int layout_;
};

// ---- Stores ---------------------------------------------------------------------------------------------------------

inline HRESULT MakeRel(kestor::Servidor& server, REFIID iid, void** object) {
  return kestor::CRepositorioRel::Cria<kestor::CRepositorioRel>(nullptr, iid, object, server);
}

inline HRESULT Migrate(kestor::Servidor& server, IZNPL_Relatorio2& store, const std::string& module,
                       const std::string& component, const std::vector<std::string>& existing) {
  kestor::CConversorRel converter(store, module, component, server, MakeRel);
  for (const std::string& name : existing)
    converter.AdicionaNomeExistente(name);
  return converter.Executa();
}

inline HRESULT MakeMigratingStore(kestor::Servidor& server, REFIID iid, void** object) {
  return kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(iid, object, server, Migrate);
}

// Returns a line of the field catalogue with code, alias and type.
inline std::string CatalogueLine(int code, const std::string& alias, char type) {
  std::string line(63, ' ');
  line.replace(0, 3, std::to_string(code));
  line.replace(27, alias.size(), alias);
  line[60] = type;
  return line + "\r\n";
}

// Returns the content of an export settings file.
inline std::string SettingsBytes(const std::vector<tagREG_RELEXPORTACAO_ITEM>& items, tagREG_RELEXPORTACAO head = {}) {
  head.iQtdeItens = static_cast<std::uint16_t>(items.size());
  return std::string(reinterpret_cast<const char*>(&head), kBytesWithoutPointer<tagREG_RELEXPORTACAO>) +
         std::string(reinterpret_cast<const char*>(items.data()), items.size() * sizeof items[0]);
}

class ConversionTest : public LegacyTest {
 protected:
  ConversionTest() {
    support::WriteFile(Catalogue(), CatalogueLine(310, "Data & hora", 'D') + CatalogueLine(205, "Valor", 'V') +
                                        CatalogueLine(205, "Outro", 'N'));
  }

  ComPtr<IZNPL_Relatorio2> NewStore() {
    ComPtr<IZNPL_Relatorio2> store;
    MakeMigratingStore(counter_, IID_IZNPL_Relatorio2, store.OutVoid());
    return store;
  }

  std::string Initialise2(const char16_t* component = u"01") {
    return kestor::ResultCode(NewStore()->Inicializa(support::Text(u"CT"), support::Text(component)));
  }

  std::filesystem::path File(const std::string& name, const std::string& extension) const {
    return Reports() / ("CT01" + name + extension);
  }

  void WriteModel(const std::string& name, const LegacyModel& model = {}, int layout = 2) {
    support::WriteFile(File(name, ".REL"), LegacyContent(model, layout).bytes);
  }

  std::optional<kestor::ComponenteMarcacao> component_{std::in_place};
};
