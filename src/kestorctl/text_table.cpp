#include "text_table.h"

#include <algorithm>
#include <string_view>

#include "platform/text/text.h"

namespace kestorctl {

namespace {

// One long text must not make every line as long as itself.
constexpr std::size_t kWidest = 60;

bool IsFirstByte(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

std::size_t Characters(std::string_view utf8) {
  return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), IsFirstByte));
}

std::string Line(const std::vector<TableColumn>& columns, const TableRow& row, const std::vector<std::size_t>& widths) {
  std::string line;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const std::string padding(widths[i] - std::min(widths[i], Characters(row[i])), ' ');
    line += columns[i].toTheRight ? padding + row[i] : row[i] + padding;
    line += "  ";
  }
  return line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
}

}  // namespace

std::string TextTable(const std::vector<TableColumn>& columns, const std::vector<TableRow>& rows) {
  std::vector<TableRow> lines(1);
  for (const TableColumn& column : columns)
    lines.front().push_back(column.head);
  lines.insert(lines.end(), rows.begin(), rows.end());
  std::vector<std::size_t> widths(columns.size());
  for (TableRow& line : lines) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      line[i] = text::Printable(line[i]);
      widths[i] = std::max(widths[i], std::min(kWidest, Characters(line[i])));
    }
  }
  std::string table;
  for (const TableRow& line : lines)
    table += Line(columns, line, widths);
  return table;
}

}  // namespace kestorctl
