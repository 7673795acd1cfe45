// Formats an entry as a line.
#pragma once

#include <string>
#include <string_view>

#include "journal.h"

namespace journal {

// The start of each line. It cannot occur inside a text of a line, because quotes are escaped there.
inline constexpr std::string_view kLineStart = R"({"time":")";

// Appends the entry to the line as JSON, without a newline. The JSON is shorter than kLongestLine.
void AppendEntry(const Entry& entry, std::string* line);

}  // namespace journal
