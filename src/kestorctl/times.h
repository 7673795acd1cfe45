// Times on the command line.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace kestorctl {

// Parses a local time such as "2026-11-26 14:30", with seconds or as a day alone, or a time ago such as 30m, 12h or 7d.
std::optional<std::time_t> ReadPastTime(const std::string& text);

// Parses the time with which a text begins, in a format of strptime; `*rest` is what follows it.
std::optional<std::tm> ReadTime(const std::string& text, const char* format, std::string_view* rest);

// Formats a time as std::put_time does.
std::string UtcText(std::time_t time, const char* format);
std::string LocalText(std::time_t time, const char* format);

// Returns the date as reports print it, such as 26/11/2026.
std::string Today();

}  // namespace kestorctl
