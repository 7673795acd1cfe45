// Runs the transcripts, the text files of transcripts/. Each documents one subject as a user sees it: a shell session
// with the real program and the real server, with a folder and a home of its own.
//
// A line that begins at the margin is prose. A line indented by four blanks is part of the session:
//
//     $ COMMAND    a command of /bin/sh, run in the folder of the transcript with an empty standard input
//     > MORE       the next line of the command
//     TEXT         a line that it writes to standard output
//     ! TEXT       a line that it writes to standard error; all of these follow standard output
//     ? STATUS     its exit status where that is not 0
//
// What a command prints must be there in full. Blank lines at the end do not count; text after the last line end gets
// the mark "(no line end)". In a line of the transcript "..." stands for any text, $PWD for the folder, $KESTOR for the
// server's executable. The commands have these two as variables, $EXAMPLES for the folder of the examples, and $HOLD
// for a program that holds a file while it runs a command (hold.cpp). After a line "Only where: COMMAND" a transcript
// ends where that command fails.
//
// The tour of README.md is a transcript too, written as a terminal shows it: without the marks "!" and "?", with $? for
// the status of the last command, and with kFolder and kServer for the folder and the server's executable.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "support/support.h"

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

constexpr std::string_view kCommand = "    $ ";
constexpr std::string_view kMore = "    > ";
constexpr std::string_view kSession = "    ";
constexpr std::string_view kCondition = "Only where: ";
constexpr const char* kReadme = KESTOR_EXAMPLES "/../README.md";
constexpr const char* kFolder = "/srv/kestor";
constexpr const char* kServer = "/opt/kestor/bin/kestor";

Lines Split(std::string text) {
  if (!text.empty() && text.back() != '\n') text += "(no line end)\n";
  Lines lines;
  for (std::size_t start = 0; start < text.size(); start += lines.back().size() + 1)
    lines.push_back(text.substr(start, text.find('\n', start) - start));
  return lines;
}

std::string Join(Lines lines) {
  while (!lines.empty() && lines.back().empty())
    lines.pop_back();
  std::string text;
  for (const std::string& line : lines)
    text += line + '\n';
  return text;
}

bool Matches(std::string_view line, std::string_view pattern) {
  const std::size_t dots = pattern.find("...");
  if (dots == pattern.npos) return line == pattern;
  if (!line.starts_with(pattern.substr(0, dots))) return false;
  for (std::size_t rest = dots; rest <= line.size(); ++rest) {
    if (Matches(line.substr(rest), pattern.substr(dots + 3))) return true;
  }
  return false;
}

class Transcript : public testing::TestWithParam<std::string> {
 protected:
  Transcript() {
    umask(022);
    for (const fs::path& folder : {folder_.Path(), Session()}) {
      fs::create_directory(folder);
      fs::permissions(folder, fs::perms(0755));
    }
    setenv("PATH", (fs::path(KESTORCTL).parent_path().string() + ":" + getenv("PATH")).c_str(), 1);
    setenv("LC_ALL", "C", 1);
    setenv("KESTOR", KESTOR_EXECUTABLE, 1);
    setenv("EXAMPLES", KESTOR_EXAMPLES, 1);
    setenv("HOLD", KESTOR_HOLD, 1);
    setenv("KESTOR_HOME", (Session() / "home").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", mkdtemp(run_.data()), 1);
    setenv("KESTOR_SYSTEM", (Session() / "system").c_str(), 1);
    unsetenv("KESTOR_SERVER");
  }

  // Ends processes that still run in a home of the session, even one that a command has removed or damaged.
  ~Transcript() override {
    for (const fs::directory_entry& process : fs::directory_iterator("/proc")) {
      std::ifstream file(process.path() / "environ");
      const std::string variables(std::istreambuf_iterator<char>(file), {});
      if (variables.find("KESTOR_HOME=" + Session().string()) == variables.npos) continue;
      kill(std::stoi(process.path().filename()), SIGKILL);
    }
    std::error_code ignored;
    fs::remove_all(run_, ignored);
  }

  fs::path Path(const char* name) const { return folder_.Path() / name; }
  fs::path Session() const { return Path("session"); }

  int Run(const std::string& command) const {
    const std::string script = "cd '" + Session().string() + "'\n(exit " + std::to_string(status_) + ")\n{ " + command +
                               "\n} </dev/null >../output 2>../errors";
    return support::Child([&script] { return execl("/bin/sh", "sh", "-c", script.c_str(), nullptr); }).Wait();
  }

  // Runs the command and returns what it prints, in the form of a transcript.
  Lines Outcome(const std::string& command) {
    status_ = Run(command);
    Lines lines = Split(support::ReadFile(Path("output")));
    for (const std::string& line : Split(support::ReadFile(Path("errors"))))
      lines.push_back(isReadme_ ? line : "! " + line);
    if (status_ != 0 && !isReadme_) lines.push_back("? " + std::to_string(status_));
    for (std::string& line : lines) {
      Replace(Session(), isReadme_ ? kFolder : "$PWD", &line);
      Replace(KESTOR_EXECUTABLE, isReadme_ ? kServer : "$KESTOR", &line);
    }
    return lines;
  }

  const bool isReadme_ = GetParam() == kReadme;

 private:
  static void Replace(const std::string& text, const char* name, std::string* line) {
    for (std::size_t at = line->find(text); at != line->npos; at = line->find(text))
      line->replace(at, text.size(), name);
  }

  int status_ = 0;  // of the last command
  const support::TempFolder folder_;
  std::string run_ = "/tmp/kestor-test-XXXXXX";  // short, whatever TMPDIR is, because socket paths must be short
};

TEST_P(Transcript, Holds) {
  const Lines lines = Split(support::ReadFile(GetParam()));
  bool hasCommand = false;
  for (std::size_t i = 0; i < lines.size();) {
    const std::string& line = lines[i++];
    if (line.starts_with(kCondition) && Run(line.substr(kCondition.size())) != 0) GTEST_SKIP() << line;
    if (!line.starts_with(kCommand)) {
      ASSERT_FALSE(line.starts_with(' ') && !isReadme_)
          << GetParam() << ':' << i << " is neither prose nor part of the session";
      continue;
    }
    hasCommand = true;
    const std::size_t at = i;
    std::string command = line.substr(kCommand.size());
    for (; i < lines.size() && lines[i].starts_with(kMore); ++i)
      command += '\n' + lines[i].substr(kMore.size());
    Lines printed = Outcome(command);
    Lines expected;
    for (; i < lines.size() && (lines[i].empty() || lines[i].starts_with(kSession)); ++i) {
      if (lines[i].starts_with(kCommand)) break;
      expected.push_back(lines[i].substr(std::min(lines[i].size(), kSession.size())));
      const std::size_t row = expected.size() - 1;
      if (row < printed.size() && Matches(printed[row], expected[row])) printed[row] = expected[row];
    }
    ASSERT_TRUE(Join(expected) == Join(printed)) << GetParam() << ':' << at << ": " << line << "\nexpected:\n"
                                                 << Join(expected) << "printed:\n"
                                                 << Join(printed);
  }
  EXPECT_TRUE(hasCommand) << GetParam() << " has no command";
}

std::vector<std::string> Transcripts() {
  std::vector<std::string> files = {kReadme};
  for (const std::string& name : support::Names(KESTOR_TRANSCRIPTS)) {
    if (name.ends_with(".txt") && !name.starts_with('.')) files.push_back(KESTOR_TRANSCRIPTS "/" + name);
  }
  return files;
}

INSTANTIATE_TEST_SUITE_P(, Transcript, testing::ValuesIn(Transcripts()),
                         [](const auto& test) { return fs::path(test.param).stem().string(); });

}  // namespace
