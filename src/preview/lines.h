// What reading lines and laying them out have in common: lookups of a document's fields.
#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <type_traits>

#include "preview.h"

namespace preview {

constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

// Limits a list of a document to as many entries as a person can have meant: a document may hold millions.
constexpr std::size_t kMostColumns = 1000;
constexpr std::size_t kMostKeys = 50;
template <typename Entry>
std::span<const Entry> Meant(const std::vector<Entry>& list) {
  constexpr bool isKey = std::is_same_v<Entry, kestor::CampoOrdenacao>;
  return std::span(list).first(std::min(list.size(), isKey ? kMostKeys : kMostColumns));
}

// Returns the first field with the code, or a nameless one of type 'A' if there is none.
const Field& FieldOf(const Fields& fields, std::uint16_t code);

// Returns the code, followed by the alias in brackets if there is one.
std::string NameOf(const Field& field);

// Returns the place of the code's value in a line, or kNowhere if the lines lack it.
std::size_t PlaceOf(const Lines& lines, std::uint16_t code);

}  // namespace preview
