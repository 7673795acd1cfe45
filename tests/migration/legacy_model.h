// First-generation models as their clients write them, byte by byte.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

struct LegacyModel {
  struct Font {
    std::string name;
    unsigned size = 0;
  };
  struct Column {
    std::int32_t code = 0;
    std::uint32_t width = 0;
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

  std::string header, footer, closing;
  std::uint32_t firstDate = 0, lastDate = 0, totalsOnly = 0, bySheet = 0, reserved = 0, firstPage = 0, period = 0;
  std::uint32_t left = 0, top = 0, logo = 0;
  Font headerFont, columnFont, detailFont, footerFont;
  std::vector<Column> columns;
  std::vector<Filter> filters;
  std::vector<Key> keys;
  std::vector<Total> subtotals, totals;
};

// A model's content in one of the layouts. Bytes that have no meaning are not zeros.
class LegacyContent {
 public:
  LegacyContent(const LegacyModel& m, int layout) : layout_(layout) {
    if (layout == 3) {
      WriteLayout3(m);
    } else {
      WriteEarlierLayout(m);
    }
    ends.insert(bytes.size());
  }

  std::string bytes;
  std::set<std::size_t> ends;  // lengths at which the content may end without anything missing

 private:
  void Number(std::uint32_t value, int width) {
    for (int i = 0; i < width; ++i)
      bytes += static_cast<char>(value >> 8 * i);
  }
  void Junk(std::size_t count) { bytes.append(count, '\xA5'); }
  void Field(std::string text, std::size_t width) {
    if (text.size() < width) text += '\0';
    text.resize(width, '\xA5');
    bytes += text;
  }
  void Counted(const std::string& text) {
    Number(static_cast<std::uint32_t>(text.size()), 4);
    if (!text.empty()) bytes += text + '\0';
  }

  void Record(const LegacyModel::Column& column) {
    Number(static_cast<std::uint32_t>(column.code), 4);
    Number(column.width, 4);
    bytes += column.alignment;
    if (layout_ == 1 || layout_ == 2) Junk(3);
  }
  void Record(const LegacyModel::Filter& filter) {
    for (const std::uint32_t number : {filter.code, filter.connector, filter.comparison})
      Number(number, 4);
    Field(filter.value, 40);
  }
  void Record(const LegacyModel::Key& key) {
    Number(key.code, 4);
    Number(key.separator, 4);
  }
  void Record(LegacyModel::Total code) {
    Number(code, 2);
    Junk(2);
  }

  // With a count of `countWidth` bytes in front; in layout 0 with a zero behind.
  template <typename Records>
  void Section(const Records& records, int countWidth = 0) {
    Number(static_cast<std::uint32_t>(records.size()), countWidth);
    for (const auto& record : records) {
      if (layout_ == 0) ends.insert(bytes.size());
      Record(record);
    }
    if (layout_ != 0) return;
    ends.insert(bytes.size());
    Number(0, 4);
  }

  void WriteEarlierLayout(const LegacyModel& m) {
    if (layout_ != 0) bytes = {1, '\xA5', static_cast<char>(layout_), 0};
    Field(m.header, 40);
    Field(m.footer, 40);
    Number(m.firstDate, 2);
    Number(m.lastDate, 2);
    for (const std::uint32_t number : {m.totalsOnly, m.bySheet, m.reserved})
      Number(number, 4);
    if (layout_ != 0) Number(m.period, 4);
    if (layout_ != 0) Junk(4);
    Number(m.left, 2);
    Number(m.top, 2);
    Number(m.firstPage, layout_ == 0 ? 4 : 2);
    if (layout_ != 0) {
      for (const std::size_t count :
           {m.columns.size(), m.filters.size(), m.keys.size(), m.totals.size(), m.subtotals.size()})
        Number(static_cast<std::uint32_t>(count), 2);
    }
    if (layout_ == 2) {
      for (const LegacyModel::Font& font : {m.headerFont, m.columnFont, m.detailFont, m.footerFont}) {
        Field(font.name, 100);
        Number(font.size, 2);
      }
      Number(m.logo, 1);
      Junk(23);
    }
    Section(m.columns);
    Section(m.filters);
    Section(m.keys);
    Section(m.subtotals);
    Section(m.totals);
  }

  void WriteLayout3(const LegacyModel& m) {
    bytes = {1, '\xA5', 3, 0};
    Number(m.firstDate, 2);
    Number(m.lastDate, 2);
    Section(m.keys, 4);
    Number(m.totalsOnly, 4);
    Section(m.columns, 2);
    Section(m.filters, 2);
    Section(m.subtotals, 4);
    Section(m.totals, 4);
    Number(m.left, 2);
    Number(m.top, 2);
    for (const std::uint32_t number : {m.bySheet, m.firstPage, m.reserved, m.period, m.logo})
      Number(number, 4);
    Counted(m.header);
    for (const LegacyModel::Font& font : {m.headerFont, m.columnFont, m.detailFont}) {
      Number(font.size, 2);
      Counted(font.name);
    }
    Counted(m.closing);
    Counted(m.footer);
    Number(m.footerFont.size, 2);
    Counted(m.footerFont.name);
  }

  const int layout_;
};
