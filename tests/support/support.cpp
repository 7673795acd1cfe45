#include "support/support.h"

#include <grp.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "platform/home/home.h"

namespace support {

namespace fs = std::filesystem;

TempFolder::TempFolder() {
  std::string pattern = (fs::temp_directory_path() / "kestor-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = pattern;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

TempHome::TempHome(const fs::path& sharedData) : data_(sharedData.empty() ? folder_.Path() / "data" : sharedData) {
  fs::create_directories(Home() / "drives");
  fs::create_directory(Home() / "work");
  fs::create_directory(Data());
  fs::create_directory_symlink(Data(), Home() / "drives" / "d");
  const fs::path run = folder_.Path() / "run";
  fs::create_directory(run);
  fs::permissions(run, fs::perms::owner_all);
  Enter();
}

void TempHome::Enter() const {
  setenv("XDG_RUNTIME_DIR", (folder_.Path() / "run").c_str(), 1);
  setenv("KESTOR_SYSTEM", (folder_.Path() / "system").c_str(), 1);
  platform::Home::Use(Home());
}

void WriteFile(const fs::path& file, std::string_view bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

std::string ReadFile(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + file.string() + ": " + std::strerror(errno));
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> Names(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

Child::Child(const std::function<int()>& body) {
  fflush(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ == 0) {
    int status = 255;
    try {
      status = body();
    } catch (...) {
    }
    fflush(nullptr);
    _exit(status);
  }
}

Child::~Child() {
  if (pid_ <= 0) return;
  Kill();
  Wait();
}

void Child::Kill() {
  if (pid_ > 0) kill(pid_, SIGKILL);
}

int Child::Wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool HasEnded(pid_t pid) {
  const fs::path process = fs::path("/proc") / std::to_string(pid);
  try {
    return ReadFile(process / "stat").find(") Z ") != std::string::npos && Names(process / "task").size() == 1;
  } catch (const std::exception&) {
    return true;
  }
}

void BecomeUser(uid_t user, const std::vector<gid_t>& groups) {
  if (setgroups(groups.size(), groups.data()) != 0 || setresgid(user, user, user) != 0 ||
      setresuid(user, user, user) != 0) {
    throw std::runtime_error("cannot become another user");
  }
}

void FillDisk(std::size_t bytesLeft) {
  const rlimit limit = {bytesLeft, bytesLeft};
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) throw std::runtime_error("cannot limit files");
  signal(SIGXFSZ, SIG_IGN);
}

bool WaitUntil(const std::function<bool()>& condition, int seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

bool LongTests() {
  const char* asked = getenv("KESTOR_LONG_TESTS");
  return asked != nullptr && std::string(asked) == "1";
}

}  // namespace support
