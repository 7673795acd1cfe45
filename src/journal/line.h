// How an entry becomes a line.
#pragma once

#include <string>
#include <string_view>

#include "journal.h"

namespace journal {

// What each line begins with. Inside a text of a line it cannot stand, because the quotes there are escaped.
inline constexpr std::string_view kLineStart = R"({"time":")";

// Appends the entry as JSON to the line, without a line end. It takes less than kLongestLine.
void AppendEntry(const Entry& entry, std::string* line);

}  // namespace journal
