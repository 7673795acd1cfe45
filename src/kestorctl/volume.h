// What keeps the file system of a folder from being shared by several machines.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kestorctl {

// A sentence without a full stop for each thing that lets machines overlook each other's locks or changes in `folder`,
// as its mount says. None on a local disk, and where nothing is known against the mount.
std::vector<std::string> SharingHazards(const std::filesystem::path& folder);

}  // namespace kestorctl
