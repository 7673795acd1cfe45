#include <fcntl.h>
#include <syslog.h>

#include <cerrno>
#include <exception>

#include "files.h"
#include "journal.h"
#include "line.h"
#include "platform/host/system.h"
#include "platform/registry/registry.h"

namespace journal {
namespace {

constexpr const char* kKey = "SOFTWARE\\Norvela\\KESTOR";
constexpr DWORD kFewestBytes = DWORD{64} << 10;  // must hold several lines
constexpr DWORD kMostOlder = 99;
constexpr std::chrono::seconds kSettingsAge{1};
constexpr std::chrono::milliseconds kRotationPause{100};

// No LOG_PID: each line already names its process.
void WriteToSystemLog(std::string_view line) {
  openlog("kestor", 0, LOG_USER);
  syslog(LOG_USER | LOG_NOTICE, "%.*s", static_cast<int>(line.size()), line.data());
}

// Returns whether the file ends inside a line: a process was killed while writing, or found the disk full.
bool EndsInsideLine(const Descriptor& file, const struct stat& status) {
  char last = '\n';
  std::size_t read = 0;
  return status.st_size > 0 && host::ReadAt(file, &last, 1, status.st_size - 1, &read) == 0 && last != '\n';
}

}  // namespace

Settings ReadSettings() {
  Settings settings;
  registry::OwnedKey key;
  if (RegOpenKeyA(HKEY_LOCAL_MACHINE, kKey, key.Out()) != 0) return settings;
  settings.bytes =
      registry::ReadNumber(key.Get(), "DiarioBytes", kFewestBytes, ~DWORD{0}, static_cast<DWORD>(settings.bytes));
  settings.older = registry::ReadNumber(key.Get(), "DiarioArquivos", 0, kMostOlder, settings.older);
  settings.systemLog = registry::ReadNumber(key.Get(), "DiarioSyslog", 0, 1, 0) != 0;
  return settings;
}

Writer::Writer(const platform::Home& home) : home_(home), path_(home.Folder() / FileName(0)) {
  line_.reserve(kLongestLine);
}

void Writer::Append(const Entry& entry) noexcept {
  try {
    LookAtSettings();
    line_ = '\n';
    AppendEntry(entry, &line_);
    line_ += '\n';
    error_ = Write();
    if (settings_.systemLog) WriteToSystemLog(std::string_view(line_).substr(1, line_.size() - 2));
  } catch (const std::exception&) {  // only an allocation failure
    error_ = ENOMEM;
  }
}

std::string Writer::Trouble() const {
  return Reason(error_);
}

void Writer::LookAtSettings() {
  const Clock::time_point now = Clock::now();
  if (now < nextLook_) return;
  settings_ = ReadSettings();
  nextLook_ = now + kSettingsAge;
}

// Does not write to a file that was rotated after it was opened, or deleted before it was locked.
int Writer::Write() {
  constexpr int kAttempts = 16;  // each fails only because of another rotation
  int error = 0;
  for (int i = 0; i < kAttempts; ++i) {
    error = file_ ? 0 : Open();
    if (error == ENOENT || error == EAGAIN) continue;
    if (error != 0) return error;
    struct stat named = {};
    const bool isCurrent = host::StatLink(AT_FDCWD, path_, &named) == 0 && host::SameFile(named, identity_);
    if (isCurrent && !IsFull(named)) return WriteLine();
    if (isCurrent) {
      host::SetLock(file_, F_UNLCK, kAppending);
      if (!Rotate(home_.Folder(), identity_, settings_.older)) nextRotation_ = Clock::now() + kRotationPause;
    }
    file_.Close();
  }
  return error != 0 ? error : EAGAIN;
}

int Writer::Open() {
  int error = OpenOrMakeFile(home_.Folder(), FileName(0), &file_, &identity_);
  if (error != 0) return error;
  error = host::SetLock(file_, F_RDLCK, kAppending);
  if (error == EAGAIN) {
    file_.Close();
    return error;
  }
  // If the file system has no locks, writes without one rather than losing lines.
  afterFragment_ = EndsInsideLine(file_, identity_);
  return 0;
}

bool Writer::IsFull(const struct stat& file) const {
  const auto length = static_cast<std::uint64_t>(file.st_size);
  return length > 0 && length + line_.size() > settings_.bytes && Clock::now() >= nextRotation_;
}

// The rest of a partial line cannot be written later: other processes may have appended by then.
int Writer::WriteLine() {
  std::string_view line = line_;
  if (!afterFragment_) line.remove_prefix(1);
  std::size_t written = 0;
  int error = host::Write(file_.Number(), line.data(), line.size(), &written);
  if (error == 0 && written < line.size()) error = ENOSPC;
  if (written > 0) afterFragment_ = error != 0;
  return error;
}

Condition ConditionOf(const platform::Home& home) {
  const platform::ActingAsOwner owner(home.Folder());
  Condition condition{.file = home.Folder() / FileName(0), .bytes = 0, .trouble = {}};
  Descriptor folder;
  Descriptor file;
  struct stat status = {};
  int error = OpenFile(AT_FDCWD, condition.file, Access::appending, &file, &status);
  if (error == 0) {
    error = host::SetLock(file, F_RDLCK, kAppending) == EAGAIN ? EAGAIN : host::FindRoom(file);
  } else if (error == ENOENT) {
    error = host::OpenFolder(AT_FDCWD, home.Folder(), &folder);
    if (error == 0) error = host::MayMakeFiles(folder);
    if (error == 0) error = host::FindRoom(folder);
  }
  condition.trouble = Reason(error);
  std::vector<unsigned> numbers;
  if (!folder) host::OpenFolder(AT_FDCWD, home.Folder(), &folder);
  if (folder) FindOlder(folder, &numbers);
  numbers.push_back(0);
  for (const unsigned number : numbers) {
    const bool isFile =
        folder && host::StatLink(folder.Number(), FileName(number), &status) == 0 && S_ISREG(status.st_mode);
    if (isFile) condition.bytes += static_cast<std::uint64_t>(status.st_size);
  }
  return condition;
}

}  // namespace journal
