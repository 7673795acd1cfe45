#include "platform/home/home.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include "platform/host/fnv1a.h"
#include "platform/host/system.h"
#include "platform/host/whole_file.h"

namespace platform {

namespace fs = std::filesystem;

namespace {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

fs::path UserFolder() {
  const std::string home = Variable("HOME");
  if (!home.empty()) return home;
  const passwd* user = getpwuid(geteuid());
  return user != nullptr && user->pw_dir != nullptr ? fs::path(user->pw_dir) : fs::path("/");
}

fs::path FromEnvironment() {
  const std::string own = Variable("KESTOR_HOME");
  if (!own.empty()) return own;
  const std::string config = Variable("XDG_CONFIG_HOME");
  return (config.empty() ? UserFolder() / ".config" : fs::path(config)) / "kestor";
}

// Absolute and without a separator at the end; otherwise as written, because what stands before a ".." may be a link.
fs::path WithoutTrailingSeparator(const fs::path& folder) {
  std::error_code failed;
  fs::path whole = fs::absolute(folder, failed);
  if (failed) whole = folder;
  return whole.has_filename() ? whole : whole.parent_path();
}

// The home in use.
std::atomic<const Home*> current{nullptr};
std::mutex choosing;

// All homes that were in use: a caller may still hold a reference to one that another one replaced.
std::deque<Home>& Homes() {
  static auto* homes = new std::deque<Home>;
  return *homes;
}

// The longest socket name is a class identity of 38 characters with its separator.
constexpr std::size_t kLongestSocketName = 39;
constexpr std::size_t kLongestSocketPath = sizeof(sockaddr_un::sun_path) - 1;

constexpr const char* kServerLock = "server.lock";
constexpr host::LockRange kServing = {0, 1};  // of that file

// While one lives, what root does with files in the home of another user is done with that user's rights, so that
// nothing that the user puts there leads root elsewhere, and what is made is the user's. It is so for this thread
// alone.
class ActingAsOwner {
 public:
  explicit ActingAsOwner(const std::filesystem::path& home) {
    struct stat status {};
    acts_ = geteuid() == 0 && stat(home.c_str(), &status) == 0 && status.st_uid != 0;
    if (!acts_) return;
    setfsgid(status.st_gid);
    setfsuid(status.st_uid);
  }
  ~ActingAsOwner() {
    if (!acts_) return;
    setfsuid(geteuid());
    setfsgid(getegid());
  }
  ActingAsOwner(const ActingAsOwner&) = delete;
  ActingAsOwner& operator=(const ActingAsOwner&) = delete;

 private:
  bool acts_ = false;
};

bool IsOwnFolder(const std::string& folder) {
  struct stat status {};
  return stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

// What is wrong with a folder that nobody but the user is to enter, for people; empty when nothing is.
std::string WrongWith(const std::string& folder, uid_t user) {
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0) return folder + ": " + std::strerror(errno);
  if (!S_ISDIR(status.st_mode)) return folder + " is no folder";
  if (status.st_uid != user) return folder + " belongs to another user";
  if ((status.st_mode & 077) != 0) return folder + " may be entered by other users";
  return {};
}

bool PreparePrivateFolder(const std::string& folder, uid_t user, std::string* reason) {
  if (mkdir(folder.c_str(), 0700) == 0) {
    chmod(folder.c_str(), 0700);  // the umask may have taken something away
  } else if (errno != EEXIST) {
    *reason = folder + ": " + std::strerror(errno);
    return false;
  }
  *reason = WrongWith(folder, user);
  return reason->empty();
}

// Makes a file that has its mode from the moment at which it has its name.
void MakeLockFile(const std::string& path) {
  const std::string hidden = path + "." + std::to_string(getpid());
  unlink(hidden.c_str());
  const Descriptor file(open(hidden.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) return;
  const bool isRight = fchmod(file.Number(), 0600) == 0;
  if (isRight && renameat2(AT_FDCWD, hidden.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) return;
  // Who has the name first keeps it, also where the file system does not know this kind of renaming.
  if (isRight) link(hidden.c_str(), path.c_str());
  unlink(hidden.c_str());
}

Descriptor OpenLockFileAt(const std::string& path) {
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC;
  Descriptor file(open(path.c_str(), kFlags));
  if (file || errno != ENOENT) return file;
  MakeLockFile(path);
  return Descriptor(open(path.c_str(), kFlags));
}

}  // namespace

bool Become(const Identity& identity) {
  // The library's own functions would make other threads, which do not exist here, follow.
  return syscall(SYS_setgroups, identity.groups.size(), identity.groups.data()) == 0 &&
         syscall(SYS_setresgid, identity.group, identity.group, identity.group) == 0 &&
         syscall(SYS_setresuid, identity.user, identity.user, identity.user) == 0;
}

const Home& Home::Current() {
  if (const Home* chosen = current.load(std::memory_order_acquire)) return *chosen;
  const std::lock_guard hold(choosing);
  if (current.load(std::memory_order_relaxed) == nullptr) {
    Homes().push_back(Home(WithoutTrailingSeparator(FromEnvironment())));
    current.store(&Homes().back(), std::memory_order_release);
  }
  return *current.load(std::memory_order_relaxed);
}

void Home::Use(const fs::path& folder) {
  const std::lock_guard hold(choosing);
  Homes().push_back(Home(WithoutTrailingSeparator(folder)));
  setenv("KESTOR_HOME", Homes().back().Folder().c_str(), 1);
  current.store(&Homes().back(), std::memory_order_release);
}

std::string Home::Drive(char letter) const {
  const char lower = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  std::string folder = folder_.native();
  folder += "/drives/";
  folder += lower;
  return folder;
}

uid_t Home::User() const {
  struct stat status {};
  const bool serves = geteuid() == 0 && stat(folder_.c_str(), &status) == 0;
  return serves ? status.st_uid : geteuid();
}

std::optional<Identity> Home::ServingIdentity() const {
  struct stat status {};
  if (geteuid() != 0 || stat(folder_.c_str(), &status) != 0 || status.st_uid == 0) return std::nullopt;
  const passwd* const user = getpwuid(status.st_uid);
  if (user == nullptr) {
    // The group of the folder that root made for somebody is often root's still.
    constexpr gid_t kNobodys = 65534;
    const gid_t group = status.st_gid != 0 ? status.st_gid : kNobodys;
    return Identity{status.st_uid, group, {group}};
  }
  Identity identity{status.st_uid, user->pw_gid, {}};
  int count = 64;
  identity.groups.resize(static_cast<std::size_t>(count));
  while (getgrouplist(user->pw_name, user->pw_gid, identity.groups.data(), &count) < 0)
    identity.groups.resize(static_cast<std::size_t>(count));
  identity.groups.resize(static_cast<std::size_t>(count));
  return identity;
}

std::string Home::SocketFolder() const {
  std::error_code failed;
  const fs::path canonical = fs::weakly_canonical(folder_, failed);
  const std::string digits = Fnv1a((failed ? folder_ : canonical).native());

  const uid_t user = User();
  const std::string runtime = Variable("XDG_RUNTIME_DIR");
  // What su leaves standing there is another user's.
  if (user == geteuid() && runtime.starts_with('/') && IsOwnFolder(runtime)) {
    std::string folder = runtime + "/kestor/" + digits;
    if (folder.size() + kLongestSocketName <= kLongestSocketPath) return folder;
  }
  return "/tmp/kestor-" + std::to_string(user) + "/" + digits;
}

std::string Home::ServingFolder() const {
  const ActingAsOwner owner(folder_);
  const Descriptor file(open((folder_ / kServerLock).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  std::string folder;
  const bool isRead = file && fstat(file.Number(), &status) == 0 && status.st_uid == User() &&
                      host::ReadAll(file.Number(), kLongestSocketPath - kLongestSocketName, &folder) == 0;
  return isRead && folder.starts_with('/') && WrongWith(folder, User()).empty() ? folder : SocketFolder();
}

bool Home::IsServed() const {
  const Descriptor file = OpenLockFile(kServerLock);
  off_t start = -1;
  return file && host::FindForeignLock(file, kServing, &start) == 0 && start >= 0;
}

int Home::TakeServing(Descriptor* lock) const {
  Descriptor file = OpenLockFile(kServerLock);
  if (!file) return errno;
  if (const int error = host::SetLock(file, F_WRLCK, kServing); error != 0) return error;
  const std::string folder = SocketFolder();
  std::size_t written = 0;
  int error = host::Truncate(file, 0);
  if (error == 0) error = host::WriteAt(file, folder.data(), folder.size(), 0, &written);
  if (error == 0) *lock = std::move(file);
  return error;
}

bool Home::PrepareSocketFolder(std::string* reason) const {
  const std::string folder = SocketFolder();
  const uid_t user = User();
  const ActingAsOwner owner(folder_);
  return PreparePrivateFolder(folder.substr(0, folder.rfind('/')), user, reason) &&
         PreparePrivateFolder(folder, user, reason);
}

Descriptor Home::OpenLockFile(const char* name) const {
  const ActingAsOwner owner(folder_);
  Descriptor file = OpenLockFileAt(folder_ / name);
  return file ? std::move(file) : OpenLockFileAt(SocketFolder() + "/" + name);
}

}  // namespace platform
