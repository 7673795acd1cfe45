// Tables for people: columns under their heads, as wide as their contents.
#pragma once

#include <string>
#include <vector>

namespace kestorctl {

struct TableColumn {
  std::string head;
  bool toTheRight = false;  // for numbers
};

using TableRow = std::vector<std::string>;  // a text for each column

// Returns the heads with all rows below them, UTF-8; control characters become blanks. A row is one line, in which a
// very long text does not widen its column. When standard output is a terminal, a row takes as many lines as the width
// requires.
std::string TextTable(const std::vector<TableColumn>& columns, const std::vector<TableRow>& rows);

}  // namespace kestorctl
