// What the server reports about each model during a call that deals with many.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "common/servidor.h"
#include "platform/com/long_calls.h"
#include "progress.h"

namespace kestorctl {

// A note about one model, or about a code that no field has. UTF-8.
struct ModelNote {
  kestor::Destino fate;
  std::string name;
  std::string reason;                // may be empty
  std::vector<std::string> changes;  // in a rehearsed renumbering
};

// Collects the notes of one call, and shows its progress on a terminal.
class CallNotes final : public channel::NoteReceiver {
 public:
  // `what`: what the call does, such as "migrating". `showChanges`: unless empty, describes what changes in a content.
  using ShowChanges = std::function<std::vector<std::string>(std::string_view before, std::string_view after)>;
  explicit CallNotes(const char* what, ShowChanges showChanges = {})
      : progress_(what), showChanges_(std::move(showChanges)) {}

  void Receive(const channel::Note& note) override;

  const std::vector<ModelNote>& All() const { return notes_; }
  std::size_t Count(kestor::Destino fate) const;

  // Returns true when allocation failures have lost some of the notes.
  bool Incomplete() const { return incomplete_; }

 private:
  Progress progress_;
  const ShowChanges showChanges_;
  std::vector<ModelNote> notes_;
  bool incomplete_ = false;
};

}  // namespace kestorctl
