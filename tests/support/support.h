// Helpers for the tests of several subjects: temporary folders and homes, child processes, whole files in one call.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

// A folder below the system's temporary folder; the destructor removes it.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// A home of the test's own with a drive D, which is the folder Data(): its own, or one that several homes share. The
// process and its children use the home from construction on. The sockets of the home are inside the test's folder.
class TempHome {
 public:
  explicit TempHome(const std::filesystem::path& sharedData = {});

  // Makes this home the process's home again.
  void Enter() const;

  std::filesystem::path Home() const { return folder_.Path() / "home"; }
  std::filesystem::path Data() const { return data_; }

 private:
  TempFolder folder_;
  const std::filesystem::path data_;
};

void WriteFile(const std::filesystem::path& file, std::string_view bytes);
std::string ReadFile(const std::filesystem::path& file);  // the whole content; fails the test if it cannot be read

// Returns the names in a folder, including hidden ones, sorted by bytes.
std::vector<std::string> Names(const std::filesystem::path& folder);

// Runs `body` in a child process that exits with its result, without running destructors or tests. The destructor kills
// and reaps the child if it still runs.
class Child {
 public:
  explicit Child(const std::function<int()>& body);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t Pid() const { return pid_; }
  void Kill();
  int Wait();  // exit status, or 128 plus the signal that ended it

 private:
  pid_t pid_ = -1;
};

// Returns true once a process and all its threads have ended, so that what it held is released; it may not be reaped
// yet.
bool HasEnded(pid_t pid);

// Turns this process, a child of a test run by the superuser, into one of `user`, with `groups` and the group of the
// same number.
void BecomeUser(uid_t user, const std::vector<gid_t>& groups = {});

// From now on no file that the process writes can grow beyond this size, as on a disk with that much room.
void FillDisk(std::size_t bytesLeft);

// Waits until `condition` holds; returns false if it does not within `seconds`.
bool WaitUntil(const std::function<bool()>& condition, int seconds = 30);

// Returns whether tests run in their long form (KESTOR_LONG_TESTS=1): minutes instead of seconds.
bool LongTests();

}  // namespace support
