// The platform's error numbers for what the host system refuses, under the name that this folder uses.
#pragma once

#include "platform/kernel/host_error.h"

namespace files {

using platform::OsError;

}  // namespace files
