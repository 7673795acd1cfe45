#include "fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace fs = std::filesystem;

namespace {

constexpr uid_t kNobody = 65534;

void Redirect(int standard, const fs::path& file, int flags) {
  const int opened = open(file.c_str(), flags, 0600);
  if (opened < 0 || dup2(opened, standard) < 0) _exit(126);
  close(opened);
}

}  // namespace

KestorctlTest::KestorctlTest() {
  fs::permissions(Folder(), fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
  const fs::path run = Folder() / "run";
  fs::create_directory(run);
  fs::permissions(run, fs::perms::owner_all);
  setenv("XDG_RUNTIME_DIR", run.c_str(), 1);
  setenv("KESTOR_HOME", Home().c_str(), 1);
  unsetenv("KESTOR_SERVER");
}

void KestorctlTest::TearDown() {
  if (!fs::exists(Home())) return;
  fs::remove(RegistryFile());  // a damaged one would keep the status from being told
  const nlohmann::json server = Run({"--json", "status"}).Document()["server"];
  if (server["running"]) kill(server["pid"].get<pid_t>(), SIGKILL);
}

Outcome KestorctlTest::Run(const Arguments& arguments, const std::string& input) const {
  Arguments command = {KESTORCTL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Execute(command, input, false);
}

Outcome KestorctlTest::RunAsNobody(const Arguments& arguments) const {
  Arguments command = {KESTORCTL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Execute(command, {}, true);
}

Outcome KestorctlTest::RunShell(const std::string& command) const {
  return Execute({"/bin/sh", "-c", "ctl=" KESTORCTL "; " + command}, {}, false);
}

void KestorctlTest::SetUpHome() const {
  const Outcome setup = Run({"setup", "--reports", Reports(), "--module", "CT=" + Contabil().string()});
  ASSERT_EQ(setup.status, 0) << setup.errors;
}

std::string KestorctlTest::Registered(const std::string& key, const std::string& name) const {
  const Outcome got = Run({"registry", "get", key, name});
  return got.output.substr(0, got.output.find('\n'));
}

Outcome KestorctlTest::Execute(const Arguments& command, const std::string& input, bool asNobody) const {
  const support::TempFolder streams;
  support::WriteFile(streams.Path() / "in", input);
  support::Child child([&] {
    if (chdir(Folder().c_str()) != 0) return 126;
    Redirect(STDIN_FILENO, streams.Path() / "in", O_RDONLY);
    Redirect(STDOUT_FILENO, streams.Path() / "out", O_WRONLY | O_CREAT);
    Redirect(STDERR_FILENO, streams.Path() / "err", O_WRONLY | O_CREAT);
    if (asNobody && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) return 126;
    std::vector<char*> arguments;
    for (const std::string& argument : command)
      arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    return 127;
  });
  const int status = child.Wait();
  return {status, support::ReadFile(streams.Path() / "out"), support::ReadFile(streams.Path() / "err")};
}
