// Hidden files that a process left behind when it was killed.
#pragma once

#include <string>
#include <vector>

#include "platform/host/system.h"

namespace files {

// Removes those of the folder's hidden files that nobody holds and that have not been touched for a minute. What cannot
// be removed stays.
void RemoveLeftovers(const host::Descriptor& folder, const std::vector<std::string>& hiddenNames);

}  // namespace files
