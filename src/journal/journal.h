// The journal: what the server has changed and what it has refused to change, one line of JSON each, in files of the
// home.
//
//   journal.jsonl      where lines are appended
//   journal.1.jsonl    what it held before the last rotation; journal.2.jsonl is older, and so on
//   journal.lock       held by the process that rotates
//
// Any number of processes append at once, and lines never mix. No process waits for another one. Nothing is flushed: a
// power failure may lose the last lines. Otherwise lines are lost only if they cannot be written, or with the oldest
// file when there are more files than are kept.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/home/home.h"
#include "platform/host/descriptor.h"

namespace journal {

// A change that was made or refused. Texts are UTF-8 from untrusted sources: malformed bytes are replaced, and a text
// is cut to kLongestText characters. An empty text is left out of the line.
struct Entry {
  std::chrono::system_clock::time_point time = {};
  uid_t user = 0;     // of the client
  pid_t process = 0;  // of the client
  std::string_view className = {};
  std::string_view method = {};
  std::string_view module = {};
  std::string_view component = {};
  std::string_view model = {};
  std::string_view outcome = {};  // what became of one model, if the call deals with many; otherwise empty
  std::int32_t result = 0;
  std::optional<std::uint64_t> bytes = {};  // of the model's content
  std::string_view reason = {};             // why it was refused, or why the model stays as it is
};

inline constexpr std::size_t kLongestText = 512;

// The settings of the journal in the registry, below HKEY_LOCAL_MACHINE\SOFTWARE\Norvela\KESTOR. A value that is
// missing, is no DWORD or is out of range has its default.
struct Settings {
  std::uint64_t bytes = std::uint64_t{8} << 20;  // DiarioBytes: size limit of a file; at least 64 KiB
  unsigned older = 4;                            // DiarioArquivos: number of older files to keep; at most 99
  bool systemLog = false;                        // DiarioSyslog: 1 if each line goes to the system log as well
};

Settings ReadSettings();

// Appends lines. One thread at a time may use a writer, in the process that created it.
class Writer {
 public:
  // Opens nothing yet.
  explicit Writer(const platform::Home& home);
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // Appends a line with one write. The file stays open; if another process has rotated it, opens the new one; if it is
  // full, rotates it first. A line that cannot be written is lost. Reads the settings at most once a second. Once the
  // file is open, a line needs no allocation and waits for nothing but the system log, if that is switched on.
  void Append(const Entry& entry) noexcept;

  // Returns why the last line was lost, for people; empty if it was written.
  std::string Trouble() const;

 private:
  using Clock = std::chrono::steady_clock;

  void LookAtSettings();
  int Write();
  int Open();
  int WriteLine();
  bool IsFull(const struct stat& file) const;

  const platform::Home home_;
  const std::string path_;
  std::string line_;  // starts and ends with a newline
  platform::Descriptor file_;
  struct stat identity_ {};     // of `file_`
  bool afterFragment_ = false;  // `file_` does not end with a newline
  Settings settings_;
  Clock::time_point nextLook_{};      // when to read the settings again
  Clock::time_point nextRotation_{};  // no earlier than this, after a rotation that failed
  int error_ = 0;                     // of the last line
};

// The state of the journal of a home, found without changing anything.
struct Condition {
  std::filesystem::path file;  // where lines are appended; may be missing
  std::uint64_t bytes = 0;     // of all files of the journal
  std::string trouble;         // why this process cannot append a line now, for people; empty if it can
};

Condition ConditionOf(const platform::Home& home);

// Reads the lines of all files of the journal, the oldest file first. Reads each line exactly once, even while other
// processes append and rotate, except lines whose file is deleted before it can be read.
class Reader {
 public:
  explicit Reader(const platform::Home& home);

  // Calls `visit` for each line that has not been read yet, without its newline. A line begins with {"time":" and is
  // shorter than kLongestLine. The caller must check whether it is complete: a full disk leaves fragments, and so does
  // a writer that is killed where a line crosses a page boundary.
  void ReadNew(const std::function<void(std::string_view line)>& visit);

  // Returns which files could not be read, and why, for people.
  const std::vector<std::string>& Troubles() const { return troubles_; }

 private:
  struct File {
    platform::Descriptor file;  // keeps the system from reusing the identity
    struct stat identity;
    std::string name;
    off_t position;
  };

  void FindFiles();
  bool IsKnown(const struct stat& file) const;
  void ReadFrom(File& file, const std::function<void(std::string_view)>& visit);
  void Note(const std::string& name, int error);

  const platform::Home home_;
  std::vector<File> files_;  // the oldest first
  std::string block_;
  std::vector<std::string> troubles_;
};

inline constexpr std::size_t kLongestLine = std::size_t{32} << 10;

}  // namespace journal
