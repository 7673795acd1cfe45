// The table from the host system's errors to the platform's error numbers.
#pragma once

#include "platform/kernel/kernel.h"

namespace files {

// The platform's number for an errno value; 0 for 0. ENOENT counts as a missing file: whoever knows that it was the
// folder that is missing says so.
DWORD OsError(int hostError);

}  // namespace files
