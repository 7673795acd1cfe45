#include "platform/host/whole_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/host/system.h"

namespace host {
namespace {

constexpr mode_t kPermissions = 0777;
constexpr mode_t kGroupPermissions = 0070;
constexpr const char* kAcl = "system.posix_acl_access";
constexpr const char* kDefaultAcl = "system.posix_acl_default";

int Permit(const Descriptor& file, const struct stat& own, mode_t permissions) {
  return (own.st_mode & kPermissions) == permissions ? 0 : ChangeMode(file, permissions);
}

// An entry of an access control list, as the system keeps it after a version of 4 bytes.
struct AclEntry {
  std::uint16_t kind;
  std::uint16_t permits;
  std::uint32_t who;
};

// Whether the group of a folder may make files in it. Where the folder has an access control list, its mode tells what
// that list permits at most.
bool GroupMayWrite(const Descriptor& folder, const struct stat& status) {
  constexpr std::size_t kVersionBytes = 4;
  constexpr std::uint16_t kOwningGroup = 4;
  constexpr std::uint16_t kWriting = 2;
  if ((status.st_mode & S_IWGRP) == 0) return false;
  std::string acl;
  if (GetAttribute(folder, kAcl, &acl) != 0) return true;
  for (std::size_t at = kVersionBytes; at + sizeof(AclEntry) <= acl.size(); at += sizeof(AclEntry)) {
    AclEntry entry{};
    std::memcpy(&entry, acl.data() + at, sizeof entry);
    if (entry.kind == kOwningGroup) return (entry.permits & kWriting) != 0;
  }
  return false;
}

bool IsSharedWithGroup(const Descriptor& folder, const struct stat& status, const struct stat& file) {
  return status.st_gid == file.st_gid && GroupMayWrite(folder, status);
}

// Where the folder has no default access control list.
mode_t GivenByFolder(bool isShared) {
  return S_IRUSR | S_IWUSR | (isShared ? S_IRGRP | S_IWGRP : 0);
}

// A file system that has no rights of files to change says so in one of these ways.
int UnlessRefused(int error) {
  return error == EPERM || error == ENOSYS || error == EOPNOTSUPP ? 0 : error;
}

bool HasDefaultAcl(const Descriptor& folder) {
  std::string acl;
  return GetAttribute(folder, kDefaultAcl, &acl) == 0;
}

// The permissions of the old file, as far as they still mean the same group.
mode_t TakeOverOwnersAnd(const Descriptor& file, const struct stat& own, const struct stat& old) {
  const mode_t permissions = old.st_mode & kPermissions;
  if (own.st_uid == old.st_uid && own.st_gid == old.st_gid) return permissions;
  const bool keepsGroup = TakeOverOwners(file, old) || own.st_gid == old.st_gid;
  return keepsGroup ? permissions : permissions & ~kGroupPermissions;
}

}  // namespace

int ReadAll(int descriptor, std::size_t most, std::string* bytes) {
  constexpr std::size_t kBlock = std::size_t{64} << 10;
  bytes->clear();
  for (;;) {
    const std::size_t have = bytes->size();
    if (have > most) return EFBIG;
    bytes->resize(have + std::clamp(have, kBlock, std::size_t{8} << 20));
    std::size_t read = 0;
    const int error = Read(descriptor, bytes->data() + have, bytes->size() - have, &read);
    bytes->resize(have + read);
    if (error != 0 || read == 0) return error;
  }
}

int WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    std::size_t written = 0;
    if (const int error = Write(descriptor, bytes.data(), bytes.size(), &written); error != 0) return error;
    bytes.remove_prefix(written);
  }
  return 0;
}

bool TakeOverOwners(const Descriptor& file, const struct stat& other) {
  constexpr auto kSameUser = static_cast<uid_t>(-1);
  return ChangeOwner(file, other.st_uid, other.st_gid) == 0 || ChangeOwner(file, kSameUser, other.st_gid) == 0;
}

int TakeOverRights(const Descriptor& file, const struct stat& old) {
  struct stat own = {};
  if (const int error = Stat(file, &own); error != 0) return error;
  return Permit(file, own, TakeOverOwnersAnd(file, own, old));
}

int TakeFolderRights(const Descriptor& file, const Descriptor& folder) {
  struct stat place = {};
  struct stat own = {};
  int error = Stat(folder, &place);
  if (error == 0) error = Stat(file, &own);
  if (error != 0) return error;
  const bool isOthers = own.st_uid != place.st_uid || own.st_gid != place.st_gid;
  if (isOthers && geteuid() == 0 && TakeOverOwners(file, place)) own.st_gid = place.st_gid;
  const mode_t missing = GivenByFolder(IsSharedWithGroup(folder, place, own)) & ~own.st_mode;
  if (missing == 0 || HasDefaultAcl(folder)) return 0;
  return UnlessRefused(ChangeMode(file, (own.st_mode & kPermissions) | missing));
}

int TakeOverRightsInFolder(const Descriptor& file, const Descriptor& old, const Descriptor& folder) {
  struct stat place = {};
  struct stat replaced = {};
  struct stat own = {};
  int error = Stat(folder, &place);
  if (error == 0) error = Stat(old, &replaced);
  if (error == 0) error = Stat(file, &own);
  if (error != 0) return error;
  const mode_t asMade = own.st_mode & kPermissions;
  const bool isShared = IsSharedWithGroup(folder, place, own);
  if (isShared && replaced.st_gid != own.st_gid) {
    // A file has one group: here it is the one that works together.
    replaced.st_gid = own.st_gid;
    replaced.st_mode &= ~kGroupPermissions;
  }
  mode_t permissions = TakeOverOwnersAnd(file, own, replaced);
  std::string acl;
  // Without the list, what its mode permits at most would be permitted to the group.
  if (GetAttribute(old, kAcl, &acl) == 0 && SetAttribute(file, kAcl, acl) != 0) permissions &= ~kGroupPermissions;
  if (error = Stat(file, &own); error != 0) return error;
  permissions |= HasDefaultAcl(folder) ? asMade : GivenByFolder(isShared && own.st_gid == place.st_gid);
  return Permit(file, own, permissions);
}

int ReplaceFile(const Descriptor& folder, const std::string& name, const std::string& hiddenName,
                std::string_view bytes, const struct stat* old, mode_t mode) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL;
  constexpr mode_t kOwnerOnly = 0600;  // as long as the file does not have the rights of the old one
  Unlink(folder, hiddenName);
  Descriptor file;
  int error = Open(folder.Number(), hiddenName, kFlags, &file, old != nullptr ? kOwnerOnly : mode);
  if (error != 0) return error;
  if (old != nullptr) error = TakeOverRights(file, *old);
  if (error == 0) error = WriteAll(file.Number(), bytes);
  if (error == 0) error = Sync(file);
  if (error == 0) error = file.Close();
  if (error == 0) error = Rename(folder, hiddenName, folder, name);
  if (error != 0) {
    Unlink(folder, hiddenName);
    return error;
  }
  error = Sync(folder);
  return error == EBADF ? 0 : error;  // a folder that may not be read cannot be flushed
}

}  // namespace host
