#include "shared_folder.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <string_view>
#include <vector>

#include "failure.h"
#include "platform/host/system.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kPermissions = 0777;
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

// `kept`: which bits of its mode the file or folder keeps.
int GiveTo(gid_t group, const host::Descriptor& file, const struct stat& status, mode_t permissions, mode_t kept) {
  int error = 0;
  if (status.st_gid != group) error = host::ChangeOwner(file, kSameUser, group);
  // After the change of the group, which clears the setgid bit.
  if (error == 0) error = host::ChangeMode(file, (status.st_mode & kept) | permissions);
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
  const bool isNumber = failed == std::errc() && rest == end && id_ != static_cast<gid_t>(-1);
  if (!isNumber) throw UsageError("--shared: there is no group " + group);
}

bool SharedFolder::Has(const struct stat& folder) const {
  return folder.st_gid == id_ && (folder.st_mode & kOfSharedFolder) == kOfSharedFolder;
}

void SharedFolder::RequirePossible(const fs::path& folder) const {
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) status.st_uid = geteuid();  // this process will make it
  RequirePossible(folder, status);
}

void SharedFolder::RequirePossible(const fs::path& path, const struct stat& folder) const {
  if (Has(folder) || geteuid() == 0) return;
  if (folder.st_uid != geteuid()) {
    throw LocalFailure("--shared: only its owner and root can share " + path.string(), E_ACCESSDENIED);
  }
  if (!IsMember(id_)) {
    throw LocalFailure("--shared: you are no member of the group " + group_, E_ACCESSDENIED);
  }
}

bool SharedFolder::HasMember(uid_t user) const {
  const struct passwd* const known = getpwuid(user);
  if (known == nullptr) return false;
  std::vector<gid_t> groups(1024);
  int count = static_cast<int>(groups.size());
  if (getgrouplist(known->pw_name, known->pw_gid, groups.data(), &count) < 0) return false;
  return std::find(groups.begin(), groups.begin() + count, id_) != groups.begin() + count;
}

SharedFolder::Files SharedFolder::Share(const fs::path& path) const {
  host::Descriptor folder;
  struct stat status {};
  int error = host::OpenFolder(AT_FDCWD, path, &folder);
  if (error == 0) error = host::Stat(folder, &status);
  if (error != 0) Throw(path, error);
  RequirePossible(path, status);
  if (!Has(status)) error = GiveTo(id_, folder, status, kOfSharedFolder, kPermissions | S_ISVTX);
  if (error != 0) Throw(path, error);

  // A file of a user outside the group may have been put here to be given away with the rest.
  std::map<uid_t, bool> members = {{status.st_uid, true}};
  const auto isMembers = [&](uid_t user) {
    const auto [entry, isNew] = members.try_emplace(user, false);
    if (isNew) entry->second = HasMember(user);
    return entry->second;
  };
  Files files;
  error = host::ReadNames(folder, [&](const char* name, unsigned char) {
    host::Descriptor file;
    struct stat own {};
    if (host::StatLink(folder.Number(), name, &own) != 0 || !S_ISREG(own.st_mode)) return;
    const mode_t permissions = host::IsReadOnly(own) ? S_IRGRP : S_IRGRP | S_IWGRP;
    if (own.st_gid == id_ && (own.st_mode & permissions) == permissions) return;
    const bool mayChange = host::Open(folder.Number(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, &file) == 0 &&
                           host::Stat(file, &own) == 0 && S_ISREG(own.st_mode) && own.st_nlink == 1 &&
                           isMembers(own.st_uid);
    ++(mayChange && GiveTo(id_, file, own, permissions, kPermissions) == 0 ? files.changed : files.left);
  });
  if (error != 0) Throw(path, error);
  return files;
}

}  // namespace kestorctl
