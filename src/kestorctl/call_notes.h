// What the server tells of each model while it serves a call that goes over many.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "common/servidor.h"
#include "platform/com/long_calls.h"
#include "progress.h"

namespace kestorctl {

// One model, or whatever a note is about. UTF-8.
struct ModelNote {
  kestor::Destino fate;
  std::string name;
  std::string reason;                // may be empty
  std::vector<std::string> changes;  // in a rehearsed renumbering
};

// Collects the notes of one call, and shows on a terminal how far it is.
class CallNotes final : public channel::NoteReceiver {
 public:
  // `what` the call does, such as "migrating". `showChanges` (unless empty) tells what becomes of a content.
  using ShowChanges = std::function<std::vector<std::string>(std::string_view before, std::string_view after)>;
  explicit CallNotes(const char* what, ShowChanges showChanges = {})
      : progress_(what), showChanges_(std::move(showChanges)) {}

  void Receive(const channel::Note& note) override;

  const std::vector<ModelNote>& All() const { return notes_; }
  std::size_t Count(kestor::Destino fate) const;

  // Whether memory was lacking for some of them.
  bool Incomplete() const { return incomplete_; }

 private:
  Progress progress_;
  const ShowChanges showChanges_;
  std::vector<ModelNote> notes_;
  bool incomplete_ = false;
};

}  // namespace kestorctl
