// The folder of the history, as setup enters it in the registry.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "answer.h"
#include "shared_folder.h"

namespace kestorctl {

struct HistoryWish {
  std::optional<std::string> folder = {};  // none: next to the reports folder, unless one is entered already
  bool none = false;                       // no history is kept
  // The reports folder until now. When it changes, a history next to it stays there, and a new one begins next to the
  // new folder.
  std::optional<std::filesystem::path> formerReports = {};
};

// Throws LocalFailure when the wanted folder cannot be made or overlaps with the reports folder, and UsageError when
// the options contradict each other or the folder has no name. `reports`: the reports folder; empty when it is not
// known.
void RequirePossible(const HistoryWish& wish, const std::filesystem::path& reports);

// Makes the folder with the rights of the reports folder, shares it unless `shared` is null, and enters it in the
// registry. The answer tells what was done. When the folder was not asked for and cannot be made, nothing is entered
// and the answer has a note.
void EnterHistory(const HistoryWish& wish, const std::filesystem::path& reports, const SharedFolder* shared,
                  Answer& answer);

// Tells in the answer which folder is entered.
void TellHistory(Answer& answer);

}  // namespace kestorctl
