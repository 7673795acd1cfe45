#include "volume.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/host/system.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

const std::string kLocksStay = "locks stay on this machine";
const std::string kContentStays = "content that other machines change stays in this one's memory";

// A line of the system's table is "ID PARENT MAJOR:MINOR ROOT POINT OPTIONS [TAG…] - TYPE SOURCE OPTIONS".
std::optional<Mount> MountOf(const struct stat& folder) {
  const std::string device = std::to_string(major(folder.st_dev)) + ':' + std::to_string(minor(folder.st_dev));
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    std::istringstream words(line);
    const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
    const auto separator = std::find(fields.begin(), fields.end(), "-");
    if (fields.size() < 6 || fields[2] != device || fields.end() - separator < 4) continue;
    Mount mount{separator[1], separator[2], {}};
    std::istringstream list(separator[3]);
    for (std::string option; std::getline(list, option, ',');)
      mount.options.insert(option);
    return mount;
  }
  return std::nullopt;
}

// Returns the highest folder of the path that is on the volume: its mount point.
fs::path TopOf(fs::path folder, dev_t device) {
  for (struct stat status = {}; folder.has_relative_path(); folder = folder.parent_path()) {
    if (stat(folder.parent_path().c_str(), &status) != 0 || status.st_dev != device) break;
  }
  return folder;
}

// A folder that the mount itself provides lists the parts of its process, each as NAME-PART.
std::vector<std::string> GlusterHazards(const fs::path& top) {
  constexpr std::array<std::pair<std::string_view, const char*>, 8> kCaches = {{
      {"-write-behind", "write-behind"},
      {"-quick-read", "quick-read"},
      {"-md-cache", "stat-prefetch"},
      {"-open-behind", "open-behind"},
      {"-io-cache", "io-cache"},
      {"-read-ahead", "read-ahead"},
      {"-readdir-ahead", "readdir-ahead"},
      {"-nl-cache", "nl-cache"},
  }};
  std::error_code error;
  std::vector<std::string> parts;
  for (const fs::directory_entry& part : fs::directory_iterator(top / ".meta/graphs/active", error))
    parts.push_back(part.path().filename());
  if (error) return {"the caches of this GlusterFS volume can only be looked at where it is mounted as a whole"};
  std::string found;
  for (const auto& [ending, option] : kCaches) {
    const auto isCache = [end = ending](const std::string& part) { return part.ends_with(end); };
    if (std::any_of(parts.begin(), parts.end(), isCache))
      found += std::string(found.empty() ? "" : ", ") + "performance." + option;
  }
  if (found.empty()) return {};
  return {"this GlusterFS volume keeps changes of other machines from this one: set " + found + " to off"};
}

// Reads the file with the mount's parameters, which only root can read.
std::vector<std::string> MooseHazards(const fs::path& top) {
  std::vector<std::string> hazards;
  std::ifstream parameters(top / ".params");
  for (std::string line; std::getline(parameters, line);) {
    if (line == "mfsnoposixlocks: (defined)") hazards.push_back(kLocksStay + ": mount it without mfsnoposixlocks");
    if (line == "working_keep_cache_mode: YES")
      hazards.push_back(kContentStays + ": mount it without mfscachemode=YES");
  }
  return hazards;
}

std::vector<std::string> HazardsOfOptions(const Mount& mount,
                                          const std::vector<std::pair<std::string, std::string>>& known) {
  std::vector<std::string> hazards;
  for (const auto& [option, hazard] : known) {
    if (mount.options.contains(option)) hazards.push_back(std::string(hazard).append(": mount it without ") + option);
  }
  return hazards;
}

}  // namespace

std::vector<std::string> SharingHazards(const Mount& mount, const fs::path& top) {
  if (mount.type == "fuse.glusterfs") return GlusterHazards(top);
  if (mount.source.starts_with("mfs#") || mount.source.starts_with("mfs\\043")) return MooseHazards(top);
  if (mount.type == "nfs" || mount.type == "nfs4") {
    return HazardsOfOptions(mount, {{"nolock", kLocksStay},
                                    {"local_lock=all", kLocksStay},
                                    {"local_lock=posix", kLocksStay},
                                    {"nocto", kContentStays}});
  }
  if (mount.type == "cifs" || mount.type == "smb3") {
    return HazardsOfOptions(mount, {{"nobrl", kLocksStay}, {"cache=loose", kContentStays}});
  }
  return {"whether " + mount.type + " keeps several machines apart is not known"};
}

std::vector<std::string> SharingHazards(const fs::path& folder) {
  host::Descriptor opened;
  struct stat status = {};
  if (host::OpenFolder(AT_FDCWD, folder, &opened) != 0 || host::Stat(opened, &status) != 0) return {};
  if (major(status.st_dev) != 0 || host::IsLocal(opened)) return {};
  const std::optional<Mount> mount = MountOf(status);
  std::error_code error;
  return mount ? SharingHazards(*mount, TopOf(fs::canonical(folder, error), status.st_dev))
               : std::vector<std::string>{};
}

}  // namespace kestorctl
