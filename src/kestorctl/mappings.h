// The folders of this system to which the home maps the drives and shares of desktop paths.
#pragma once

#include <filesystem>
#include <string>

namespace kestorctl {

// A drive or share, and the folder to which it should lead.
struct Mapping {
  std::string name;              // "D:" or "\\HOST\SHARE"; code page 1252
  std::filesystem::path entry;   // in the home
  std::filesystem::path folder;  // absolute, links followed
};

// Parses "D=DIR" or "\\HOST\SHARE=DIR" (UTF-8). Throws UsageError.
Mapping ParseMapping(const std::string& option);

// Throws LocalFailure unless the folder exists and the entry is missing, is a link, or leads to the folder already.
void RequireEnterable(const Mapping& mapping);

// Enters the mapping in the home. Returns false when it was there.
bool Enter(const Mapping& mapping);

// Returns the drive or share with which a desktop path starts when neither the home nor the machine maps it, in UTF-8;
// otherwise empty.
std::string MissingMapping(const std::string& desktopPath);

}  // namespace kestorctl
