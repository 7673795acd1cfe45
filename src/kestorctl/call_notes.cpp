#include "call_notes.h"

#include <algorithm>
#include <new>

namespace kestorctl {

void CallNotes::Receive(const channel::Note& note) {
  progress_.Show(note.done, note.total);
  try {
    ModelNote own = {static_cast<kestor::Destino>(note.fate), std::string(note.name), std::string(note.reason), {}};
    if (showChanges_) own.changes = showChanges_(note.before, note.after);
    notes_.push_back(std::move(own));
  } catch (const std::bad_alloc&) {
    incomplete_ = true;
  }
}

std::size_t CallNotes::Count(kestor::Destino fate) const {
  return static_cast<std::size_t>(
      std::count_if(notes_.begin(), notes_.end(), [fate](const ModelNote& note) { return note.fate == fate; }));
}

}  // namespace kestorctl
