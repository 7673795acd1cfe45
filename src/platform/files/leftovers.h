// Hidden files that a process left when it was killed.
#pragma once

#include <string>
#include <vector>

#include "platform/host/system.h"

namespace files {

// Removes those of the folder's hidden files that no process holds and that have not been touched for a minute. What
// cannot be removed stays.
void RemoveLeftovers(const host::Descriptor& folder, const std::vector<std::string>& hiddenNames);

}  // namespace files
