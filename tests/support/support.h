// What the tests of several subjects share: folders and homes of their own, child processes, files in one call.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

// A folder below the system's temporary folder that goes with the object.
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

// A home of the test's own with a drive D: the folder Data(), its own or one that several homes share. The process uses
// it from construction on, and so do the processes that it starts; the sockets of the home lie inside the test's
// folder.
class TempHome {
 public:
  explicit TempHome(const std::filesystem::path& sharedData = {});

  // Makes it the process's home again after another one was.
  void Enter() const;

  std::filesystem::path Home() const { return folder_.Path() / "home"; }
  std::filesystem::path Data() const { return data_; }

 private:
  TempFolder folder_;
  const std::filesystem::path data_;
};

void WriteFile(const std::filesystem::path& file, std::string_view bytes);
std::string ReadFile(const std::filesystem::path& file);  // the whole content; fails the test if it cannot be read

// Names in a folder, sorted by bytes, hidden ones too.
std::vector<std::string> Names(const std::filesystem::path& folder);

// Runs `body` in a child process that ends with its result (it runs no destructors and no tests of its own). The
// child is killed and reaped with the object if it still runs.
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

// True once a process has ended with all its threads, so that what it held is let go; it may still wait to be reaped.
bool HasEnded(pid_t pid);

// Makes the process, a child of a test that the superuser runs, one of `user`, a member of `groups` and of the group of
// the same number.
void BecomeUser(uid_t user, const std::vector<gid_t>& groups = {});

// From now on no file that the process writes can become longer than this: so much is left of its disk.
void FillDisk(std::size_t bytesLeft);

// Waits until `condition` holds; false when it does not within `seconds`.
bool WaitUntil(const std::function<bool()>& condition, int seconds = 30);

// True when the long forms of tests are asked for (KESTOR_LONG_TESTS=1): minutes instead of seconds.
bool LongTests();

}  // namespace support
