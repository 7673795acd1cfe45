// What lines and the layout know of a document's fields.
#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <type_traits>

#include "preview.h"

namespace preview {

constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

// Of a list in a document, as much as a person can have meant: a document may hold millions of entries.
constexpr std::size_t kMostColumns = 1000;
constexpr std::size_t kMostKeys = 50;
template <typename Entry>
std::span<const Entry> Meant(const std::vector<Entry>& list) {
  constexpr bool isKey = std::is_same_v<Entry, kestor::CampoOrdenacao>;
  return std::span(list).first(std::min(list.size(), isKey ? kMostKeys : kMostColumns));
}

// Of several fields with the code the first; one without name, of the type 'A', when there is none.
const Field& FieldOf(const Fields& fields, std::uint16_t code);

// The code and, where it has one, the alias in brackets.
std::string NameOf(const Field& field);

// The place of the code's value in a line; kNowhere when lines do not have it.
std::size_t PlaceOf(const Lines& lines, std::uint16_t code);

}  // namespace preview
