#include "store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>

#include "platform/home/home.h"
#include "platform/host/descriptor.h"
#include "reg_format.h"
#include "registry.h"

namespace registry {
namespace {

namespace fs = std::filesystem;

using platform::Descriptor;

[[noreturn]] void Throw(const char* what, const fs::path& path, int error) {
  throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

[[noreturn]] void Throw(const char* what, const fs::path& path) {
  Throw(what, path, errno);
}

// ---- Reading -----------------------------------------------------------------------------------------------------

std::string ReadAll(int descriptor, const fs::path& file) {
  std::string bytes;
  std::array<char, 65536> block{};
  while (true) {
    const ssize_t count = read(descriptor, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Throw("cannot read", file);
    if (count == 0) return bytes;
    bytes.append(block.data(), static_cast<std::size_t>(count));
    if (bytes.size() > kMaxFileSize) {
      throw FormatError(file.string(), 1, "larger than " + std::to_string(kMaxFileSize >> 20) + " MiB");
    }
  }
}

// What tells one content of the file from another, as long as a descriptor keeps the inode from being used again.
bool IsSameContent(const struct stat& a, const struct stat& b) {
  const auto identity = [](const struct stat& s) {
    return std::make_tuple(s.st_dev, s.st_ino, s.st_size, s.st_mtim.tv_sec, s.st_mtim.tv_nsec, s.st_ctim.tv_sec,
                           s.st_ctim.tv_nsec);
  };
  return identity(a) == identity(b);
}

// The file's times are those of a coarse clock. What is written to it in the tick of its last change leaves no trace in
// them, so a copy serves only when that tick was over before the copy was read.
bool IsSettled(const struct stat& file, const timespec& now) {
  return std::tie(now.tv_sec, now.tv_nsec) > std::tie(file.st_ctim.tv_sec, file.st_ctim.tv_nsec);
}

class Snapshot {
 public:
  Snapshot(Descriptor file, const fs::path& path) : file_(std::move(file)) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    if (fstat(file_.Number(), &state_) != 0) Throw("cannot read", path);
    if (!S_ISREG(state_.st_mode)) Throw("no regular file", path, EACCES);
    settled_ = IsSettled(state_, now);
    auto tree = std::make_shared<Tree>();
    ParseInto(ReadAll(file_.Number(), path), path.string(), Purpose::registryFile, tree.get());
    tree_ = std::move(tree);
  }

  bool IsStillOf(const struct stat& now) const { return settled_ && IsSameContent(state_, now); }
  const std::shared_ptr<const Tree>& Content() const { return tree_; }

 private:
  Descriptor file_;
  struct stat state_ {};
  bool settled_ = false;
  std::shared_ptr<const Tree> tree_;
};

// The last snapshot of this process.
class Cache {
 public:
  std::shared_ptr<const Tree> Current(const fs::path& path) {
    const std::lock_guard lock(mutex_);
    struct stat now {};
    if (stat(path.c_str(), &now) != 0) return Missing(path);
    if (snapshot_ && snapshot_->IsStillOf(now)) return snapshot_->Content();
    snapshot_.reset();
    // Without waiting, should something that is no file lie there.
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) return Missing(path);
    snapshot_ = std::make_unique<Snapshot>(std::move(file), path);
    return snapshot_->Content();
  }

 private:
  static std::shared_ptr<const Tree> Missing(const fs::path& path) {
    if (errno != ENOENT) Throw("cannot read", path);
    return std::make_shared<Tree>();
  }

  std::mutex mutex_;
  std::unique_ptr<Snapshot> snapshot_;
};

// ---- Changing ----------------------------------------------------------------------------------------------------

// Gives a file the owner and the group of another one, as far as the system allows it. False when it keeps its group.
bool CopyOwners(int file, const struct stat& from) {
  return fchown(file, from.st_uid, from.st_gid) == 0 || fchown(file, static_cast<uid_t>(-1), from.st_gid) == 0;
}

// Holds the lock that all writers of a home take. A program that never releases it makes changes fail, and does not
// hold the server up for ever.
class WriteLock {
 public:
  WriteLock(const fs::path& file, std::chrono::milliseconds patience) : file_(Open(file)) {
    if (!file_) Throw("cannot open", file);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (flock(file_.Number(), LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      if (error == EINTR) continue;
      if (error != EWOULDBLOCK) Throw("cannot lock", file, error);
      if (std::chrono::steady_clock::now() > deadline)
        throw LockHeld("cannot lock", file, std::error_code(error, std::generic_category()));
      std::this_thread::sleep_for(kPause);
    }
  }
  // Not left to the closing: a process being started at this moment may hold the descriptor a little longer.
  ~WriteLock() { flock(file_.Number(), LOCK_UN); }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;

 private:
  // Short, for those who wait have no turn: they must meet the moment between two changes of a busy writer.
  static constexpr std::chrono::microseconds kPause{500};

  static int Open(const fs::path& file) {
    const int made = open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made >= 0) ShareWithWriters(made, file.parent_path());
    if (made >= 0 || errno != EEXIST) return made;
    const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor >= 0 || errno != EACCES) return descriptor;
    // One made by hand that can only be read, which is enough to lock it.
    const int readOnly = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (readOnly < 0) errno = EACCES;
    return readOnly;
  }

  // Who may write the folder can lock, whoever (root, at the set-up) made the file. Who may only read cannot: he could
  // keep the others from every change.
  static void ShareWithWriters(int lock, const fs::path& folder) {
    struct stat home {};
    if (stat(folder.c_str(), &home) != 0) return;
    const mode_t writers = home.st_mode & (CopyOwners(lock, home) ? 0022 : 0002);
    fchmod(lock, 0600 | writers | writers << 1);
  }

  Descriptor file_;
};

// Where a chain of symbolic links ends, whether or not something is there.
fs::path FollowLinks(fs::path path) {
  constexpr int kMaxLinks = 40;
  for (int i = 0; i < kMaxLinks; ++i) {
    if (!fs::is_symlink(fs::symlink_status(path))) return path;
    path = path.parent_path() / fs::read_symlink(path);
  }
  Throw("too many links", path, ELOOP);
}

// A file that takes shape under a hidden name and takes `path`'s place when it is whole. The name is always the same,
// so a writer that was killed leaves at most one such file, which the next one replaces.
class Replacement {
 public:
  // `mode` as long as it does not look like another file.
  Replacement(const fs::path& path, mode_t mode)
      : path_(path),
        name_(path.filename()),
        hiddenName_("." + name_ + ".new"),
        folder_(open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
        file_(Create(mode)) {
    if (!file_) Throw("cannot write", path_);
  }
  ~Replacement() {
    if (!inPlace_ && file_) unlinkat(folder_.Number(), hiddenName_.c_str(), 0);
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Owners and mode of the file that is replaced. What its group might do is not for another group.
  void LookLike(const struct stat& old) {
    const mode_t kept = CopyOwners(file_.Number(), old) ? 0777 : 0707;
    if (fchmod(file_.Number(), old.st_mode & kept) != 0) Throw("cannot write", path_);
  }

  void Write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = write(file_.Number(), bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) Throw("cannot write", path_);
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  void TakePlace() {
    if (fsync(file_.Number()) != 0) Throw("cannot write", path_);
    if (renameat(folder_.Number(), hiddenName_.c_str(), folder_.Number(), name_.c_str()) != 0)
      Throw("cannot write", path_);
    inPlace_ = true;
    // Some file systems cannot flush a folder.
    if (fsync(folder_.Number()) != 0 && errno != EINVAL) Throw("cannot write", path_);
  }

 private:
  int Create(mode_t mode) const {
    if (!folder_) return -1;
    unlinkat(folder_.Number(), hiddenName_.c_str(), 0);
    return openat(folder_.Number(), hiddenName_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  }

  const fs::path path_;
  const std::string name_;
  const std::string hiddenName_;
  Descriptor folder_;
  Descriptor file_;
  bool inPlace_ = false;
};

void Write(const Tree& tree, const fs::path& registryFile) {
  const std::string text = Format(tree);
  // What could not be read again must not be written.
  const Tree::Size size = tree.Count();
  if (text.size() > kMaxFileSize || size.keys > kMaxKeys || size.values > kMaxValues) {
    Throw("the registry is full", registryFile, EFBIG);
  }
  const fs::path file = FollowLinks(registryFile);
  struct stat old {};
  const bool exists = stat(file.c_str(), &old) == 0;
  // Replacing would pass over the mode of a file that may not be written.
  if (exists && faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) Throw("cannot write", file);
  Replacement replacement(file, exists ? 0600 : 0666);
  if (exists) replacement.LookLike(old);
  replacement.Write(text);
  replacement.TakePlace();
}

}  // namespace

std::shared_ptr<const Tree> Current() {
  static Cache cache;
  return cache.Current(platform::Home::Current().Registry());
}

LONG Change(const std::function<LONG(Tree&)>& change, std::chrono::milliseconds patience) {
  const platform::Home& home = platform::Home::Current();
  fs::create_directories(home.Folder());
  const WriteLock lock(home.Folder() / "registry.lock", patience);
  const std::shared_ptr<const Tree> current = Current();
  Tree changed = *current;
  const LONG result = change(changed);
  if (result == LONG{ERROR_SUCCESS} && changed != *current) Write(changed, home.Registry());
  return result;
}

std::string ReadWhole(const fs::path& file) {
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) Throw("cannot read", file);
  return ReadAll(descriptor.Number(), file);
}

}  // namespace registry
