// The steps by which a new content takes the place of the old one. This program's own versions of the system's calls
// stand between the registry and the system.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "fixture.h"

namespace {

// What is done while the object exists. The steps named `failing` fail with `error`.
class Steps {
 public:
  explicit Steps(std::string failing = {}, int error = 0) : failing_(std::move(failing)), error_(error) {
    current = this;
  }
  ~Steps() { current = nullptr; }
  Steps(const Steps&) = delete;
  Steps& operator=(const Steps&) = delete;

  const std::string& Seen() const { return seen_; }

  static bool AreWatched() { return current != nullptr; }

  static bool Fails(const std::string& step) {
    if (current == nullptr) return false;
    if (!current->seen_.ends_with(step + '\n')) current->seen_ += step + '\n';
    errno = current->error_;
    return step == current->failing_;
  }

 private:
  static Steps* current;

  std::string seen_;
  const std::string failing_;
  const int error_;
};

Steps* Steps::current = nullptr;

bool IsFolder(int descriptor) {
  struct stat state {};
  return fstat(descriptor, &state) == 0 && S_ISDIR(state.st_mode);
}

}  // namespace

extern "C" {

ssize_t __real_write(int file, const void* data, std::size_t size);
int __real_fsync(int file);
int __real_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName);

// A disk may take less at a time than it is given.
ssize_t __wrap_write(int file, const void* data, std::size_t size) {
  constexpr std::size_t kAtATime = 100;
  if (Steps::Fails("write")) return -1;
  return __real_write(file, data, Steps::AreWatched() ? std::min(size, kAtATime) : size);
}

int __wrap_fsync(int file) {
  return Steps::Fails(IsFolder(file) ? "flush folder" : "flush file") ? -1 : __real_fsync(file);
}

int __wrap_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  return Steps::Fails("rename") ? -1 : __real_renameat(oldFolder, oldName, newFolder, newName);
}

}  // extern "C"

namespace {

using RegistryReplacing = Registry;

const std::string kText(2000, 'a');

TEST_F(RegistryReplacing, TheContentIsOnTheDiskBeforeItTakesItsName) {
  const OpenedKey key("K", true);
  const Steps steps;
  EXPECT_EQ(SetText(key.Get(), "v", kText), kSuccess);
  EXPECT_EQ(steps.Seen(), "write\nflush file\nrename\nflush folder\n");
  EXPECT_EQ(Get(key.Get(), "v"), "1:" + kText + '\0');
}

TEST_F(RegistryReplacing, AStepThatFailsLeavesTheOldContent) {
  const OpenedKey key("K", true);
  const std::string before = support::ReadFile(File());
  const struct {
    std::string step;
    int error;
    DWORD result;
  } kCases[] = {{"write", ENOSPC, ERROR_DISK_FULL},
                {"flush file", EIO, ERROR_IO_DEVICE},
                {"flush file", EINVAL, ERROR_IO_DEVICE},
                {"rename", EACCES, ERROR_ACCESS_DENIED}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.step);
    const Steps steps(c.step, c.error);
    EXPECT_EQ(SetText(key.Get(), "v", kText), static_cast<LONG>(c.result));
    EXPECT_TRUE(steps.Seen().ends_with(c.step + '\n')) << steps.Seen();
    EXPECT_EQ(support::ReadFile(File()), before);
    ExpectNoLeftovers();
  }
}

TEST_F(RegistryReplacing, AFolderThatCannotBeFlushedIsNoFailure) {
  const OpenedKey key("K", true);
  const Steps steps("flush folder", EINVAL);
  EXPECT_EQ(SetText(key.Get(), "v", "x"), kSuccess);
}

}  // namespace
