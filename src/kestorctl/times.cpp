#include "times.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iomanip>
#include <map>
#include <sstream>

namespace kestorctl {

std::optional<std::tm> ReadTime(const std::string& text, const char* format, std::string_view* rest) {
  std::tm read{};
  const char* const end = strptime(text.c_str(), format, &read);
  if (end == nullptr) return std::nullopt;
  *rest = std::string_view(text).substr(static_cast<std::size_t>(end - text.c_str()));
  return read;
}

namespace {

// Parses "30m", "12h" or "7d" into seconds.
std::optional<std::time_t> ReadSpan(std::string_view text) {
  static const std::map<std::string_view, std::time_t> kUnits = {{"m", 60}, {"h", 60 * 60}, {"d", 24 * 60 * 60}};
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const auto unit = kUnits.find(text.substr(static_cast<std::size_t>(end - text.data())));
  if (error != std::errc() || unit == kUnits.end()) return std::nullopt;
  return number * unit->second;
}

std::optional<std::time_t> ReadLocalTime(const std::string& text) {
  constexpr std::size_t kYear = 4;
  if (text.find('-') != kYear) return std::nullopt;
  for (const char* const format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
    std::string_view rest;
    std::optional<std::tm> read = ReadTime(text, format, &rest);
    if (!read || !rest.empty()) continue;
    const int day = read->tm_mday;
    read->tm_isdst = -1;
    const std::time_t time = std::mktime(&*read);
    if (read->tm_mday == day) return time;
  }
  return std::nullopt;
}

std::string TextOf(const std::tm& time, const char* format) {
  std::ostringstream text;
  text << std::put_time(&time, format);
  return text.str();
}

}  // namespace

std::optional<std::time_t> ReadPastTime(const std::string& text) {
  if (const auto span = ReadSpan(text)) return std::max<std::time_t>(std::time(nullptr) - *span, 0);
  return ReadLocalTime(text);
}

std::string UtcText(std::time_t time, const char* format) {
  std::tm utc{};
  return TextOf(*gmtime_r(&time, &utc), format);
}

std::string LocalText(std::time_t time, const char* format) {
  std::tm local{};
  return TextOf(*localtime_r(&time, &local), format);
}

std::string Today() {
  return LocalText(std::time(nullptr), "%d/%m/%Y");
}

}  // namespace kestorctl
