// Where the drives and shares of desktop paths lie on this system, as the home has it.
#pragma once

#include <filesystem>
#include <string>

namespace kestorctl {

// A drive or share that is to lead to a folder.
struct Mapping {
  std::string name;              // "D:" or "\\HOST\SHARE"; code page 1252
  std::filesystem::path entry;   // in the home
  std::filesystem::path folder;  // absolute, links followed
};

// Reads "D=DIR" or "\\HOST\SHARE=DIR" (UTF-8). Throws UsageError.
Mapping ParseMapping(const std::string& option);

// Throws LocalFailure unless the folder exists and the home has nothing but a link in the place of the entry.
void RequireEnterable(const Mapping& mapping);

// Enters the mapping in the home. False when it was there.
bool Enter(const Mapping& mapping);

// The drive or share on which a desktop path depends and for which the home has no folder; empty when it has one, or
// the path starts with neither.
std::string MissingMapping(const std::string& desktopPath);

}  // namespace kestorctl
