// Tables for people: columns under their heads, as wide as what stands in them.
#pragma once

#include <string>
#include <vector>

namespace kestorctl {

struct TableColumn {
  std::string head;
  bool toTheRight = false;  // for numbers
};

using TableRow = std::vector<std::string>;  // a text for each column

// All rows under the heads; control characters show as blanks. UTF-8. A row is one line, and a very long text stands
// out. Only where standard output is a terminal, a row takes as many lines as its width makes necessary.
std::string TextTable(const std::vector<TableColumn>& columns, const std::vector<TableRow>& rows);

}  // namespace kestorctl
