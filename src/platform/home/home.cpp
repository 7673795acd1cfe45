#include "platform/home/home.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
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

// Makes a path absolute and drops a separator at the end. Keeps it as written otherwise, because what precedes a ".."
// may be a link.
fs::path WithoutTrailingSeparator(const fs::path& folder) {
  std::error_code failed;
  fs::path whole = fs::absolute(folder, failed);
  if (failed) whole = folder;
  return whole.has_filename() ? whole : whole.parent_path();
}

// The home in use.
std::atomic<const Home*> current{nullptr};
std::mutex choosing;

// All homes that were in use: a caller may still hold a reference to one that was replaced.
std::deque<Home>& Homes() {
  static auto* homes = new std::deque<Home>;
  return *homes;
}

// The longest socket name is a class identity of 38 characters with its separator.
constexpr std::size_t kLongestSocketName = 39;
constexpr std::size_t kLongestSocketPath = sizeof(sockaddr_un::sun_path) - 1;

constexpr const char* kServerLock = "server.lock";
constexpr host::LockRange kServing = {0, 1};  // in kServerLock

bool IsOwnFolder(const std::string& folder) {
  struct stat status {};
  return stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

// Returns what is wrong with a folder that only the user may enter, in words for people; empty when nothing is.
std::string WrongWith(const std::string& folder, uid_t user) {
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0) return folder + ": " + std::strerror(errno);
  if (!S_ISDIR(status.st_mode)) return folder + " is no folder";
  if (status.st_uid != user) return folder + " belongs to another user";
  if ((status.st_mode & 077) != 0) return folder + " may be entered by other users";
  return {};
}

bool PreparePrivateFolder(const std::string& folder, uid_t user, std::string* reason) {
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    *reason = folder + ": " + std::strerror(errno);
    return false;
  }
  *reason = WrongWith(folder, user);
  if (!reason->empty()) return false;
  // A umask may have removed permissions, even that of another process that created the folder just now.
  struct stat status {};
  const bool isWhole = lstat(folder.c_str(), &status) == 0 && (status.st_mode & S_IRWXU) == S_IRWXU;
  if (!isWhole) chmod(folder.c_str(), S_IRWXU);
  return true;
}

// Creates a file that has its mode as soon as it has its name. Returns 0 or an errno value.
int MakeLockFile(const std::string& path) {
  const std::string hidden = path + "." + std::to_string(gettid());
  unlink(hidden.c_str());
  const Descriptor file(open(hidden.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) return errno;
  const bool isMade = fchmod(file.Number(), 0600) == 0;
  if (isMade && renameat2(AT_FDCWD, hidden.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) return 0;
  // The first process to create the name keeps it, even on a file system without this kind of rename.
  const int error = isMade && link(hidden.c_str(), path.c_str()) == 0 ? 0 : errno;
  unlink(hidden.c_str());
  return error == EEXIST ? 0 : error;
}

int OpenLockFileAt(const std::string& path, Descriptor* file) {
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  *file = Descriptor(open(path.c_str(), kFlags));
  if (*file || errno != ENOENT) return *file ? 0 : errno;
  if (const int error = MakeLockFile(path); error != 0) return error;
  *file = Descriptor(open(path.c_str(), kFlags));
  return *file ? 0 : errno;
}

// The errors of a home in which this user cannot create files.
bool IsNotToBeHad(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// A missing home will belong to the owner of the folder in which it is made.
bool StatHome(const fs::path& home, struct stat* status) {
  for (fs::path folder = home; stat(folder.c_str(), status) != 0; folder = folder.parent_path()) {
    if (folder == folder.parent_path()) return false;
  }
  return true;
}

Identity IdentityOf(uid_t user, gid_t group) {
  const passwd* const known = getpwuid(user);
  if (known == nullptr) {
    // A folder that root made for another user often still has root's group.
    constexpr gid_t kNobodys = 65534;
    if (group == 0) group = kNobodys;
    return {user, group, {group}};
  }
  Identity identity{user, known->pw_gid, std::vector<gid_t>(256)};
  int count = static_cast<int>(identity.groups.size());
  if (getgrouplist(known->pw_name, known->pw_gid, identity.groups.data(), &count) < 0) count = 256;
  identity.groups.resize(static_cast<std::size_t>(count));
  return identity;
}

}  // namespace

ActingAsOwner::ActingAsOwner(const fs::path& home) {
  struct stat status {};
  if (geteuid() != 0 || !StatHome(home, &status) || status.st_uid == 0) return;
  const Identity owner = IdentityOf(status.st_uid, status.st_gid);
  groups_.resize(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
  groups_.resize(static_cast<std::size_t>(std::max(getgroups(static_cast<int>(groups_.size()), groups_.data()), 0)));
  acts_ = true;
  syscall(SYS_setgroups, owner.groups.size(), owner.groups.data());
  setfsgid(owner.group);
  setfsuid(owner.user);
}

ActingAsOwner::~ActingAsOwner() {
  if (!acts_) return;
  setfsuid(geteuid());
  setfsgid(getegid());
  syscall(SYS_setgroups, groups_.size(), groups_.data());
}

bool Become(const Identity& identity) {
  // The C library's functions would change all threads, and the others do not exist here.
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

Home::Home(fs::path folder) : folder_(std::move(folder)), registry_(folder_ / "registry.reg") {
  const std::string chosen = Variable("KESTOR_SYSTEM");
  const fs::path system = systemFolder_ = WithoutTrailingSeparator(chosen.empty() ? "/etc/kestor" : chosen);
  std::error_code missing;
  isOfSystem_ = fs::weakly_canonical(system, missing) == fs::weakly_canonical(folder_, missing);
  if (isOfSystem_) return;
  // The registry is read and paths are translated all the time, so a machine without these files must not pay for them.
  const fs::path registry = system / "registry.reg";  // one that may not be read must be reported, not ignored
  if (fs::symlink_status(registry, missing).type() != fs::file_type::not_found) systemRegistry_ = registry;
  if (fs::exists(system / "drives", missing)) systemDrives_ = (system / "drives/").native();
}

std::string Home::Drive(char letter) const {
  const char lower = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  return Mapped(std::string_view(&lower, 1));
}

std::string Home::Mapped(std::string_view entry) const {
  struct stat status {};
  std::string own = folder_.native();
  (own += "/drives/") += entry;
  if (systemDrives_.empty() || lstat(own.c_str(), &status) == 0) return own;
  std::string system = systemDrives_;
  system += entry;
  return lstat(system.c_str(), &status) == 0 ? system : own;
}

void Home::MakeOnFirstUse() const {
  std::error_code failed;
  if (systemRegistry_.empty() || fs::exists(folder_, failed)) return;
  const ActingAsOwner owner(folder_);
  fs::create_directories(folder_.parent_path(), failed);
  if (mkdir(folder_.c_str(), 0700) == 0) fs::create_directory(Work(), failed);
}

uid_t Home::User() const {
  struct stat status {};
  const bool serves = geteuid() == 0 && StatHome(folder_, &status);
  return serves ? status.st_uid : geteuid();
}

std::optional<Identity> Home::ServingIdentity(uid_t other) const {
  struct stat status {};
  if (geteuid() != 0 || !StatHome(folder_, &status)) return std::nullopt;
  if (status.st_uid != 0) return IdentityOf(status.st_uid, status.st_gid);
  if (other != 0) return IdentityOf(other, 0);
  return std::nullopt;
}

std::string Home::SocketFolder() const {
  std::error_code failed;
  const fs::path canonical = fs::weakly_canonical(folder_, failed);
  const std::string digits = Fnv1a((failed ? folder_ : canonical).native());

  const uid_t user = User();
  const std::string runtime = Variable("XDG_RUNTIME_DIR");
  // After su the variable still names another user's folder.
  if (user == geteuid() && runtime.starts_with('/') && IsOwnFolder(runtime)) {
    std::string folder = runtime + "/kestor/" + digits;
    if (folder.size() + kLongestSocketName <= kLongestSocketPath) return folder;
  }
  return "/tmp/kestor-" + std::to_string(user) + "/" + digits;
}

// Only trusts the file while a living process holds the lock: a home may have been copied, or become read-only.
std::string Home::ServingFolder() const {
  const ActingAsOwner owner(folder_);
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const Descriptor file(open((folder_ / kServerLock).c_str(), kFlags));
  struct stat status {};
  off_t start = -1;
  std::string folder;
  const bool isSaid = file && fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode) &&
                      host::FindForeignLock(file, kServing, &start) == 0 && start >= 0 &&
                      host::ReadAll(file.Number(), kLongestSocketPath - kLongestSocketName, &folder) == 0;
  return isSaid && folder.starts_with('/') && WrongWith(folder, User()).empty() ? folder : SocketFolder();
}

bool Home::IsServed() const {
  const Descriptor file = OpenLockFile(kServerLock);
  off_t start = -1;
  return file && host::FindForeignLock(file, kServing, &start) == 0 && start >= 0;
}

int Home::TakeServing(Descriptor* lock) const {
  Descriptor file = OpenLockFile(kServerLock);
  if (!file) return errno;
  if (*lock && host::SameFile(*lock, file)) {
    file = std::move(*lock);
  } else if (const int error = host::SetLock(file, F_WRLCK, kServing); error != 0) {
    return error;
  }
  // If the disk is full, clients look in the folder where their own sockets would be.
  const std::string folder = SocketFolder();
  std::size_t written = 0;
  host::WriteAt(file, folder.data(), folder.size(), 0, &written);
  host::Truncate(file, static_cast<off_t>(written));
  *lock = std::move(file);
  return 0;
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
  Descriptor file;
  int error = OpenLockFileAt(folder_ / name, &file);
  if (IsNotToBeHad(error)) error = OpenLockFileAt(SocketFolder() + "/" + name, &file);
  errno = error;
  return file;
}

}  // namespace platform
