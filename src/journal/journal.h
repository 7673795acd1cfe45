// The journal: what the server has changed and what it has refused to change, a line of JSON each, in files of the
// home.
//
//   journal.jsonl      where lines are appended
//   journal.1.jsonl    what it held before the last rotation; journal.2.jsonl is older, and so on
//   journal.lock       held by the process that rotates
//
// Any number of processes append at once, and lines never mix. Nothing waits for another process, and nothing is
// flushed: a power failure may lose the last lines. Lines are lost only where none can be written, and with the oldest
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

// A change that was made or refused. Texts are UTF-8 and come from anywhere: what is malformed is replaced, and a text
// is cut to kLongestText characters. A text that is empty is left out of the line.
struct Entry {
  std::chrono::system_clock::time_point time = {};
  uid_t user = 0;     // of the client
  pid_t process = 0;  // of the client
  std::string_view className = {};
  std::string_view method = {};
  std::string_view module = {};
  std::string_view component = {};
  std::string_view model = {};
  std::string_view outcome = {};  // what became of one model of a call that deals with many; otherwise empty
  std::int32_t result = 0;
  std::optional<std::uint64_t> bytes = {};  // of the model's content
  std::string_view reason = {};             // why it was refused, or why the model stays as it is
};

inline constexpr std::size_t kLongestText = 512;

// What the registry says about the journal, below HKEY_LOCAL_MACHINE\SOFTWARE\Norvela\KESTOR. A value that is missing,
// is no DWORD or is out of range counts as the default.
struct Settings {
  std::uint64_t bytes = std::uint64_t{8} << 20;  // DiarioBytes: no file becomes longer by a line; at least 64 KiB
  unsigned older = 4;                            // DiarioArquivos: how many older files are kept; at most 99
  bool systemLog = false;                        // DiarioSyslog: 1, each line goes to the system log as well
};

Settings ReadSettings();

// Appends lines. One thread at a time uses it, in the process that has made it.
class Writer {
 public:
  // Opens nothing yet.
  explicit Writer(const platform::Home& home);
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // Appends a line by one write. The file stays open; when another process has rotated it, the new one is opened, and
  // when it is full, it is rotated first. A line that cannot be written is lost. Looks at the settings at most once a
  // second. Neither waits nor takes memory for a line once the file is open. Only a system log that is asked for may
  // keep it waiting.
  void Append(const Entry& entry) noexcept;

  // Why the last line was lost, for people; empty when it was not.
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
  std::string line_;  // begins and ends with a line end
  platform::Descriptor file_;
  struct stat identity_ {};     // of `file_`
  bool afterFragment_ = false;  // `file_` does not end with a line end
  Settings settings_;
  Clock::time_point nextLook_{};      // at the settings
  Clock::time_point nextRotation_{};  // not before, after one that could not be made
  int error_ = 0;                     // of the last line
};

// What can be said of the journal of a home without changing anything in it.
struct Condition {
  std::filesystem::path file;  // where lines are appended, whether or not it is there
  std::uint64_t bytes = 0;     // of all its files
  std::string trouble;         // why this process could not append a line now, for people; empty when it could
};

Condition ConditionOf(const platform::Home& home);

// Reads the lines of all files of the journal, the oldest file first. Each line is read once, and none is left out,
// also while other processes append and rotate; what is deleted before it could be read is missing.
class Reader {
 public:
  explicit Reader(const platform::Home& home);

  // Calls `visit` for each line that has not been read yet, without its line end. A line begins with {"time":" and is
  // shorter than kLongestLine; whether it is whole, the caller has to find out: a full disk leaves fragments, and
  // so does a writer that is killed where a line crosses two pages.
  void ReadNew(const std::function<void(std::string_view line)>& visit);

  // Which files could not be read, and why, for people.
  const std::vector<std::string>& Troubles() const { return troubles_; }

 private:
  struct File {
    platform::Descriptor file;  // keeps the identity from being used again
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
