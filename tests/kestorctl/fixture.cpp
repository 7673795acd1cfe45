#include "fixture.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace fs = std::filesystem;

KestorctlTest::KestorctlTest() {
  fs::permissions(Folder(), fs::perms(0705));
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
  EndServer(Run({"--json", "status"}));
}

void KestorctlTest::EndServer(const Outcome& status) {
  const nlohmann::json server = status.Document()["server"];
  if (server["running"]) kill(server["pid"].get<pid_t>(), SIGKILL);
}

Outcome KestorctlTest::Run(Arguments arguments, const std::string& input) const {
  arguments.emplace(arguments.begin(), KESTORCTL);
  return Execute(arguments, input);
}

Outcome KestorctlTest::RunAsNobody(Arguments arguments) const {
  arguments.emplace(arguments.begin(), KESTORCTL);
  return Execute(arguments, {}, [] { support::BecomeUser(65534); });
}

Outcome KestorctlTest::RunShell(const std::string& command) const {
  return Execute({"/bin/sh", "-c", "ctl=" KESTORCTL "; " + command}, {});
}

void KestorctlTest::SetUpHome() const {
  const Outcome setup = Run({"setup", "--reports", Reports(), "--module", "CT=" + Contabil().string()});
  ASSERT_EQ(setup.status, 0) << setup.errors;
}

std::string KestorctlTest::Registered(const std::string& key, const std::string& name) const {
  const Outcome got = Run({"registry", "get", key, name});
  return got.output.substr(0, got.output.find('\n'));
}

Outcome KestorctlTest::Execute(const Arguments& command, const std::string& input,
                               const std::function<void()>& prepare) const {
  const support::TempFolder streams;
  const fs::path in = streams.Path() / "in";
  const fs::path out = streams.Path() / "out";
  const fs::path err = streams.Path() / "err";
  support::WriteFile(in, input);
  support::Child child([&] {
    fs::current_path(Folder());
    if (!freopen(in.c_str(), "r", stdin) || !freopen(out.c_str(), "w", stdout) || !freopen(err.c_str(), "w", stderr)) {
      return 126;
    }
    prepare();
    std::vector<char*> arguments;
    for (const std::string& argument : command)
      arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return execv(arguments[0], arguments.data());
  });
  const int status = child.Wait();
  return {status, support::ReadFile(out), support::ReadFile(err)};
}

void ExpectTold(const Outcome& outcome, int status, const std::string& told) {
  EXPECT_EQ(outcome.status, status) << told;
  EXPECT_THAT(outcome.errors, testing::StartsWith("kestorctl: "));
  EXPECT_THAT(outcome.errors, testing::HasSubstr(told));
  EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
}
