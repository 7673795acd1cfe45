// What makes it unsafe for several machines to share the file system of a folder.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace kestorctl {

// An entry of the system's table of mounts.
struct Mount {
  std::string type;
  std::string source;
  std::set<std::string> options;
};

// Returns a sentence without a full stop for each property of the mount that lets machines miss each other's locks or
// changes in `folder`. None on a local disk, and when nothing is known against the mount.
std::vector<std::string> SharingHazards(const std::filesystem::path& folder);

// The same for a mount that is not a local disk, mounted at `top`.
std::vector<std::string> SharingHazards(const Mount& mount, const std::filesystem::path& top);

}  // namespace kestorctl
