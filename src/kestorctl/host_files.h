// Files of this system that a command reads and writes for its caller.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace kestorctl {

// The whole content of a file, or of standard input for "-". Throws LocalFailure, also when there are more than
// `maxBytes`.
std::string ReadInput(const std::string& file, std::size_t maxBytes);

// Gives a file this content: whole, or not at all. What is there is replaced and keeps its rights; where a device or a
// pipe lies, it is written to. Throws LocalFailure.
void WriteOutput(const std::filesystem::path& file, std::string_view bytes);

// Whether this process may make entries in the folder. False when there is no such folder.
bool MayWriteInto(const std::filesystem::path& folder);

// What a user of this system is called; the number of one who has no name.
std::string UserName(uid_t user);

}  // namespace kestorctl
