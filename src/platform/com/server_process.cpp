#include "server_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/home/home.h"

namespace com {

namespace {

bool IsExecutableFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

void SplitArguments(const std::string& text, std::vector<std::string>* arguments) {
  std::string current;
  bool quoted = false;
  bool any = false;
  for (const char c : text) {
    if (c == '"') {
      quoted = !quoted;
      any = true;
    } else if (c == ' ' && !quoted) {
      if (any) arguments->push_back(current);
      current.clear();
      any = false;
    } else {
      current += c;
      any = true;
    }
  }
  if (any) arguments->push_back(current);
}

// Splits a registered command into program and arguments. A path without quotes may contain blanks: the program is the
// shortest prefix of the command, up to a blank or the end, that is an executable. Returns nothing when there is none.
std::vector<std::string> SplitCommand(const std::string& command) {
  std::vector<std::string> words;
  if (!command.empty() && command[0] == '"') {
    SplitArguments(command, &words);
    if (!words.empty() && !IsExecutableFile(words[0])) words.clear();
    return words;
  }
  for (std::size_t end = 0; end != std::string::npos;) {
    end = command.find(' ', end == 0 ? 0 : end + 1);
    const std::string program = command.substr(0, end);
    if (!IsExecutableFile(program)) continue;
    words.push_back(program);
    if (end != std::string::npos) SplitArguments(command.substr(end), &words);
    break;
  }
  return words;
}

// Returns whether a process of another user may see the variable.
bool IsNobodysSecret(std::string_view variable) {
  constexpr std::string_view kKnown[] = {"PATH=", "LANG=", "LC_", "TZ="};
  return std::any_of(std::begin(kKnown), std::end(kKnown), [&](auto known) { return variable.starts_with(known); });
}

std::vector<std::string> EnvironmentWithHome(bool isOfOther) {
  const platform::Home& home = platform::Home::Current();
  // Sets absolute paths, because the server has another working folder.
  const std::string own = "KESTOR_HOME=" + home.Folder().native();
  const std::string system = "KESTOR_SYSTEM=" + home.SystemFolder().native();
  const auto isGiven = [](std::string_view text) {
    return text.starts_with("KESTOR_HOME=") || text.starts_with("KESTOR_SYSTEM=");
  };
  std::vector<std::string> variables = {own, system};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    if (!isGiven(text) && (!isOfOther || IsNobodysSecret(text))) variables.emplace_back(text);
  }
  return variables;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// What the intermediate process, and the server before exec, write into the pipe.
struct Report {
  enum Kind : int { started, failed } kind;
  int value;  // process id, or error number
};

constexpr int kReportDescriptor = 3;

void Send(int pipe, Report::Kind kind, int value) {
  const Report report{kind, value};
  [[maybe_unused]] const ssize_t written = write(pipe, &report, sizeof report);
}

// Raises the soft limits: those of one client must not bind the server of all clients.
void LiftLimits() {
  for (int number = 0; number < RLIM_NLIMITS; ++number) {
    const auto resource = static_cast<decltype(RLIMIT_FSIZE)>(number);
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0) continue;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(resource, &limit);
  }
}

// Describes the new process. Everything that may need memory is prepared before the fork.
struct Program {
  char* const* arguments;
  char* const* environment;
  const platform::Identity* identity;  // null: that of the starter
};

// Only does what is safe between fork and exec in a process with several threads.
[[noreturn]] void BecomeServer(int pipe, const Program& program) {
  // Moves the pipe first: if the starter had closed a standard descriptor, the pipe may have taken its number.
  bool apart = pipe == kReportDescriptor || dup2(pipe, kReportDescriptor) >= 0;
  fcntl(kReportDescriptor, F_SETFD, FD_CLOEXEC);
  const int nothing = open("/dev/null", O_RDWR);
  for (int standard = 0; standard <= 2; ++standard)
    apart = dup2(nothing, standard) >= 0 && apart;
  apart = syscall(SYS_close_range, kReportDescriptor + 1, ~0U, 0) == 0 && apart;
  LiftLimits();
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int handled : {SIGPIPE, SIGHUP, SIGINT, SIGTERM, SIGCHLD})
    signal(handled, SIG_DFL);
  // Changes the identity before running anything that the home's owner chose.
  apart = apart && (program.identity == nullptr || platform::Become(*program.identity));
  if (apart && chdir("/") == 0) execve(program.arguments[0], program.arguments, program.environment);
  Send(kReportDescriptor, Report::failed, errno);
  _exit(127);
}

// Runs in the intermediate process. Starts the server in a session of its own and ends, so that no client is the
// server's parent.
[[noreturn]] void BecomeStarter(int pipe, const Program& program) {
  setsid();
  const pid_t server = fork();
  if (server == 0) BecomeServer(pipe, program);
  if (server > 0) {
    Send(pipe, Report::started, server);
  } else {
    Send(pipe, Report::failed, errno);
  }
  _exit(0);
}

}  // namespace

bool ServerProcess::Start(const std::string& command, uid_t author) {
  std::vector<std::string> words = SplitCommand(command);
  if (words.empty()) return false;
  words.emplace_back("-Embedding");
  const std::optional<platform::Identity> identity = platform::Home::Current().ServingIdentity(author);
  std::vector<std::string> variables = EnvironmentWithHome(identity.has_value());
  const std::vector<char*> arguments = Pointers(words);
  const std::vector<char*> environment = Pointers(variables);
  const Program program{arguments.data(), environment.data(), identity ? &*identity : nullptr};

  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) return false;
  const platform::Descriptor reports(pipe[0]);
  platform::Descriptor reporting(pipe[1]);
  const pid_t starter = fork();
  if (starter == 0) BecomeStarter(reporting.Number(), program);
  if (starter < 0) return false;
  reporting.Close();
  const bool started = AwaitStart(reports.Number());
  while (waitpid(starter, nullptr, 0) < 0 && errno == EINTR) {
  }
  return started;
}

// Reads the reports. They end when the server has executed its program or failed to.
bool ServerProcess::AwaitStart(int reports) {
  bool started = false;
  bool failed = false;
  Report report{};
  for (ssize_t got = 0; (got = read(reports, &report, sizeof report)) != 0;) {
    if (got < 0 && errno == EINTR) continue;
    if (got != static_cast<ssize_t>(sizeof report)) break;
    if (report.kind == Report::failed) failed = true;
    if (report.kind == Report::started) {
      started = true;
      process_ = platform::Descriptor(static_cast<int>(syscall(SYS_pidfd_open, report.value, 0)));
      hadEnded_ = !process_ && errno == ESRCH;
    }
  }
  return started && !failed;
}

bool ServerProcess::HasEnded() const {
  if (!process_) return hadEnded_;
  pollfd ended{process_.Number(), POLLIN, 0};
  return poll(&ended, 1, 0) > 0;
}

void ServerProcess::End() const {
  if (process_) syscall(SYS_pidfd_send_signal, process_.Number(), SIGTERM, nullptr, 0);
}

}  // namespace com
