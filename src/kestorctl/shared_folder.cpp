#include "shared_folder.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>
#include <vector>

#include "failure.h"
#include "platform/host/system.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kModeBits = 07777;
constexpr mode_t kOfSharedFolder = S_ISGID | S_IRWXG;
constexpr auto kSameUser = static_cast<uid_t>(-1);

[[noreturn]] void Throw(const fs::path& folder, int error) {
  throw LocalFailure("cannot share " + folder.string() + ": " + std::strerror(error));
}

bool IsMember(gid_t group) {
  std::vector<gid_t> own(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
  const int count = getgroups(static_cast<int>(own.size()), own.data());
  own.resize(static_cast<std::size_t>(std::max(count, 0)));
  return getegid() == group || std::find(own.begin(), own.end(), group) != own.end();
}

int GiveTo(gid_t group, const host::Descriptor& file, const struct stat& status, mode_t permissions) {
  int error = 0;
  if (status.st_gid != group) error = host::ChangeOwner(file, kSameUser, group);
  // After the change of the group, which takes the setgid bit away.
  if (error == 0) error = host::ChangeMode(file, (status.st_mode | permissions) & kModeBits);
  return error;
}

}  // namespace

SharedFolder::SharedFolder(const std::string& group) : group_(group) {
  if (const struct group* known = getgrnam(group.c_str())) {
    id_ = known->gr_gid;
    return;
  }
  const char* const end = group.data() + group.size();
  const auto [rest, failed] = std::from_chars(group.data(), end, id_);
  if (failed != std::errc() || rest != end) throw UsageError("--shared: there is no group " + group);
}

bool SharedFolder::Has(const struct stat& folder) const {
  return folder.st_gid == id_ && (folder.st_mode & kOfSharedFolder) == kOfSharedFolder;
}

void SharedFolder::RequirePossible(const fs::path& folder) const {
  struct stat status {};
  const bool exists = stat(folder.c_str(), &status) == 0;
  if ((exists && Has(status)) || geteuid() == 0) return;
  if (exists && status.st_uid != geteuid()) {
    throw LocalFailure("--shared: only its owner and root can share " + folder.string(), E_ACCESSDENIED);
  }
  if (!IsMember(id_)) {
    throw LocalFailure("--shared: you are no member of the group " + group_, E_ACCESSDENIED);
  }
}

SharedFolder::Files SharedFolder::Share(const fs::path& path) const {
  host::Descriptor folder;
  struct stat status {};
  int error = host::OpenFolder(AT_FDCWD, path, &folder);
  if (error == 0) error = host::Stat(folder, &status);
  if (error == 0 && !Has(status)) error = GiveTo(id_, folder, status, kOfSharedFolder);
  if (error != 0) Throw(path, error);

  Files files;
  error = host::ReadNames(folder, [&](const char* name, unsigned char) {
    host::Descriptor file;
    struct stat own {};
    if (host::StatLink(folder.Number(), name, &own) != 0 || !S_ISREG(own.st_mode)) return;
    const mode_t permissions = host::IsReadOnly(own) ? S_IRGRP : S_IRGRP | S_IWGRP;
    if (own.st_gid == id_ && (own.st_mode & permissions) == permissions) return;
    // A name that was put here for a file from elsewhere does not give that away.
    const bool mayChange = host::Open(folder.Number(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, &file) == 0 &&
                           host::Stat(file, &own) == 0 && S_ISREG(own.st_mode) && own.st_nlink == 1;
    ++(mayChange && GiveTo(id_, file, own, permissions) == 0 ? files.changed : files.left);
  });
  if (error != 0) Throw(path, error);
  return files;
}

}  // namespace kestorctl
