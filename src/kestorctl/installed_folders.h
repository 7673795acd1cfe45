// The folders that the registry of the home names, for people and for programs.
#pragma once

#include "answer.h"

namespace kestorctl {

// Puts the reports folder ("reports", null when none is entered) and the folders of the modules ("modules") into the
// answer: path, place on this system, whether it exists, and the drive or share that is not mapped. For the reports
// folder, also why other machines should not share it ("hazards").
void TellInstalledFolders(Answer& answer);

}  // namespace kestorctl
