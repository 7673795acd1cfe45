#include "text_table.h"

#include <algorithm>
#include <string_view>

#include "platform/text/text.h"
#include "terminal.h"

namespace kestorctl {

namespace {

// One long text must not widen the column in every line.
constexpr std::size_t kWidest = 60;
// On a terminal, a column of texts stays in the line when at least this much room is left.
constexpr std::size_t kEnough = 24;
constexpr std::string_view kGap = "  ";
constexpr std::string_view kIndent = "      ";

struct Place {
  std::size_t width = 0;
  bool beginsLine = false;
};

// Moves columns for which a line has no room to the next line.
void Fit(const std::vector<TableColumn>& columns, std::size_t room, std::vector<Place>* places) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    Place& place = (*places)[i];
    const std::size_t needed = columns[i].toTheRight ? place.width : std::min(place.width, kEnough);
    place.beginsLine = i != 0 && used + needed > room;
    if (place.beginsLine) used = kIndent.size();
    place.width = std::min(place.width, std::max(room, used + needed) - used);
    used += place.width + kGap.size();
  }
}

// Takes as much of the text as fits, and breaks it at a blank where there is one.
std::string TakeLine(std::string_view* text, std::size_t width) {
  std::size_t end = text::FirstCharacters(*text, width).size();
  std::size_t next = end;
  const std::size_t blank = end < text->size() ? text->rfind(' ', end) : text->npos;
  if (blank != text->npos && blank != 0) next = (end = blank) + 1;
  std::string line(text->substr(0, end));
  text->remove_prefix(next);
  return line;
}

std::string Row(const std::vector<TableColumn>& columns, const TableRow& row, const std::vector<Place>& places,
                bool isBroken) {
  std::string lines;
  for (std::size_t first = 0, end = 0; first < columns.size(); first = end) {
    for (end = first + 1; end < columns.size() && !places[end].beginsLine;)
      ++end;
    std::vector<std::string_view> rest(row.begin(), row.end());
    bool isWhole = false;
    while (!isWhole) {
      std::string line(first == 0 ? "" : kIndent);
      isWhole = true;
      for (std::size_t i = first; i < end; ++i) {
        const std::string text = TakeLine(&rest[i], isBroken ? places[i].width : rest[i].size());
        const std::string padding(places[i].width - std::min(places[i].width, text::Characters(text)), ' ');
        line.append(columns[i].toTheRight ? padding + text : text + padding).append(kGap);
        isWhole = isWhole && rest[i].empty();
      }
      line.resize(line.find_last_not_of(' ') + 1);
      if (first == 0 || !line.empty()) lines += line + '\n';
    }
  }
  return lines;
}

}  // namespace

std::string TextTable(const std::vector<TableColumn>& columns, const std::vector<TableRow>& rows) {
  std::vector<TableRow> lines(1);
  for (const TableColumn& column : columns)
    lines.front().push_back(column.head);
  lines.insert(lines.end(), rows.begin(), rows.end());
  const std::size_t room = TerminalWidth();
  std::vector<Place> places(columns.size());
  for (TableRow& line : lines) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      line[i] = text::Printable(line[i]);
      const std::size_t width = text::Characters(line[i]);
      places[i].width = std::max(places[i].width, room == 0 ? std::min(kWidest, width) : width);
    }
  }
  if (room != 0) Fit(columns, room, &places);
  std::string table;
  for (const TableRow& line : lines)
    table += Row(columns, line, places, room != 0);
  return table;
}

}  // namespace kestorctl
