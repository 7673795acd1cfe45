#include "platform/host/whole_file.h"

#include <algorithm>
#include <cerrno>

#include "platform/host/system.h"

namespace host {

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
  constexpr mode_t kPermissions = 0777;
  constexpr mode_t kGroupPermissions = 0070;
  struct stat own = {};
  if (const int error = Stat(file, &own); error != 0) return error;
  mode_t permissions = old.st_mode & kPermissions;
  const bool differs = own.st_uid != old.st_uid || own.st_gid != old.st_gid;
  if (differs && !TakeOverOwners(file, old) && own.st_gid != old.st_gid) permissions &= ~kGroupPermissions;
  return (own.st_mode & kPermissions) == permissions ? 0 : ChangeMode(file, permissions);
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
