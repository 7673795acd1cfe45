#include "server_registration.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "contract/interfaces.h"
#include "failure.h"
#include "platform/home/home.h"
#include "platform/text/text.h"
#include "registry_values.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

constexpr std::array<ServerClass, 3> kClasses = {{
    {"ZNPL_Rel", CLSID_ZNPL_Rel},
    {"ZNPL_Relatorio2", CLSID_ZNPL_Relatorio2},
    {"ZNPL_RelConverte", CLSID_ZNPL_RelConverte},
}};

// Resets the signal that this program ignores: the server decides for itself.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    posix_spawnattr_init(&attributes_);
    sigset_t ignored;
    sigemptyset(&ignored);
    sigaddset(&ignored, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes_, &ignored);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

// Returns the exit status, or 128 plus the signal that ended the process.
int WaitFor(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

std::span<const ServerClass> ServerClasses() {
  return kClasses;
}

std::string RegisteredExecutable(REFCLSID clsid) {
  const auto value = ReadValue({HKEY_CLASSES_ROOT, "CLSID\\" + GuidText(clsid) + "\\LocalServer32"}, "");
  return value ? value->Text() : std::string();
}

fs::path FindServer() {
  const char* chosen = std::getenv("KESTOR_SERVER");
  fs::path server = chosen != nullptr && *chosen != '\0'
                        ? fs::absolute(chosen)
                        : fs::path(platform::ExecutablePath()).parent_path() / "kestor";
  if (!fs::is_regular_file(server)) throw LocalFailure("there is no server at " + server.string());
  if (access(server.c_str(), X_OK) != 0) {
    throw LocalFailure("the server " + server.string() + " cannot be run: " + std::strerror(errno));
  }
  std::string ansi;
  if (!text::FromUtf8Exactly(server.string(), &ansi)) {
    throw LocalFailure("code page 1252 lacks a character of the server's path " + server.string());
  }
  return server;
}

void RegisterServer(const fs::path& server) {
  setenv("KESTOR_HOME", platform::Home::Current().Folder().c_str(), 1);
  std::string program = server.string();
  char operation[] = "-RegServer";
  char* const arguments[] = {program.data(), operation, nullptr};
  pid_t process = 0;
  const int error = posix_spawn(&process, program.c_str(), nullptr, SpawnAttributes().Get(), arguments, environ);
  if (error != 0) throw LocalFailure("the server " + program + " cannot be run: " + std::strerror(error));
  const int status = WaitFor(process);
  if (status == 0 && !RegisteredExecutable(CLSID_ZNPL_Relatorio2).empty()) return;
  throw LocalFailure("the server " + program + " could not enter itself in the registry (exit status " +
                     std::to_string(status) + ")");
}

}  // namespace kestorctl
