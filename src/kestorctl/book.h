// The book: all reports of an inventory as pages for a browser. docs/preview.md tells what is on them.
#pragma once

#include <filesystem>

#include "admin/admin.h"
#include "answer.h"

namespace kestorctl {

// Writes the book into the folder, which is made, or is there and empty; shows its progress. A model that cannot be
// read has a page that says why, and a note in the answer, which then tells not all. Pages go to the disk as they are
// made: what is held of a model until the end of its module and component is which fields it uses. Needs the markup
// component (marcacao/componente_marcacao.h). Throws LocalFailure when a page cannot be written, and what reading and
// drawing throw.
void WriteBook(const std::filesystem::path& folder, const admin::Inventory& inventory, Answer& answer);

}  // namespace kestorctl
