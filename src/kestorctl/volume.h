// What keeps the file system of a folder from being shared by several machines.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace kestorctl {

// As the system's table of mounts has it.
struct Mount {
  std::string type;
  std::string source;
  std::set<std::string> options;
};

// A sentence without a full stop for each thing that lets machines overlook each other's locks or changes in `folder`,
// as its mount says. None on a local disk, and where nothing is known against the mount.
std::vector<std::string> SharingHazards(const std::filesystem::path& folder);

// The same for a mount that is not a local disk, mounted at `top`.
std::vector<std::string> SharingHazards(const Mount& mount, const std::filesystem::path& top);

}  // namespace kestorctl
