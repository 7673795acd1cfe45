// Tables for people: columns under their heads, as wide as what stands in them; longer texts stand out.
#pragma once

#include <string>
#include <vector>

namespace kestorctl {

struct TableColumn {
  std::string head;
  bool toTheRight = false;  // for numbers
};

using TableRow = std::vector<std::string>;  // a text for each column

// All rows under the heads, a line each; control characters show as blanks. UTF-8.
std::string TextTable(const std::vector<TableColumn>& columns, const std::vector<TableRow>& rows);

}  // namespace kestorctl
