// The one table from the host system's errors to the platform's error numbers.
#pragma once

#include "platform/kernel/kernel.h"

namespace platform {

// Returns the platform's number for an errno value: 0 for 0, ERROR_GEN_FAILURE for a value that has no number of its
// own. ENOENT counts as a missing file; a caller that knows better what is missing must say so itself.
DWORD OsError(int hostError);

}  // namespace platform
