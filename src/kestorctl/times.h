// Times on the command line.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace kestorctl {

// A local time such as "2026-11-26 14:30", with seconds or as a day alone, or a time ago such as 30m, 12h or 7d.
std::optional<std::time_t> ReadPastTime(const std::string& text);

// The time with which a text begins, in a format of strptime; `*rest` is what follows it.
std::optional<std::tm> ReadTime(const std::string& text, const char* format, std::string_view* rest);

// Writes a time in a format of std::put_time.
std::string UtcText(std::time_t time, const char* format);
std::string LocalText(std::time_t time, const char* format);

// The date as reports print it, such as 26/11/2026.
std::string Today();

}  // namespace kestorctl
