// The order in which names and flushed content reach the disk, and what stays on it when one of the steps fails.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "opening_modes.h"
#include "support/support.h"

namespace fs = std::filesystem;

namespace {

using Texts = std::vector<std::string>;

// The calls that are seen while a test looks.
struct Recorder {
  bool on = false;
  Texts calls;
  std::map<std::string, int, std::less<>> failures;  // the errno values of calls that fail
};

Recorder recorder;

std::string Shown(std::string_view name) {
  return std::string(name.starts_with(".kestor-") ? "hidden" : name);
}

// True when the call is to be made.
bool Note(std::string call) {
  if (!recorder.on) return true;
  const auto failure = recorder.failures.find(call);
  const bool fails = failure != recorder.failures.end();
  if (fails) errno = failure->second;
  recorder.calls.push_back(std::move(call));
  return !fails;
}

std::string OfKind(const char* call, int descriptor) {
  struct stat status = {};
  fstat(descriptor, &status);
  return std::string(call) + (S_ISDIR(status.st_mode) ? " folder" : " file");
}

std::string OfNames(const char* call, const char* from, const char* to) {
  return std::string(call) + ' ' + Shown(from) + ' ' + Shown(to);
}

}  // namespace

extern "C" {

int __real_fsync(int descriptor);
int __real_fdatasync(int descriptor);
int __real_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName);
int __real_renameat2(int oldFolder, const char* oldName, int newFolder, const char* newName, unsigned flags);
int __real_linkat(int oldFolder, const char* oldName, int newFolder, const char* newName, int flags);
int __real_unlinkat(int folder, const char* name, int flags);
int __real_fcntl64(int descriptor, int command, ...);

int __wrap_fsync(int descriptor) {
  return Note(OfKind("fsync", descriptor)) ? __real_fsync(descriptor) : -1;
}

int __wrap_fdatasync(int descriptor) {
  return Note(OfKind("fdatasync", descriptor)) ? __real_fdatasync(descriptor) : -1;
}

int __wrap_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  return Note(OfNames("rename", oldName, newName)) ? __real_renameat(oldFolder, oldName, newFolder, newName) : -1;
}

int __wrap_renameat2(int oldFolder, const char* oldName, int newFolder, const char* newName, unsigned flags) {
  return Note(OfNames("rename2", oldName, newName)) ? __real_renameat2(oldFolder, oldName, newFolder, newName, flags)
                                                    : -1;
}

int __wrap_linkat(int oldFolder, const char* oldName, int newFolder, const char* newName, int flags) {
  return Note(OfNames("link", oldName, newName)) ? __real_linkat(oldFolder, oldName, newFolder, newName, flags) : -1;
}

int __wrap_unlinkat(int folder, const char* name, int flags) {
  return Note("unlink " + Shown(name)) ? __real_unlinkat(folder, name, flags) : -1;
}

int __wrap_fcntl64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const auto failure = recorder.failures.find("lock");
  if (command != F_OFD_SETLK || failure == recorder.failures.end()) {
    return __real_fcntl64(descriptor, command, argument);
  }
  errno = failure->second;
  return -1;
}

}  // extern "C"

namespace {

constexpr char kPath[] = "D:\\Model.RXL";
constexpr char kOtherSpelling[] = "D:\\MODEL.RXL";
constexpr UINT kCreateAsGiven = kCreateExclusive | CFile::nameAsGiven;

class FlushingTest : public testing::Test {
 protected:
  ~FlushingTest() override { recorder = {}; }

  fs::path File() const { return home_.Data() / "Model.RXL"; }

  // Does something and gives the error number; `calls` and `failures` tell what the system saw and answered.
  template <typename Action>
  static LONG Watch(const Action& action, const std::map<std::string, int, std::less<>>& failures = {}) {
    recorder = {true, {}, failures};
    LONG error = 0;
    try {
      action();
    } catch (const CFileException& failure) {
      error = failure.m_lOsError;
    }
    recorder.on = false;
    recorder.failures.clear();
    return error;
  }

  static void Write(const char* path, UINT mode) {
    CFile file;
    CFileException failure;
    if (!file.Open(path, mode, &failure)) throw failure;
    file.Write("new", 3);
    file.Close();
  }

  support::TempHome home_;
};

}  // namespace

TEST_F(FlushingTest, ContentComesBeforeItsNameAndTheFolderLast) {
  const auto write = [](const char* path, UINT mode) {
    EXPECT_EQ(Watch([&] { Write(path, mode); }), 0);
    return recorder.calls;
  };
  EXPECT_EQ(write(kPath, kCreateExclusive), (Texts{"fsync file", "rename2 hidden Model.RXL", "fsync folder"}));
  EXPECT_EQ(write(kOtherSpelling, kCreateExclusive), (Texts{"fsync file", "rename hidden Model.RXL", "fsync folder"}));
  EXPECT_EQ(write(kPath, kCreateAsGiven), (Texts{"fsync file", "rename hidden Model.RXL", "fsync folder"}));
  EXPECT_EQ(write(kOtherSpelling, kCreateAsGiven),
            (Texts{"fsync file", "rename2 Model.RXL MODEL.RXL", "rename hidden MODEL.RXL", "fsync folder"}));
  EXPECT_EQ(write(kPath, kUpdateExclusive), Texts{"fdatasync file"});
  EXPECT_EQ(write("D:\\New.DAT", kUpdateExclusive), (Texts{"rename2 hidden New.DAT", "fsync file", "fsync folder"}));
  EXPECT_EQ(Watch([] { CFile::Rename("D:\\New.DAT", "D:\\Other.DAT"); }), 0);
  EXPECT_EQ(recorder.calls, (Texts{"rename2 New.DAT Other.DAT", "fsync folder", "unlink hidden"}));
  EXPECT_EQ(Watch([] { CFile::Remove("D:\\Other.DAT"); }), 0);
  EXPECT_EQ(recorder.calls, (Texts{"unlink Other.DAT", "fsync folder"}));
  EXPECT_EQ(support::Names(home_.Data()), Texts{"MODEL.RXL"});
}

TEST_F(FlushingTest, StepsThatFailLeaveTheOldContentUnderTheOldName) {
  support::WriteFile(File(), "old");
  const struct {
    const char* path;
    const char* failing;
  } cases[] = {{kPath, "fsync file"},
               {kPath, "rename hidden Model.RXL"},
               {kOtherSpelling, "fsync file"},
               {kOtherSpelling, "rename2 Model.RXL MODEL.RXL"},
               {kOtherSpelling, "rename hidden MODEL.RXL"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Watch([&] { Write(c.path, kCreateAsGiven); }, {{c.failing, EIO}}), 1117) << c.failing;
    EXPECT_EQ(support::Names(home_.Data()), Texts{"Model.RXL"}) << c.failing;
    EXPECT_EQ(support::ReadFile(File()), "old") << c.failing;
  }
  EXPECT_EQ(Watch([] { Write(kPath, kUpdateExclusive); }, {{"fdatasync file", EIO}}), 1117);

  // The new content stays when all that fails is the last step.
  EXPECT_EQ(Watch([] { Write(kPath, kCreateExclusive); }, {{"fsync folder", ENOSPC}}), 112);
  EXPECT_EQ(support::ReadFile(File()), "new");

  EXPECT_EQ(Watch([] { Write("D:\\New.DAT", kCreateExclusive); }, {{"rename2 hidden New.DAT", EIO}}), 1117);
  EXPECT_EQ(Watch([] { Write("D:\\New.DAT", kCreateExclusive); }, {{"lock", ENOLCK}}), 36);
  EXPECT_EQ(support::Names(home_.Data()), Texts{"Model.RXL"});
}

TEST_F(FlushingTest, FileSystemsThatCannotRefuseToReplaceAName) {
  support::WriteFile(File(), "old");
  EXPECT_EQ(Watch([] { CFile::Rename(kOtherSpelling, kOtherSpelling); }, {{"rename2 Model.RXL MODEL.RXL", EINVAL}}), 0);
  EXPECT_EQ(recorder.calls,
            (Texts{"rename2 Model.RXL MODEL.RXL", "rename Model.RXL MODEL.RXL", "fsync folder", "unlink hidden"}));
  EXPECT_EQ(Watch([] { Write("D:\\New.DAT", kCreateExclusive); }, {{"rename2 hidden New.DAT", EINVAL}}), 0);
  EXPECT_EQ(recorder.calls,
            (Texts{"fsync file", "rename2 hidden New.DAT", "link hidden New.DAT", "unlink hidden", "fsync folder"}));
  EXPECT_EQ(support::Names(home_.Data()), (Texts{"MODEL.RXL", "New.DAT"}));
}
