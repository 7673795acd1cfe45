// A report document as the pages that it describes, with sample lines or with lines of real data. A document is laid
// out once, into pages of placed texts and rules; a page is then drawn as PDF, PNG or SVG, or written as plain text.
//
// What a document leaves to the applications is chosen here: docs/preview.md tells what. Texts are UTF-8 unless a
// comment says otherwise. From any thread; throws std::bad_alloc.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "document/doc_relatorio.h"
#include "preview/page.h"

namespace preview {

// ---- Lines ---------------------------------------------------------------------------------------------------------

// A field of the catalogue.
struct Field {
  std::uint16_t code = 0;
  std::string alias;
  std::string description;
  char type = 'A';  // a letter of KESTOR2_TipoDado
  std::int32_t width = 0;
  std::string options;  // for the type 'X': "1=Lucro real;2=Simples"
};
using Fields = std::vector<Field>;

// The codes of the fields that the document uses in columns, sort keys, totals and conditions, each once.
std::vector<std::uint16_t> UsedCodes(const kestor::CDocRelatorio& document);

// What the document itself says of a field that the catalogue lacks: the type and width of its column.
Field FieldWithout(const kestor::CDocRelatorio& document, std::uint16_t code);

// The values that a report is made of, one line after the other.
struct Lines {
  std::vector<std::uint16_t> codes;  // whose value stands at each place of a line, each once
  std::vector<std::string> values;   // `codes.size()` for each line

  std::size_t Count() const { return codes.empty() ? 0 : values.size() / codes.size(); }
};

// Lines from the types, widths and options of the fields: the same ones every time, whatever the filter says, and few
// different values where the document sorts by a field. Fewer than `count` where that would be more than ten million
// values.
Lines SampleLines(const kestor::CDocRelatorio& document, const Fields& fields, std::size_t count);

// Reads a file of values that semicolons, commas or tabs separate, whose first record names fields by alias, code or
// description, in whatever letter case. Keeps the lines that the filter lets through, at most `count`. Values are UTF-8
// or code page 1252. A column that is no field counts for nothing; `*notes` tells which fields of the document the file
// lacks, how many values are not what their field's type asks for, and whatever else makes the report another one than
// its reader may think. `progress` is called now and then with the bytes read. Throws Failure for a file that cannot be
// read or breaks the format's rules, and when more is kept than 1 GiB.
Lines ReadCsv(const std::string& file, const kestor::CDocRelatorio& document, const Fields& fields, std::size_t count,
              std::vector<std::string>* notes, const std::function<void(std::uint64_t bytes)>& progress = {});

// Puts the lines into the order of the document's sort keys; equal lines stay in the order in which they came.
void Sort(const kestor::CDocRelatorio& document, const Fields& fields, Lines* lines);

// ---- Pages ---------------------------------------------------------------------------------------------------------

struct LayoutOptions {
  std::string issueDate;      // as it is printed
  bool isSample = false;      // the filter has not been applied; its conditions are printed
  std::size_t lineWidth = 0;  // other than 0: for plain text, with lines of at most so many characters
};

// Lays the document out over lines that are in its order, and hands over each page; goes on until `page` returns false.
// Tells in `*notes` what of the document has no place on a page.
void LayOut(const kestor::CDocRelatorio& document, const Fields& fields, const Lines& lines,
            const LayoutOptions& options, const std::function<bool(const Page&)>& page,
            std::vector<std::string>* notes);

}  // namespace preview
