// Shows a report document as pages, with sample lines or with lines of real data. The document is laid out once into
// pages of placed texts and rules; each page is then drawn as PDF, PNG or SVG, or written as plain text.
//
// Where a document leaves a choice to the applications, the preview makes its own: see docs/preview.md. Texts are UTF-8
// unless a comment says otherwise. Any thread may call; throws std::bad_alloc.
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

// Returns the codes of the fields that the document uses in columns, sort keys, totals and conditions, each once.
std::vector<std::uint16_t> UsedCodes(const kestor::CDocRelatorio& document);

// Returns what the document itself says about a field that the catalogue lacks: the type and width of its column.
Field FieldWithout(const kestor::CDocRelatorio& document, std::uint16_t code);

// The values of a report, line by line.
struct Lines {
  std::vector<std::uint16_t> codes;  // the field at each place of a line, each once
  std::vector<std::string> values;   // `codes.size()` values for each line

  std::size_t Count() const { return codes.empty() ? 0 : values.size() / codes.size(); }
};

// Makes lines from the types, widths and options of the fields. They are the same every time and ignore the filter.
// Fields that the document sorts by have few different values, so that lines form groups. Returns fewer than `count`
// lines if those would have more than ten million values.
Lines SampleLines(const kestor::CDocRelatorio& document, const Fields& fields, std::size_t count);

// Reads a file of values that are separated by semicolons, commas or tabs. Its first record names the fields by alias,
// code or description, in any letter case. Values are UTF-8 or code page 1252. Keeps at most `count` lines that pass
// the filter. Ignores columns that are no fields. `*notes` gets the fields of the document that the file lacks, the
// number of values that do not fit their field's type, and whatever else makes the report different from what its
// reader may expect. Calls `progress` now and then with the bytes read so far. Throws Failure if the file cannot be
// read or is malformed, or if the lines to keep exceed 1 GiB.
Lines ReadCsv(const std::string& file, const kestor::CDocRelatorio& document, const Fields& fields, std::size_t count,
              std::vector<std::string>* notes, const std::function<void(std::uint64_t bytes)>& progress = {});

// Sorts the lines by the document's sort keys; equal lines keep their order.
void Sort(const kestor::CDocRelatorio& document, const Fields& fields, Lines* lines);

// ---- Pages ---------------------------------------------------------------------------------------------------------

struct LayoutOptions {
  std::string issueDate;      // as printed
  bool isSample = false;      // the filter has not been applied; its conditions are printed
  std::size_t lineWidth = 0;  // unless 0: layout for plain text, with at most this many characters a line
};

// Lays out the document with lines that are sorted already, and passes each page to `page` until that returns false.
// `*notes` gets what the document has that finds no place on a page.
void LayOut(const kestor::CDocRelatorio& document, const Fields& fields, const Lines& lines,
            const LayoutOptions& options, const std::function<bool(const Page&)>& page,
            std::vector<std::string>* notes);

}  // namespace preview
