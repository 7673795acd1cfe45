// First-generation models of random values.
#pragma once

#include <random>

#include "legacy_model.h"

class RandomModel {
 public:
  explicit RandomModel(unsigned seed) : random_(seed) {}

  LegacyModel Model() {
    LegacyModel m;
    for (std::string* text : {&m.header, &m.footer, &m.closing})
      *text = Text(40);
    for (std::uint32_t* number : {&m.firstDate, &m.lastDate, &m.left, &m.top})
      *number = Below(65536);
    for (std::uint32_t* number : {&m.totalsOnly, &m.bySheet, &m.reserved, &m.firstPage, &m.period})
      *number = Number();
    m.logo = Below(256) - 128;
    for (LegacyModel::Font* font : {&m.headerFont, &m.columnFont, &m.detailFont, &m.footerFont})
      *font = {Text(100), Below(3) * 30000};
    for (unsigned n = Below(6); n > 0; --n)
      m.columns.push_back({static_cast<std::int32_t>(Number()), Number(), "EDC"[Below(3)]});
    for (unsigned n = Below(4); n > 0; --n)
      m.filters.push_back({Number(), Below(2), Below(8), Text(40)});
    for (unsigned n = Below(9); n > 0; --n)
      m.keys.push_back({Number(), Below(4)});
    for (auto* totals : {&m.subtotals, &m.totals})
      totals->assign(Below(5), static_cast<LegacyModel::Total>(Below(65536)));
    return m;
  }

 protected:
  unsigned Below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  std::uint32_t Number() { return static_cast<std::uint32_t>(random_()) | 1; }
  // A text of any bytes but NUL, which may fill its field. It does not begin with what tells the later layouts.
  std::string Text(unsigned width) {
    std::string text;
    for (unsigned n = Below(3) == 0 ? width : Below(width); n > 0; --n)
      text += static_cast<char>(2 + Below(254));
    return text;
  }

 private:
  std::mt19937 random_;
};
