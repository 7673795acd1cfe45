// Fields of a field catalogue, as the stores of either generation return them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "answer.h"
#include "contract/records.h"

namespace kestorctl {

// Returns a letter of the catalogue as UTF-8; empty for NUL.
std::string Letter(char letter);

// Return what a letter means, in one word; a letter without a meaning unchanged.
std::string TypeInWords(const std::string& letter);
std::string AlignmentInWords(const std::string& letter);

// Texts are UTF-8; type and alignment are the catalogue's letters, empty when it has none.
struct Field {
  explicit Field(const tagREG_CAMPOS_RELATORIO& record);
  explicit Field(const tagREG_CAMPOS_RELATORIO2& record);

  std::int32_t code;
  std::string alias;
  std::string description;
  std::string type;
  std::string alignment;
  std::int32_t width;
  bool filter;
  bool total;
  bool sort;
  std::string options;
};

// Puts the fields into the answer in the order of the catalogue: a table without its empty lines, and "fields" with
// them.
void TellFields(const std::vector<Field>& fields, Answer& answer);

}  // namespace kestorctl
