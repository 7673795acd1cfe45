#include "store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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
#include "platform/host/system.h"
#include "platform/host/whole_file.h"
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

std::string ReadToEnd(const Descriptor& descriptor, const fs::path& file) {
  std::string bytes;
  const int error = host::ReadAll(descriptor.Number(), kMaxFileSize, &bytes);
  if (error == EFBIG) {
    throw FormatError(file.string(), 1, "larger than " + std::to_string(kMaxFileSize >> 20) + " MiB");
  }
  if (error != 0) Throw("cannot read", file, error);
  return bytes;
}

// Compares what distinguishes one content of the file from another. A descriptor must keep the inode from being reused.
bool IsSameContent(const struct stat& a, const struct stat& b) {
  const auto identity = [](const struct stat& s) {
    return std::make_tuple(s.st_dev, s.st_ino, s.st_size, s.st_mtim.tv_sec, s.st_mtim.tv_nsec, s.st_ctim.tv_sec,
                           s.st_ctim.tv_nsec);
  };
  return identity(a) == identity(b);
}

// File times come from a coarse clock. A write in the same tick as the last change does not alter them, so a copy can
// be reused only if that tick was over before the copy was read.
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
    ParseInto(ReadToEnd(file_, path), path.string(), Purpose::registryFile, tree.get());
    tree_ = std::move(tree);
  }

  uid_t Owner() const { return state_.st_uid; }
  bool IsOfRootOrUser() const {
    return (state_.st_uid == 0 || state_.st_uid == geteuid()) && (state_.st_mode & S_IWOTH) == 0;
  }
  bool IsStillOf(const struct stat& now) const { return settled_ && IsSameContent(state_, now); }
  const std::shared_ptr<const Tree>& Content() const { return tree_; }

 private:
  Descriptor file_;
  struct stat state_ {};
  bool settled_ = false;
  std::shared_ptr<const Tree> tree_;
};

const std::shared_ptr<const Tree>& Nothing() {
  static const std::shared_ptr<const Tree> nothing = std::make_shared<Tree>();
  return nothing;
}

// The last snapshot that this process has of one file.
class Cache {
 public:
  enum class Trust { everybody, rootAndUser };

  explicit Cache(Trust trust) : trust_(trust) {}

  std::shared_ptr<const Tree> Current(const fs::path& path) {
    const std::lock_guard lock(mutex_);
    struct stat now {};
    if (stat(path.c_str(), &now) != 0) return Missing(path);
    if (snapshot_ && snapshot_->IsStillOf(now)) return snapshot_->Content();
    snapshot_.reset();
    // Does not block if something other than a file lies there.
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) return Missing(path);
    auto snapshot = std::make_unique<Snapshot>(std::move(file), path);
    if (trust_ == Trust::rootAndUser && !snapshot->IsOfRootOrUser())
      throw FormatError(path.string(), 1, "others than root and the user may write the file");
    snapshot_ = std::move(snapshot);
    return snapshot_->Content();
  }

  uid_t OwnerOfLast() {
    const std::lock_guard lock(mutex_);
    return snapshot_ ? snapshot_->Owner() : geteuid();
  }

 private:
  static std::shared_ptr<const Tree> Missing(const fs::path& path) {
    if (errno != ENOENT) Throw("cannot read", path);
    return Nothing();
  }

  const Trust trust_;
  std::mutex mutex_;
  std::unique_ptr<Snapshot> snapshot_;
};

Cache& CacheOfHome() {
  static Cache cache(Cache::Trust::everybody);
  return cache;
}

// The file names programs that other users run.
Cache& CacheOfSystem() {
  static Cache cache(Cache::Trust::rootAndUser);
  return cache;
}

// Returns the home's registry with what only the machine's has. Keeps the result until one of the two changes.
std::shared_ptr<const Tree> Joined(const std::shared_ptr<const Tree>& home, const std::shared_ptr<const Tree>& system) {
  static std::mutex mutex;
  static std::shared_ptr<const Tree> lastHome;
  static std::shared_ptr<const Tree> lastSystem;
  static std::shared_ptr<const Tree> joined;
  const std::lock_guard lock(mutex);
  if (home == lastHome && system == lastSystem) return joined;
  auto tree = std::make_shared<Tree>(*home);
  tree->AddMissing(*system);
  lastHome = home;
  lastSystem = system;
  return joined = std::move(tree);
}

// ---- Changing ----------------------------------------------------------------------------------------------------

// Holds the lock that all writers of a home take. A program that never releases it makes changes fail but does not
// block the server for ever.
class WriteLock {
 public:
  WriteLock(const fs::path& file, std::chrono::milliseconds patience) : file_(Open(file)) {
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
  // Unlocks explicitly, because a process that is being started may hold the descriptor a little longer.
  ~WriteLock() { flock(file_.Number(), LOCK_UN); }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;

 private:
  // Short, because waiters do not queue: they must hit the moment between two changes of a busy writer.
  static constexpr std::chrono::microseconds kPause{500};

  static Descriptor Open(const fs::path& file) {
    const platform::ActingAsOwner owner(file.parent_path());
    Descriptor lock;
    int error = host::Open(AT_FDCWD, file, O_RDWR | O_CREAT | O_EXCL, &lock, 0600);
    if (error == 0) ShareWithWriters(lock, file.parent_path());
    if (error == EEXIST) error = host::Open(AT_FDCWD, file, O_RDWR, &lock);
    // A file made by hand may be read-only, which is enough to lock it.
    if (error == EACCES && host::Open(AT_FDCWD, file, O_RDONLY, &lock) == 0) error = 0;
    if (error != 0) Throw("cannot open", file, error);
    return lock;
  }

  // Lets every user who may write the folder lock it, whichever user made the file. A user who may only read the folder
  // gets no access, because it could block every change.
  static void ShareWithWriters(const Descriptor& lock, const fs::path& folder) {
    struct stat home {};
    if (host::Stat(AT_FDCWD, folder, &home) != 0) return;
    const mode_t writers = home.st_mode & (host::TakeOverOwners(lock, home) ? 0022 : 0002);
    host::ChangeMode(lock, 0600 | writers | writers << 1);
  }

  Descriptor file_;
};

// Returns where a chain of symbolic links ends, whether or not something is there.
fs::path FollowLinks(fs::path path) {
  constexpr int kMaxLinks = 40;
  for (int i = 0; i < kMaxLinks; ++i) {
    if (!fs::is_symlink(fs::symlink_status(path))) return path;
    path = path.parent_path() / fs::read_symlink(path);
  }
  Throw("too many links", path, ELOOP);
}

void MakeFolder(const fs::path& home) {
  const platform::ActingAsOwner owner(home);
  fs::create_directories(home);
}

void Write(const Tree& tree, const fs::path& registryFile) {
  const std::string text = Format(tree);
  // Refuses to write what could not be read again.
  const Tree::Size size = tree.Count();
  if (text.size() > kMaxFileSize || size.keys > kMaxKeys || size.values > kMaxValues) {
    Throw("the registry is full", registryFile, EFBIG);
  }
  const fs::path file = FollowLinks(registryFile);
  struct stat old {};
  const bool exists = stat(file.c_str(), &old) == 0;
  // Checks whether the file may be written, because replacing it would ignore its mode.
  if (exists && faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) Throw("cannot write", file);
  const platform::ActingAsOwner owner(registryFile.parent_path());
  Descriptor folder;
  int error = host::OpenFolder(AT_FDCWD, file.parent_path(), &folder);
  // The hidden name is always the same, so that a killed writer leaves at most one such file.
  const std::string name = file.filename();
  if (error == 0) error = host::ReplaceFile(folder, name, "." + name + ".new", text, exists ? &old : nullptr);
  if (error != 0) Throw("cannot write", file, error);
}

}  // namespace

std::shared_ptr<const Tree> OfHome() {
  return CacheOfHome().Current(platform::Home::Current().Registry());
}

std::shared_ptr<const Tree> OfSystem() {
  const fs::path& file = platform::Home::Current().SystemRegistry();
  return file.empty() ? Nothing() : CacheOfSystem().Current(file);
}

std::shared_ptr<const Tree> Current() {
  const std::shared_ptr<const Tree> system = OfSystem();
  return system == Nothing() ? OfHome() : Joined(OfHome(), system);
}

uid_t OwnerOfLastRead() {
  return CacheOfHome().OwnerOfLast();
}

LONG Change(const std::function<LONG(Tree&)>& change, std::chrono::milliseconds patience) {
  const platform::Home& home = platform::Home::Current();
  MakeFolder(home.Folder());
  const WriteLock lock(home.Folder() / "registry.lock", patience);
  const std::shared_ptr<const Tree> current = OfHome();
  Tree changed = *current;
  const LONG result = change(changed);
  if (result == LONG{ERROR_SUCCESS} && changed != *current) Write(changed, home.Registry());
  return result;
}

std::string ReadWhole(const fs::path& file) {
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) Throw("cannot read", file);
  return ReadToEnd(descriptor, file);
}

}  // namespace registry
