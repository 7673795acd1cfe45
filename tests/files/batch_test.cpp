// Helpers for work on many files: flushing them together, and detecting whether one has changed.
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <random>
#include <set>
#include <thread>

#include "fixture.h"

namespace {

class BatchTest : public FilesTest {
 protected:
  // Acts as another station: each thread has a group of its own.
  template <typename Body>
  static void AtAnotherStation(const Body& body) {
    std::thread(body).join();
  }

  static void Put(const std::string& name, const std::string& content, UINT flags = 0) {
    CFile file;
    ASSERT_EQ(OpenError(&file, ("D:\\" + name).c_str(), kCreateExclusive | flags), 0) << name;
    file.Write(content.data(), static_cast<UINT>(content.size()));
    file.Close();
  }
};

TEST_F(BatchTest, ContentsThenNamesThenTheFolder) {
  WriteFile("Old.txt", "old");
  WriteFile("Other.txt", "old");
  files::GroupedReplacements group;
  const SystemCalls system;
  Put("NEW.txt", "new", files::mustBeNew);
  Put("OLD.txt", "replaced");
  Put("OTHER.TXT", "spelt anew", files::nameAsGiven);
  EXPECT_TRUE(system.Seen().empty());
  EXPECT_EQ(group.Count(), 3U);
  AtAnotherStation([] {
    EXPECT_EQ(OpenError("D:\\NEW.TXT", kReadShared), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(OpenError("D:\\new.txt", kCreateExclusive), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(OpenError("D:\\Old.txt", kReadShared), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(ErrorOf([] { CFile::Remove("D:\\Old.txt"); }), ERROR_SHARING_VIOLATION);
  });
  EXPECT_EQ(ReadFile("Old.txt"), "old");
  group.Finish();
  EXPECT_EQ(system.Seen(),
            (Names{"fsync file", "fsync file", "fsync file", "rename2 hidden NEW.txt", "rename hidden Old.txt",
                   "rename2 Other.txt OTHER.TXT", "rename hidden OTHER.TXT", "fsync folder"}));
  for (std::size_t i = 0; i < 3; ++i)
    EXPECT_EQ(group.Of(i).failure.m_cause, CFileException::none);
  AtAnotherStation([] { EXPECT_EQ(Content("D:\\old.txt"), "replaced"); });
  EXPECT_EQ(Here(), (Names{"NEW.txt", "OTHER.TXT", "Old.txt"}));
}

// A file whose flush fails keeps its old content, and a file that cannot get its name does not affect others. The
// outcomes of files that had to be finished in between are reported as well.
TEST_F(BatchTest, EachFailsForItself) {
  WriteFile("B.TXT", "old");
  files::GroupedReplacements group;
  {
    int flushes = 0;
    const SystemCalls system([&](const host::SystemCall& call) {
      return host::Fate{.error = std::string_view(call.name) == "fsync" && ++flushes == 2 ? EIO : 0};
    });
    for (const char* const name : {"A.TXT", "B.TXT", "C.TXT"})
      Put(name, "new", files::nameAsGiven);
    EXPECT_EQ(Content("D:\\c.txt"), "new");
  }
  Put("D.TXT", "new", files::mustBeNew);
  Put("E.TXT", "new");
  WriteFile("d.txt", "made by a program that knows of no locks");
  group.Finish();
  std::string failures;
  for (std::size_t i = 0; i < group.Count(); ++i) {
    const CFileException& failure = group.Of(i).failure;
    failures += failure.m_strFileName + " " + std::to_string(failure.m_lOsError) + ",";
  }
  EXPECT_EQ(failures, " 0,D:\\B.TXT 1117, 0,D:\\D.TXT 80, 0,");
  EXPECT_EQ(Here(), (Names{"A.TXT", "B.TXT", "C.TXT", "E.TXT", "d.txt"}));
  EXPECT_EQ(ReadFile("B.TXT"), "old");
}

TEST_F(BatchTest, TheThreadFindsWhatItHasWritten) {
  const std::pair<const char*, std::function<void()>> looks[] = {
      {"reading", [] { EXPECT_EQ(Content("D:\\Sub\\..\\a.txt"), "new"); }},
      {"attributes", [] { EXPECT_EQ(GetFileAttributesA("D:\\a.txt "), FILE_ATTRIBUTE_NORMAL); }},
      {"a search",
       [] {
         _finddata_t found{};
         const std::intptr_t search = _findfirst("D:\\A*", &found);
         EXPECT_STREQ(found.name, "A.TXT");
         _findclose(search);
       }},
      {"writing", [] { Put("a.txt", "once more"); }},
      {"a name that is taken", [] { EXPECT_EQ(OpenError("D:\\a.txt", kCreateExclusive | files::mustBeNew), 80); }},
      {"renaming", [] { CFile::Rename("D:\\a.txt", "D:\\B.TXT"); }},
      {"a link to it", [] { EXPECT_EQ(Content("D:\\Link.txt"), "new"); }},
      {"removing", [] { CFile::Remove("D:\\a.txt"); }},
      {"a group within",
       [] {
         const files::GroupedReplacements inner;
         EXPECT_EQ(ReadFile("A.TXT"), "new");
         Put("B.TXT", "new");
         EXPECT_EQ(inner.Count(), 1U);
       }},
  };
  for (const auto& [what, look] : looks) {
    SCOPED_TRACE(what);
    fs::remove("A.TXT");
    fs::remove("Link.txt");
    const bool linked = std::string_view(what) == "a link to it";
    if (linked) WriteFile("A.TXT", "old");
    if (linked) fs::create_symlink("A.TXT", "Link.txt");
    files::GroupedReplacements group;
    Put("A.TXT", "new");
    Put("Z.TXT", "no matter");
    EXPECT_NE(OpenError("D:\\Missing.txt", kReadShared), 0);
    EXPECT_FALSE(fs::exists("A.TXT") && !linked) << "for the sake of another name";
    look();
    EXPECT_EQ(group.Count(), std::string_view(what) == "writing" ? 3U : 2U);
  }
}

// A closed batch is flushed while the next one is filled, and its files get their names after that. Numbering
// continues.
TEST_F(BatchTest, OneBatchAfterTheOther) {
  std::promise<void> mayFlush;
  std::atomic<int> flushed = 0;
  const SystemCalls system([&](const host::SystemCall& call) {
    const std::string_view name = call.name;
    EXPECT_TRUE(!name.starts_with("rename") || flushed >= 2) << call.newPath;
    if (name != "fsync") return host::Fate();
    if (flushed == 0) mayFlush.get_future().wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(flushed < 2 ? 30 : 0));
    return host::Fate{.error = flushed++ == 0 ? EIO : 0};
  });
  files::GroupedReplacements group;
  Put("A.TXT", "a");
  Put("B.TXT", "b");
  group.Close();
  Put("C.TXT", "c");
  EXPECT_EQ(group.Count(), 3U);
  ASSERT_FALSE(group.IsFlushed());
  mayFlush.set_value();
  EXPECT_TRUE(group.FinishClosed());
  EXPECT_FALSE(group.FinishClosed());
  EXPECT_TRUE(fs::exists("B.TXT") && !fs::exists("A.TXT") && !fs::exists("C.TXT"));
  EXPECT_EQ(group.Of(0).failure.m_lOsError, 1117);
  EXPECT_EQ(group.Of(1).failure.m_lOsError, 0);
  group.ForgetClosed();
  group.Close();
  Put("D.TXT", "d");
  EXPECT_EQ(Content("D:\\c.txt"), "c") << "waits for the batch that is closed as well";
  EXPECT_EQ(Here(), (Names{"B.TXT", "C.TXT", "D.TXT"}));
  EXPECT_TRUE(group.IsFlushed());
  EXPECT_EQ(group.Of(2).failure.m_lOsError, 0);
  group.ForgetClosed();
  EXPECT_EQ(group.Of(3).failure.m_lOsError, 0);
}

// If no thread can be started, a batch is flushed when the caller waits for it.
TEST_F(BatchTest, WithoutAThread) {
  Elsewhere([] {
    files::GroupedReplacements group;
    Put("A.TXT", "a");
    const rlimit none = {0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
    if (geteuid() == 0) support::BecomeUser(kNobody);  // the limit does not bind the superuser
    const SystemCalls system;
    group.Close();
    EXPECT_TRUE(group.IsFlushed());
    EXPECT_TRUE(system.Seen().empty());
    EXPECT_TRUE(group.FinishClosed());
    EXPECT_EQ(system.Seen(), (Names{"fsync file", "rename2 hidden A.TXT", "fsync folder"}));
  });
}

TEST_F(BatchTest, OneNameInSeveralFolders) {
  fs::create_directory("Sub");
  files::GroupedReplacements group;
  CFile other;
  ASSERT_EQ(OpenError(&other, "D:\\A.TXT", kCreateExclusive), 0);
  Put("Sub\\A.TXT", "sub");
  group.Close();
  other.Write("other", 5);
  other.Close();
  group.FinishClosed();
  EXPECT_EQ(Content("D:\\a.txt"), "other");
  Put("Sub\\A.TXT", "old");
  group.Finish();
  fs::remove_all("Sub");
  fs::create_directory("Sub");
  Put("Sub\\A.TXT", "in a folder that was made anew");
  EXPECT_EQ(Content("D:\\Sub\\a.txt"), "in a folder that was made anew");
}

TEST_F(BatchTest, AsManyAsTheProcessMayHaveOpen) {
  Elsewhere([] {
    const rlimit few = {40, 40};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::size_t count = 0;
    {
      files::GroupedReplacements group;
      for (; !group.IsFull() && count < 100; ++count)
        Put(std::to_string(count), "content");
      group.Close();
      EXPECT_FALSE(group.IsFull());
      group.FinishClosed();
      group.ForgetClosed();
      Put("Large", std::string(20 << 20, 'x'));
      EXPECT_TRUE(group.IsFull());
    }
    EXPECT_EQ(Here().size(), count + 1);
    EXPECT_GT(count, 40U);
  });
}

TEST_F(BatchTest, OneReadingForSeveralSearches) {
  WriteFile("A.TXT", "");
  int readings = 0;
  const SystemCalls system([&](const host::SystemCall& call) {
    if (std::string_view(call.name) == "openat" && std::string_view(call.path) == ".") ++readings;
    return host::Fate();
  });
  const auto finds = [](const char* pattern) {
    _finddata_t found{};
    const std::intptr_t search = _findfirst(pattern, &found);
    if (search != -1) _findclose(search);
    return search != -1;
  };
  const files::OneReading reading;
  EXPECT_TRUE(finds("D:\\A*"));
  EXPECT_FALSE(finds("D:\\B*"));
  EXPECT_EQ(readings, 1);
  Put("B.TXT", "");
  EXPECT_TRUE(finds("D:\\B*"));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  WriteFile("C.TXT", "by a program that tells nobody");
  EXPECT_TRUE(finds("D:\\C*"));
  EXPECT_TRUE(finds("D:\\A*"));
}

// Whatever comes and goes in a folder, a name leads to the first of its existing spellings.
TEST_F(BatchTest, NamesThatComeAndGo) {
  std::mt19937 random(7);
  std::set<std::string> here;
  for (int step = 0; step < 4000; ++step) {
    std::string name = "Nome" + std::to_string(random() % 150);
    if (random() % 4 == 0) name[3] = 'E';
    if (random() % 2 == 0) {
      WriteFile(name, "");
      here.insert(name);
    } else {
      fs::remove(name);
      here.erase(name);
    }
    if (step % 10 != 0) continue;
    const std::string lower = "nome" + name.substr(4);
    std::string found;
    files::HostPath(("D:\\" + lower).c_str(), &found);
    found = fs::path(found).filename();
    std::string expected = lower;
    for (const char* const spelling : {"Nome", "NomE"}) {
      if (here.contains(spelling + name.substr(4))) expected = spelling + name.substr(4);
    }
    ASSERT_EQ(found, expected) << "step " << step;
  }
}

// A file counts as unchanged only once its last change is some seconds old.
TEST_F(BatchTest, AFileThatIsStillWhatItWas) {
  fs::create_symlink("/bin/sh", "Catalogo.REL");
  files::ContentWatch watch("D:\\CATALOGO.REL");
  EXPECT_TRUE(watch.HasChanged());
  EXPECT_FALSE(watch.HasChanged());
  fs::remove("Catalogo.REL");
  EXPECT_TRUE(watch.HasChanged());
  fs::create_symlink("/bin/ls", "CATALOGO.rel");
  EXPECT_TRUE(watch.HasChanged());
  EXPECT_FALSE(watch.HasChanged());
  fs::remove("CATALOGO.rel");
  WriteFile("Catalogo.REL", "written a moment ago");
  EXPECT_TRUE(watch.HasChanged());
  EXPECT_TRUE(watch.HasChanged()) << "may be written to once more within the same step of time";
}

}  // namespace
