// Files of this system that a command reads and writes for its caller.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace kestorctl {

// Reads a whole file, or standard input for "-". Throws LocalFailure when that fails, and when there are more than
// `maxBytes`.
std::string ReadInput(const std::string& file, std::size_t maxBytes);

// Gives a file this content, whole or not at all. A file that is replaced keeps its rights. A device, a pipe, and the
// file that is standard output or standard error are written to in place. Throws LocalFailure.
void WriteOutput(const std::filesystem::path& file, std::string_view bytes);

// Returns whether this process may make entries in the folder; false when there is no such folder.
bool MayWriteInto(const std::filesystem::path& folder);

// Returns the name of a user of this system, or the number when there is no name for it.
std::string UserName(uid_t user);

}  // namespace kestorctl
