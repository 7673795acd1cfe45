// Content: what is on the disk while a file is written, afterwards, and when the writer fails or is killed.
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "opening_modes.h"
#include "shared_memory.h"
#include "support/support.h"

namespace fs = std::filesystem;
using support::ReadFile;
using support::WriteFile;

namespace {

using Names = std::vector<std::string>;

constexpr char kPath[] = "D:\\Model.RXL";

class ReplacementTest : public testing::Test {
 protected:
  fs::path File() const { return home_.Data() / "Model.RXL"; }

  // A content that tells whether it is whole: ten digits of its number, then as many letters as the number says.
  static std::string Version(unsigned number) {
    const std::string digits = std::to_string(number);
    std::string content = std::string(10 - digits.size(), '0') + digits;
    content.append(number * 977 % 90000, static_cast<char>('a' + number % 26));
    return content;
  }

  static unsigned NumberOf(const std::string& content) {
    return static_cast<unsigned>(std::stoul(content.substr(0, 10)));
  }

  static bool IsWhole(const std::string& content) {
    return content.size() >= 10 && content == Version(NumberOf(content));
  }

  static void Save(const std::string& content) {
    CFile file;
    if (const LONG error = OpenError(&file, kPath, kCreateExclusive); error != 0) throw error;
    const auto half = static_cast<UINT>(content.size() / 2);
    file.Write(content.data(), half);
    file.Write(content.data() + half, static_cast<UINT>(content.size()) - half);
    file.Close();
    CFile::Rename(kPath, kPath);
  }

  support::TempHome home_;
};

}  // namespace

TEST_F(ReplacementTest, NothingIsSeenBeforeClose) {
  for (const bool exists : {false, true}) {
    if (exists) WriteFile(File(), "old");
    CFile file;
    ASSERT_EQ(OpenError(&file, "D:\\MODEL.rxl", kCreateExclusive), 0);
    file.Write("new", 3);
    EXPECT_EQ(fs::exists(File()), exists);
    EXPECT_EQ(OpenError(kPath, kUpdateExclusive), 32);
    file.Abort();
    EXPECT_EQ(support::Names(home_.Data()), exists ? Names{"Model.RXL"} : Names{});
    EXPECT_EQ(exists ? ReadFile(File()) : "old", "old");
  }
  const mode_t mode = 0640;
  ASSERT_EQ(chmod(File().c_str(), mode), 0);
  CFile file;
  ASSERT_EQ(OpenError(&file, "D:\\MODEL.rxl", kCreateExclusive), 0);
  file.Write("content", 7);
  file.Close();
  EXPECT_EQ(support::Names(home_.Data()), Names{"Model.RXL"});
  EXPECT_EQ(ReadFile(File()), "content");
  struct stat status = {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, mode);
}

TEST_F(ReplacementTest, FailedWritesLeaveWhatWasThere) {
  WriteFile(File(), "old");
  const auto body = [] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string content(2000, 'x');
    CFile file;
    if (!file.Open(kPath, kCreateExclusive)) return 1;
    try {
      file.Write(content.data(), 2000);
      return 2;
    } catch (const CFileException& failure) {
      if (failure.m_cause != CFileException::diskFull || failure.m_lOsError != 112) return 3;
    }
    try {
      file.Close();
      return 4;
    } catch (const CFileException&) {
      return file.IsOpen() ? 5 : 0;
    }
  };
  EXPECT_EQ(support::Child(body).Wait(), 0);
  EXPECT_EQ(ReadFile(File()), "old");
  EXPECT_EQ(support::Names(home_.Data()), Names{"Model.RXL"});
}

TEST_F(ReplacementTest, KilledAtAnyInstantTheDiskHasAWholeVersion) {
  std::minstd_rand random(20);
  WriteFile(File(), Version(0));
  SharedMemory<std::atomic<int>> lastToSave;
  const int rounds = Rounds(60, 1000);
  for (int round = 1; round <= rounds; ++round) {
    support::Child writer([&] {
      for (unsigned number = 1;; ++number) {
        Save(Version(number + static_cast<unsigned>(round)));
        *lastToSave = round;
      }
      return 0;
    });
    // Every other writer is past its first version when it is killed, however slow the disk is.
    if (round % 2 == 0) {
      ASSERT_TRUE(support::WaitUntil([&] { return *lastToSave == round; }));
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
    writer.Kill();
    writer.Wait();
    ASSERT_TRUE(IsWhole(ReadFile(File()))) << round;
    _finddata_t found;
    const std::intptr_t search = _findfirst("D:\\*", &found);
    ASSERT_NE(search, -1);
    EXPECT_STREQ(found.name, "Model.RXL");
    EXPECT_EQ(_findnext(search, &found), -1);
    _findclose(search);
  }
  Save(Version(1));
  EXPECT_EQ(support::Names(home_.Data()), Names{"Model.RXL"});
}

TEST_F(ReplacementTest, ReadersSeeTheLastWholeVersionWhileTheFileIsReplaced) {
  WriteFile(File(), Version(0));
  SharedMemory<std::atomic<unsigned>> saved;
  support::Child writer([&] {
    for (unsigned number = 1;; ++number) {
      try {
        Save(Version(number));
        *saved = number;
      } catch (LONG error) {
        if (error != 32) return 1;
      } catch (const CFileException& failure) {
        if (failure.m_lOsError != 32) return 2;
        *saved = number;  // only the renaming that follows was refused
      }
      std::this_thread::yield();
    }
    return 0;
  });
  const int wanted = Rounds(300, 10000);
  constexpr unsigned kWantedVersions = 5;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (int reads = 0, attempts = 0; reads < wanted || *saved < kWantedVersions; ++attempts) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    const unsigned before = *saved;
    CFile file;
    const LONG error = OpenError(&file, kPath, attempts % 2 == 0 ? kReadExclusive : kReadShared);
    if (error == 32) continue;
    ASSERT_EQ(error, 0);
    std::string content(static_cast<std::size_t>(file.GetLength()), '\0');
    content.resize(file.Read(content.data(), static_cast<UINT>(content.size())));
    ASSERT_TRUE(IsWhole(content));
    ASSERT_GE(NumberOf(content), before);
    ++reads;
  }
}

TEST_F(ReplacementTest, TheFileStaysWithItsGroupOrTheGroupLosesIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  constexpr uid_t kOwner = 65533;
  constexpr uid_t kWriter = 65534;
  constexpr gid_t kOwnersGroup = 65531;
  constexpr gid_t kWritersGroup = 65532;
  fs::current_path(home_.Data());
  fs::permissions(".", fs::perms(0777));
  const struct {
    bool isMember;
    mode_t mode;
    gid_t newGroup;
    mode_t newMode;
  } cases[] = {{true, 0660, kOwnersGroup, 0660}, {false, 0666, kWritersGroup, 0606}};
  for (const auto& c : cases) {
    WriteFile(File(), "old");
    ASSERT_EQ(chown(File().c_str(), kOwner, kOwnersGroup), 0);
    ASSERT_EQ(chmod(File().c_str(), c.mode), 0);
    support::Child writer([&] {
      if (setgroups(c.isMember ? 1 : 0, &kOwnersGroup) != 0) return 1;
      if (setresgid(kWritersGroup, kWritersGroup, kWritersGroup) != 0) return 2;
      if (setresuid(kWriter, kWriter, kWriter) != 0) return 3;
      CFile file;
      if (!file.Open("Model.RXL", kCreateExclusive)) return 4;
      file.Close();
      return 0;
    });
    EXPECT_EQ(writer.Wait(), 0);
    struct stat status = {};
    ASSERT_EQ(stat(File().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kWriter);
    EXPECT_EQ(status.st_gid, c.newGroup);
    EXPECT_EQ(status.st_mode & 0777, c.newMode);
  }
  fs::current_path("/");
}

TEST_F(ReplacementTest, LeftoversAreNeverWrittenThrough) {
  // The hidden file of a killed writer, with another name that leads to it.
  CFile writer;
  ASSERT_EQ(OpenError(&writer, kPath, kCreateExclusive), 0);
  const Names names = support::Names(home_.Data());
  ASSERT_EQ(names.size(), 1u);
  writer.Abort();
  WriteFile(home_.Data() / names[0], "precious");
  fs::create_hard_link(home_.Data() / names[0], home_.Data() / "PRECIOUS");
  Save(Version(3));
  EXPECT_EQ(ReadFile(home_.Data() / "PRECIOUS"), "precious");
  EXPECT_EQ(ReadFile(File()), Version(3));

  fs::create_symlink("PRECIOUS", home_.Data() / names[0]);
  EXPECT_NE(OpenError(kPath, kCreateExclusive), 0);
  EXPECT_EQ(ReadFile(home_.Data() / "PRECIOUS"), "precious");
}

TEST_F(ReplacementTest, FilesInPlace) {
  CFile file;
  ASSERT_EQ(OpenError(&file, kPath, kCreateShared), 0);
  EXPECT_TRUE(fs::exists(File()));
  file.Write("0123456789", 10);
  EXPECT_EQ(file.Seek(-4, CFile::end), 6);
  char buffer[16] = {};
  EXPECT_EQ(file.Read(buffer, sizeof buffer), 4u);
  EXPECT_STREQ(buffer, "6789");
  file.SetLength(5);
  EXPECT_EQ(file.Seek(0, CFile::current), 5);
  for (const LONGLONG offset : {LONGLONG{-1}, LONGLONG{INT64_MIN}}) {
    try {
      file.Seek(offset, CFile::begin);
      ADD_FAILURE() << offset;
    } catch (const CFileException& failure) {
      EXPECT_EQ(failure.m_cause, CFileException::badSeek);
      EXPECT_EQ(failure.m_lOsError, 131);
    }
  }
  file.Close();
  EXPECT_EQ(ReadFile(File()), "01234");

  ASSERT_EQ(OpenError(&file, kPath, kUpdateExclusive), 0);
  EXPECT_EQ(file.SeekToEnd(), 5);
  file.Write("x", 1);
  file.Close();
  EXPECT_EQ(ReadFile(File()), "01234x");
  EXPECT_EQ(OpenError(kPath, kCreateShared), 0);
  EXPECT_EQ(ReadFile(File()), "");

  ASSERT_EQ(OpenError(&file, kPath, kReadShared), 0);
  EXPECT_THROW(file.Write("x", 1), CFileException);
  EXPECT_THROW(file.SetLength(1), CFileException);
  ASSERT_EQ(OpenError(&file, kPath, CFile::modeWrite), 0);
  EXPECT_THROW(file.Read(buffer, 1), CFileException);
  file.Close();
  EXPECT_THROW(file.GetLength(), CFileException);
  EXPECT_NO_THROW(file.Close());
}

TEST_F(ReplacementTest, LengthsAndPositionsHave64Bits) {
  constexpr LONGLONG kFar = 3LL << 30;
  CFile file;
  ASSERT_EQ(OpenError(&file, kPath, kUpdateExclusive), 0);
  EXPECT_EQ(file.Seek(kFar, CFile::begin), kFar);
  file.Write("end", 3);
  EXPECT_EQ(file.GetLength(), static_cast<ULONGLONG>(kFar) + 3);
  EXPECT_EQ(file.Seek(-3, CFile::end), kFar);
  char buffer[4] = {};
  EXPECT_EQ(file.Read(buffer, 4), 3u);
  EXPECT_STREQ(buffer, "end");
  file.Abort();
}
