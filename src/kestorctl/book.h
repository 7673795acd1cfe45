// The book: all reports of an inventory as pages for a browser. docs/preview.md describes the pages.
#pragma once

#include <filesystem>

#include "admin/admin.h"
#include "answer.h"

namespace kestorctl {

// Writes the book into the folder, which it makes unless an empty one is there, and shows its progress. A model that
// cannot be read gets a page that says why and a note in the answer, which is then incomplete. Pages are written as
// they are made; only the fields that a model uses stay in memory until the end of its module and component. Needs the
// markup component (marcacao/componente_marcacao.h). Throws LocalFailure when a page cannot be written, and what
// reading and drawing throw.
void WriteBook(const std::filesystem::path& folder, const admin::Inventory& inventory, Answer& answer);

}  // namespace kestorctl
