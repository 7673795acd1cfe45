// Hidden files that killed processes left behind.
#pragma once

#include <string>
#include <vector>

#include "platform/host/system.h"

namespace files {

// Removes the folder's reservations that no process holds and that have not been written to for a minute. Files that
// cannot be removed stay.
void RemoveLeftovers(const host::Descriptor& folder, const std::vector<std::string>& hiddenNames);

}  // namespace files
