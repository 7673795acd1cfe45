#include "platform/host/whole_file.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <vector>

#include "access_list.h"
#include "platform/host/system.h"

namespace host {
namespace {

constexpr mode_t kPermissions = 0777;
constexpr mode_t kGroupPermissions = 0070;
constexpr const char* kDefaultAcl = "system.posix_acl_default";

bool IsSharedWithGroup(const Descriptor& folder, const struct stat& status, const struct stat& file) {
  return status.st_gid == file.st_gid && AccessList(folder, status.st_mode).GroupMayWrite();
}

// The permissions of a new file in a folder without a default access control list.
mode_t GivenByFolder(bool isShared) {
  return S_IRUSR | S_IWUSR | (isShared ? S_IRGRP | S_IWGRP : 0);
}

// A file system without changeable permissions fails with one of these errors.
int UnlessRefused(int error) {
  return error == EPERM || error == ENOSYS || error == EOPNOTSUPP ? 0 : error;
}

bool HasDefaultAcl(const Descriptor& folder) {
  std::string acl;
  return GetAttribute(folder, kDefaultAcl, &acl) == 0;
}

// Returns false if the file keeps another group, which must not get the permissions of the old file's group.
bool TakeOverGroup(const Descriptor& file, const struct stat& own, const struct stat& old) {
  const bool isOthers = own.st_uid != old.st_uid || own.st_gid != old.st_gid;
  return (isOthers && TakeOverOwners(file, old)) || own.st_gid == old.st_gid;
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
  const mode_t kept = TakeOverGroup(file, own, old) ? kPermissions : kPermissions & ~kGroupPermissions;
  if ((own.st_mode & kPermissions) == (old.st_mode & kept)) return 0;
  return ChangeMode(file, old.st_mode & kept);
}

int CopyContent(const Descriptor& from, const Descriptor& to) try {
  std::vector<char> block(std::size_t{64} << 10);
  for (off_t position = 0;;) {
    std::size_t read = 0;
    int error = ReadAt(from, block.data(), block.size(), position, &read);
    if (error != 0 || read == 0) return error;
    for (std::size_t done = 0; done < read;) {
      std::size_t written = 0;
      if (error = WriteAt(to, block.data() + done, read - done, position, &written); error != 0) return error;
      done += written;
      position += static_cast<off_t>(written);
    }
  }
} catch (const std::bad_alloc&) {
  return ENOMEM;
}

int TakeFolderRights(const Descriptor& file, const Descriptor& folder) try {
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
} catch (const std::bad_alloc&) {
  return ENOMEM;  // like any other failure, after which the caller removes the new file
}

int TakeOverRightsInFolder(const Descriptor& file, const Descriptor& old, const Descriptor& folder) {
  struct stat place = {};
  struct stat replaced = {};
  struct stat own = {};
  int error = Stat(folder, &place);
  if (error == 0) error = Stat(old, &replaced);
  if (error == 0) error = Stat(file, &own);
  if (error != 0) return error;
  AccessList list(old, replaced.st_mode);
  const bool isShared = IsSharedWithGroup(folder, place, own);
  if (isShared && replaced.st_gid != own.st_gid) {
    // A file has only one group: here that of the shared folder.
    replaced.st_gid = own.st_gid;
    list.ForgetGroup();
  }
  const gid_t groupOfNewFile = own.st_gid;
  if (!TakeOverGroup(file, own, replaced)) list.ForgetGroup();
  if (error = Stat(file, &own); error != 0) return error;
  AccessList given = HasDefaultAcl(folder) ? AccessList(file, own.st_mode)
                                           : AccessList(GivenByFolder(isShared && own.st_gid == place.st_gid));
  if (own.st_gid != groupOfNewFile) given.ForgetGroup();
  list.Add(given);
  if (own.st_uid != replaced.st_uid) list.AddFormerOwner(replaced.st_uid);
  return list.ApplyTo(file, own.st_mode);
}

int ReplaceFile(const Descriptor& folder, const std::string& name, const std::string& hiddenName,
                std::string_view bytes, const struct stat* old, mode_t mode) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL;
  constexpr mode_t kOwnerOnly = 0600;  // until the file has the rights of the old one
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
