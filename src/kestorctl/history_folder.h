// The folder of the history, as setup enters it in the registry.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "answer.h"
#include "shared_folder.h"

namespace kestorctl {

struct HistoryWish {
  std::optional<std::string> folder = {};  // none: beside the reports folder, unless one is entered already
  bool none = false;                       // no history is kept
  // What the reports folder was till now: a history beside that one stays behind when the reports move.
  std::optional<std::filesystem::path> formerReports = {};
};

// Throws LocalFailure when the folder that is wished for cannot be made, or UsageError when it cannot be one.
// `reports`: the reports folder, as far as it is known.
void RequirePossible(const HistoryWish& wish, const std::filesystem::path& reports);

// Makes the folder, with the rights of the reports folder, shares it when that is shared, enters it and tells what was
// done. Where it was not asked for and cannot be made, nothing is entered and the answer has a note.
void EnterHistory(const HistoryWish& wish, const std::filesystem::path& reports, const SharedFolder* shared,
                  Answer& answer);

// Tells which folder is entered.
void TellHistory(Answer& answer);

}  // namespace kestorctl
