// Explanations of failures that need a special disk, limit or name. The sessions cover those of files and rights.
#include <fcntl.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>

#include "fixture.h"
#include "platform/host/descriptor.h"

namespace {

using ExplanationTest = FilesTest;

// Returns the explanation without the folder of the drive.
std::string Told(const std::string& path, DWORD error) {
  const std::string root = fs::current_path();
  std::string why = files::Explain(path, error);
  for (std::size_t at = why.find(root); at != why.npos; at = why.find(root))
    why.erase(at, root.size());
  return why;
}

// Returns the explanation when `action` fails; empty if it succeeds.
template <typename Action>
std::string Why(const Action& action) {
  try {
    action();
    return {};
  } catch (const CFileException& failure) {
    return Told(failure.m_strFileName, static_cast<DWORD>(failure.m_lOsError));
  }
}

// Writes a whole file, with its name in the letter case of `path`.
void Save(const char* path, std::size_t bytes = 3) {
  CFile file;
  CFileException failure;
  if (!file.Open(path, kCreateExclusive | files::nameAsGiven, &failure)) throw failure;
  file.Write(std::string(bytes, 'x').data(), static_cast<UINT>(bytes));
  file.Close();
}

// Gives this process a disk of its own at a folder, with room for 1 MiB and 8 files, until the process ends.
bool MountDisk(const char* folder) {
  fs::create_directory(folder);
  return unshare(CLONE_NEWNS) == 0 && mount("", "/", "", MS_REC | MS_PRIVATE, "") == 0 &&
         mount("tmpfs", folder, "tmpfs", 0, "size=1m,nr_inodes=8") == 0;
}

// Marks a file so that no user can change it. Returns false if the file system has no such marks.
bool Mark(const char* path, int mark) {
  const platform::Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
  return ioctl(file.Number(), FS_IOC_SETFLAGS, &mark) == 0;
}

TEST_F(ExplanationTest, FullAndProtectedDisks) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to mount a disk";
  Elsewhere([] {
    if (!MountDisk("Disk")) GTEST_SKIP() << "no disk can be mounted here";
    EXPECT_EQ(Why([] { Save("Disk\\A.TXT", 2'000'000); }),
              "the disk of /Disk had no room for it and has 1048576 bytes left, or the quota of root is used up");
    WriteFile("Disk/FULL", std::string(1 << 20, 'x'));
    EXPECT_EQ(Why([] { Save("Disk\\A.TXT"); }), "the disk of /Disk is full");
    fs::resize_file("Disk/FULL", 1);
    for (const char name : std::string("ABCDEF"))
      WriteFile(std::string("Disk/") + name, "");
    EXPECT_EQ(Why([] { Save("Disk\\A.TXT"); }),
              "the disk of /Disk has room for content, but for no further file (inodes)");
    EXPECT_EQ(Why([] { CFile::Rename("Disk\\A", "A"); }), "/Disk/A cannot be moved to another disk by renaming it");
    ASSERT_EQ(mount("", "Disk", "", MS_REMOUNT | MS_RDONLY, ""), 0) << strerror(errno);
    EXPECT_EQ(Why([] { Save("Disk\\A"); }), "the disk of /Disk is mounted read-only");
    EXPECT_EQ(Why([] { CFile::Remove("Disk\\B"); }), "the disk of /Disk is mounted read-only");
  });
}

TEST_F(ExplanationTest, FilesThatNotEvenTheirOwnerMayChange) {
  WriteFile("A.TXT", "a");
  if (!Mark("A.TXT", FS_IMMUTABLE_FL)) GTEST_SKIP() << "needs the right to mark a file, and a disk that keeps marks";
  const std::string immutable = "/A.TXT is marked as immutable (chattr +i); root can change that";
  EXPECT_EQ(Why([] { Save("A.TXT"); }), immutable);
  EXPECT_EQ(Why([] { CFile::Remove("A.TXT"); }), immutable);
  Mark("A.TXT", FS_APPEND_FL);
  EXPECT_EQ(Why([] { Save("A.TXT"); }), "/A.TXT is marked as append-only (chattr +a); root can change that");
  Mark("A.TXT", 0);
  Mark(".", FS_IMMUTABLE_FL);
  EXPECT_EQ(Why([] { Save("NEW.TXT"); }), " is marked as immutable (chattr +i); root can change that");
  Mark(".", 0);
}

TEST_F(ExplanationTest, LimitOfOpenFiles) {
  Elsewhere([] {
    Save("B.TXT");  // a sanitizer that meets a class for the first time needs a descriptor
    const rlimit few = {64, 64};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::vector<platform::Descriptor> open;
    while (open.emplace_back(::open("/", O_PATH | O_CLOEXEC))) {
    }
    EXPECT_EQ(Why([] { Save("A.TXT"); }), "the server has as many files open as it may, 64");
    open.clear();
    EXPECT_EQ(Told("A.TXT", ERROR_TOO_MANY_OPEN_FILES),
              "the server, or this machine, had as many files open as it may when it came to /A.TXT");
  });
}

// If the cause is gone by now, only the number is reported.
TEST_F(ExplanationTest, NumbersThatNothingExplainsAnyMore) {
  WriteFile("A.TXT", "a");
  const std::string a = "/A.TXT";
  for (const auto& [error, meaning] :
       {std::pair(2U, "the file " + a + " was not found"), std::pair(3U, "the folder of " + a + " was not found"),
        std::pair(5U, "access to " + a + " was denied"), std::pair(19U, "the disk of " + a + " was write-protected"),
        std::pair(32U, a + " was in use by another program or station"),
        std::pair(123U, a + " is not a name for a file"), std::pair(206U, a + " is too long a name"),
        std::pair(31U, "the system gave no reason at " + a + " that has a number of its own")})
    EXPECT_EQ(Told("D:\\a.txt", error), meaning);
  EXPECT_EQ(Told("D:\\No\\A.TXT", ERROR_ACCESS_DENIED), "access to /No/A.TXT was denied");
  EXPECT_EQ(Told("NEW.TXT", ERROR_FILE_EXISTS), "/NEW.TXT existed already");
  EXPECT_EQ(files::Explain("D:\\A?", ERROR_ACCESS_DENIED), "access to D:\\A? was denied");
  EXPECT_LT(files::Explain("D:\\" + std::string(5'000'000, '\n'), ERROR_INVALID_NAME).size(), 2000U);
  EXPECT_LT(files::Explain(std::string(5'000'000, '\\') + "A", ERROR_PATH_NOT_FOUND).size(), 2000U);
}

// If names differ only in letter case, explains the file that the path means.
TEST_F(ExplanationTest, Twins) {
  for (const char* name : {"MODEL.RXL", "Model.RXL", "model.rxl"})
    WriteFile(name, "m");
  fs::permissions("Model.RXL", fs::perms(0444));
  fs::permissions("MODEL.RXL", fs::perms(0444));
  EXPECT_TRUE(Why([] { Save("mODEL.RXL"); }).starts_with("/MODEL.RXL is read-only (its mode 0444 lets nobody write)"));
  EXPECT_TRUE(Why([] { Save("Model.RXL"); }).starts_with("/Model.RXL is read-only"));
  EXPECT_EQ(Why([] { CFile::Rename("model.rxl", "MODEL.RXL"); }), "/MODEL.RXL exists already");
}

}  // namespace
