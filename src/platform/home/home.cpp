#include "platform/home/home.h"

#include <pwd.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include "platform/host/fnv1a.h"

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

bool PreparePrivateFolder(const std::string& folder, std::string* reason) {
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    *reason = folder + ": " + std::strerror(errno);
    return false;
  }
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0) {
    *reason = folder + ": " + std::strerror(errno);
    return false;
  }
  if (!S_ISDIR(status.st_mode)) {
    *reason = folder + " is no folder";
    return false;
  }
  if (status.st_uid != geteuid()) {
    *reason = folder + " belongs to another user";
    return false;
  }
  if ((status.st_mode & 077) != 0) {
    *reason = folder + " may be entered by other users";
    return false;
  }
  return true;
}

}  // namespace

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

std::string Home::SocketFolder() const {
  std::error_code failed;
  const fs::path canonical = fs::weakly_canonical(folder_, failed);
  const std::string digits = Fnv1a((failed ? folder_ : canonical).native());

  const std::string runtime = Variable("XDG_RUNTIME_DIR");
  if (runtime.starts_with('/') && fs::is_directory(runtime, failed)) {
    std::string folder = runtime + "/kestor/" + digits;
    if (folder.size() + kLongestSocketName <= kLongestSocketPath) return folder;
  }
  return "/tmp/kestor-" + std::to_string(geteuid()) + "/" + digits;
}

bool Home::PrepareSocketFolder(std::string* reason) const {
  const std::string folder = SocketFolder();
  return PreparePrivateFolder(folder.substr(0, folder.rfind('/')), reason) && PreparePrivateFolder(folder, reason);
}

}  // namespace platform
