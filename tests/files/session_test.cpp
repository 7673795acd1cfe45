// Plays the sessions of sessions/*.txt. Each shows one subject of the file class step by step, in a folder of its own
// that is drive D and the current directory.
//
// A line that begins at the margin is prose. A line indented by four blanks is a step: a command, its arguments (in
// apostrophes if they contain blanks) and, after "->", the answer. A command that fails answers "error" and the
// platform's number; a step without an answer must succeed and return nothing. Commands in lower case are the host's.
// Those with a capital are the platform's: they take the platform's paths, and Open keeps a file open for the steps
// after it. <FF> in a step stands for that byte, which is not UTF-8, and <x*250> for that many letters.
//
// "why" before a platform command expects it to fail and answers the explanation, without the folder of home and drive,
// and with N for the number of a process.
//
// "elsewhere" before a step runs it in another process, "as other" in a process of another user. That process ends
// after the step as if killed, without closing its files.
#include <sys/xattr.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iomanip>
#include <map>
#include <regex>
#include <sstream>

#include "fixture.h"
#include "platform/text/text.h"

namespace {

using Clock = fs::file_time_type::clock;

// Parses a mode and its flags, as in "create+must-be-new".
UINT ModeOf(const std::string& text) {
  static const std::map<std::string, UINT> kFlags = {{"read", kReadShared},
                                                     {"hold", kReadExclusive},
                                                     {"write", CFile::modeWrite},
                                                     {"change", CFile::modeReadWrite | CFile::shareExclusive},
                                                     {"create", kCreateExclusive},
                                                     {"create-shared", kCreateShared},
                                                     {"update", kUpdateExclusive},
                                                     {"update-shared", kUpdateShared},
                                                     {"as-given", files::nameAsGiven},
                                                     {"must-be-new", files::mustBeNew},
                                                     {"no-link", files::noLink},
                                                     {"whole", files::wholeUpdate}};
  UINT mode = 0;
  std::istringstream names(text);
  for (std::string name; std::getline(names, name, '+');)
    mode |= kFlags.at(name);
  return mode;
}

std::string Permissions(const std::string& file) {
  std::ostringstream text;
  text << std::oct << static_cast<unsigned>(fs::status(file).permissions());
  return text.str();
}

void Grant(const std::string& user, const std::string& file, const char* attribute) {
  const std::string acl = AclWith(static_cast<std::uint32_t>(std::stoul(user)));
  EXPECT_EQ(setxattr(file.c_str(), attribute, acl.data(), acl.size(), 0), 0) << strerror(errno);
}

// Returns the users in the access control list of a file, each with its permissions.
std::string Granted(const std::string& file) {
  char acl[1024];
  const ssize_t size = getxattr(file.c_str(), "system.posix_acl_access", acl, sizeof acl);
  std::string text;
  for (std::size_t at = sizeof kAclVersion; std::cmp_less(at, size); at += sizeof(AclEntry)) {
    AclEntry entry{};
    memcpy(&entry, acl + at, sizeof entry);
    if (entry.kind != kNamedUser) continue;
    text += (text.empty() ? "" : " ") + std::to_string(entry.who) + ":" + std::to_string(entry.permits);
  }
  return text;
}

void Open(CFile* file, const std::string& mode, const std::string& path) {
  CFileException failure;
  if (!file->Open(path.c_str(), ModeOf(mode), &failure)) throw failure;
}

void Try(const std::string& mode, const std::string& path) {
  CFile file;
  Open(&file, mode, path);
}

void Save(const std::string& mode, const std::string& path) {
  CFile file;
  Open(&file, mode, path);
  file.Write("new", 3);
  file.Close();
}

std::string Joined(const Names& names, const char* separator = " ") {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : separator) + name;
  return text;
}

// Returns the names found, folders with a slash in front.
std::string Find(const std::string& pattern) {
  Names names;
  _finddata_t found;
  const std::intptr_t search = _findfirst(pattern.c_str(), &found);
  for (bool isThere = search != -1; isThere; isThere = _findnext(search, &found) == 0)
    names.push_back((found.attrib == FILE_ATTRIBUTE_DIRECTORY ? "/" : "") + std::string(found.name));
  if (search != -1) _findclose(search);
  return Joined(names);
}

// Replaces the placeholders for what a line cannot contain.
std::string Expanded(std::string line) {
  static const std::regex kLetters("<x\\*([0-9]+)>");
  for (std::size_t at = line.find("<FF>"); at != line.npos; at = line.find("<FF>"))
    line.replace(at, 4, "\xFF");
  for (std::smatch sign; std::regex_search(line, sign, kLetters);)
    line = sign.prefix().str() + std::string(std::stoul(sign[1]), 'x') + sign.suffix().str();
  return line;
}

class SessionTest : public FilesTest, public testing::WithParamInterface<std::string> {
 protected:
  // Runs a step and returns its answer.
  std::string Do(const std::string& step) {
    std::istringstream in(step);
    std::string command, a, b;
    const bool asksWhy = step.starts_with("why ");
    if (asksWhy) in >> command;
    in >> command >> std::quoted(a, '\'', '`') >> std::quoted(b, '\'', '`');
    const Action& action = actions_.at(command);
    answer_.clear();
    if (islower(static_cast<unsigned char>(command[0])) != 0) {
      action(a, b);
      return answer_;
    }
    const SystemCalls system(std::exchange(failures_, {}));
    CFileException failure;
    try {
      action(text::FromUtf8(a), text::FromUtf8(b));
    } catch (const CFileException& thrown) {
      failure = thrown;
    }
    steps_ = system.Seen();
    if (asksWhy) return Why(failure);
    return failure.m_lOsError == 0 ? text::ToUtf8(answer_) : "error " + std::to_string(failure.m_lOsError);
  }

 private:
  using Action = std::function<void(const std::string& a, const std::string& b)>;

  std::string Why(const CFileException& failure) const {
    std::string why = files::Explain(failure.m_strFileName, static_cast<DWORD>(failure.m_lOsError));
    for (std::size_t at = why.find(root_); at != why.npos; at = why.find(root_))
      why.erase(at, root_.size());
    return std::regex_replace(why, std::regex("process [0-9]+ \\([^)]*\\)"), "process N");
  }

  void Read(std::size_t count) {
    answer_.resize(count);
    answer_.resize(file_.Read(answer_.data(), static_cast<UINT>(count)));
  }

  const std::string root_ = fs::canonical(home_.Home()).parent_path();
  CFile file_;  // the open file
  std::string answer_;
  SystemCalls::Failures failures_;  // steps that fail in the next command
  Names steps_;                     // by which the last command changed files

  const std::map<std::string, int> errors_ = {
      {"EIO", EIO}, {"ENOSPC", ENOSPC}, {"EINVAL", EINVAL}, {"ENOENT", ENOENT}, {"ENOLCK", ENOLCK}};
  const std::map<std::string, Action> actions_ = {
      {"put", [](auto& name, auto& content) { WriteFile(name, content); }},
      {"cat", [this](auto& name, auto&) { answer_ = ReadFile(name); }},
      {"ls", [this](auto& folder, auto&) { answer_ = Joined(support::Names("./" + folder)); }},
      {"mkdir", [](auto& name, auto&) { fs::create_directory(name); }},
      {"mkfifo", [](auto& name, auto&) { mkfifo(name.c_str(), 0666); }},
      {"ln", [](auto& file, auto& name) { fs::create_hard_link(file, name); }},
      {"symlink", [](auto& target, auto& name) { fs::create_symlink(target, name); }},
      {"chmod", [](auto& mode, auto& name) { fs::permissions(name, fs::perms(std::stoul(mode, nullptr, 8))); }},
      {"umask", [](auto& mask, auto&) { umask(static_cast<mode_t>(std::stoul(mask, nullptr, 8))); }},
      {"grant", [](auto& user, auto& file) { Grant(user, file, "system.posix_acl_access"); }},
      {"grant-new", [](auto& user, auto& folder) { Grant(user, folder, "system.posix_acl_default"); }},
      {"granted", [this](auto& file, auto&) { answer_ = Granted(file); }},
      {"mode", [this](auto& name, auto&) { answer_ = Permissions(name); }},
      {"mv", [](auto& name, auto& to) { fs::rename(name, to); }},
      {"rm", [](auto& name, auto&) { fs::remove(name); }},
      {"age", [](auto& name, auto&) { fs::last_write_time(name, Clock::now() - std::chrono::hours(1)); }},
      {"fill-disk", [](auto& left, auto&) { support::FillDisk(std::stoul(left)); }},
      {"fail", [this](auto& step, auto& error) { failures_.emplace_back(step, errors_.at(error)); }},
      {"steps", [this](auto&, auto&) { answer_ = Joined(steps_, ", "); }},

      {"Open", [this](auto& mode, auto& path) { Open(&file_, mode, path); }},
      {"Read", [this](auto& count, auto&) { Read(std::stoul(count)); }},
      {"Write", [this](auto& bytes, auto&) { file_.Write(bytes.data(), static_cast<UINT>(bytes.size())); }},
      {"Seek", [this](auto& to, auto&) { file_.Seek(std::stoll(to), to[0] == '-' ? CFile::end : CFile::begin); }},
      {"GetLength", [this](auto&, auto&) { answer_ = std::to_string(file_.GetLength()); }},
      {"SetLength", [this](auto& length, auto&) { file_.SetLength(std::stoull(length)); }},
      {"Close", [this](auto&, auto&) { file_.Close(); }},
      {"Abort", [this](auto&, auto&) { file_.Abort(); }},

      {"Try", [](auto& mode, auto& path) { Try(mode, path); }},
      {"Save", [](auto& mode, auto& path) { Save(mode, path); }},
      {"Content", [this](auto& path, auto&) { answer_ = Content(path); }},
      {"Remove", [](auto& path, auto&) { CFile::Remove(path.c_str()); }},
      {"Rename", [](auto& from, auto& to) { CFile::Rename(from.c_str(), to.c_str()); }},
      {"Find", [this](auto& pattern, auto&) { answer_ = Find(pattern); }},
      {"Attributes", [this](auto& path, auto&) { answer_ = std::to_string(GetFileAttributesA(path.c_str())); }},
      {"HostPath", [this](auto& path, auto&) { files::HostPath(path.c_str(), &answer_); }},
  };
};

TEST_P(SessionTest, Holds) {
  static const std::string kElsewhere = "elsewhere ";
  static const std::string kAsOther = "as other ";
  const std::string path = FILES_SESSIONS "/" + GetParam();
  std::istringstream lines(ReadFile(path));
  if (geteuid() != 0 && lines.str().find("    " + kAsOther) != std::string::npos) GTEST_SKIP() << "needs two users";
  Elsewhere([&] {
    std::string line;
    bool hasStep = false;
    for (int number = 1; std::getline(lines, line); ++number) {
      if (!line.starts_with(' ')) continue;
      hasStep = true;
      const testing::ScopedTrace where(path.c_str(), number, line);
      ASSERT_TRUE(line.starts_with("    ")) << "neither prose nor a step";
      line = Expanded(line);
      const std::size_t arrow = line.find(" -> ");
      const std::string answer = arrow == line.npos ? "" : line.substr(arrow + 4);
      const std::string step = line.substr(4, arrow - 4);
      const auto play = [&](const std::string& who) {
        EXPECT_NO_THROW(EXPECT_EQ(Do(step.substr(who.size())), answer));
      };
      if (step.starts_with(kElsewhere))
        Elsewhere([&] { play(kElsewhere); });
      else if (step.starts_with(kAsOther))
        Elsewhere([&] { play(kAsOther); }, kOther);
      else
        play("");
    }
    EXPECT_TRUE(hasStep) << path << " has no step";
  });
}

Names Sessions() {
  Names files = support::Names(FILES_SESSIONS);
  std::erase_if(files, [](const std::string& name) { return !name.ends_with(".txt") || name.starts_with('.'); });
  return files;
}

INSTANTIATE_TEST_SUITE_P(, SessionTest, testing::ValuesIn(Sessions()),
                         [](const auto& test) { return fs::path(test.param).stem().string(); });

}  // namespace
