// The folders that the registry of the home names, for both kinds of readers.
#pragma once

#include "answer.h"

namespace kestorctl {

// Tells the reports folder ("reports", null when none is entered) and those of the modules ("modules"): path, place on
// this system, whether it exists, and which drive or share the home would have to map; of the reports folder also why
// other machines should not share it ("hazards").
void TellInstalledFolders(Answer& answer);

}  // namespace kestorctl
