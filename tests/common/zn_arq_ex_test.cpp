// The shared record files: numbers of failures, retries, the control file, the cache, the error record.
#include "common/zn_arq_ex.h"

#include <sys/stat.h>

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/registry/registry.h"
#include "support/installation.h"

namespace fs = std::filesystem;
using kestor::CZNArqEx;
using support::ReadFile;
using support::WriteFile;

namespace {

enum class Op { none, open, close, read, write, seek };

// Fails one operation with one cause, from the first attempt to the `until`-th; counts, and has a clock of its own.
class ScriptedFile : public CZNArqEx {
 public:
  Op failing = Op::none;
  CFileException::Cause cause = CFileException::none;
  int until = 1000;
  int attempts = 0;  // of the failing operation
  int reads = 0;
  DWORD waited = 0;
  DWORD now = 0;
  std::function<void(const std::string& path, UINT flags)> beforeOpen = [](const std::string&, UINT) {};

  BOOL Open(const char* path, UINT flags, CFileException* error) override {
    beforeOpen(path, flags);
    if (!Fails(Op::open)) return CFile::Open(path, flags, error);
    *error = CFileException(cause, 1);
    return FALSE;
  }
  UINT Read(void* buffer, UINT count) override {
    ++reads;
    ThrowIf(Op::read);
    return CFile::Read(buffer, count);
  }
  void Write(const void* buffer, UINT count) override {
    ThrowIf(Op::write);
    CFile::Write(buffer, count);
  }
  LONGLONG Seek(LONGLONG offset, UINT from) override {
    ThrowIf(Op::seek);
    return CFile::Seek(offset, from);
  }
  void Close() override {
    ThrowIf(Op::close);
    CFile::Close();
  }

 private:
  bool Fails(Op op) { return op == failing && ++attempts <= until; }
  void ThrowIf(Op op) {
    if (Fails(op)) throw CFileException(cause, 1);
  }
  void Espera(DWORD ms) override { waited += ms; }
  DWORD Instante() const override { return now; }
};

constexpr std::uint32_t kSize = 264;
constexpr char kPath[] = "D:\\Dados.dat";

std::string Record(char fill, std::size_t size = kSize) {
  return std::string(size, fill);
}

class ZNArqEx : public testing::Test {
 protected:
  fs::path File(const char* name = "Dados.dat") const { return home_.Data() / name; }

  // What the error record says.
  static std::string FailedFile(const char* value = "Arquivo") {
    registry::OwnedKey key;
    char text[512] = "(no key)";
    DWORD size = sizeof text;
    if (RegOpenKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Norvela\\Erros", key.Out()) != 0) return text;
    RegQueryValueExA(key.Get(), value, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
    return text;
  }

  static void ForgetFailedFile() { support::SetRegistryText("SOFTWARE\\Norvela\\Erros", "Arquivo", "-"); }

  support::TempHome home_;
};

// What becomes of each cause in each operation; with the attempts where there are several.
struct CauseRow {
  CFileException::Cause cause;
  std::uint32_t open;
  int openAttempts;
  std::uint32_t close;
  std::uint32_t read;
  std::uint32_t write;
  int writeAttempts;
  std::uint32_t seek;
};

constexpr CauseRow kCauses[] = {
    {CFileException::generic, 16144, 30, 16144, 16144, 16144, 30, 16144},
    {CFileException::fileNotFound, 16055, 1, 16144, 16144, 16055, 1, 16144},
    {CFileException::badPath, 16063, 1, 16144, 16144, 16063, 1, 16144},
    {CFileException::tooManyOpenFiles, 16071, 30, 16144, 16144, 16144, 30, 16144},
    {CFileException::accessDenied, 16080, 30, 16080, 16080, 16080, 30, 16080},
    {CFileException::invalidFile, 16098, 1, 16098, 16098, 16098, 1, 16098},
    {CFileException::removeCurrentDir, 16144, 30, 16144, 16144, 16144, 30, 16144},
    {CFileException::directoryFull, 16101, 1, 16144, 16144, 16144, 30, 16144},
    {CFileException::badSeek, 16144, 30, 16144, 16012, 16012, 1, 16012},
    {CFileException::hardIO, 16144, 30, 16039, 16039, 16039, 1, 16039},
    {CFileException::sharingViolation, 16110, 30, 16110, 16110, 16110, 30, 16110},
    {CFileException::lockViolation, 16128, 30, 16128, 16128, 16128, 30, 16128},
    {CFileException::diskFull, 16136, 30, 16144, 16144, 16136, 30, 16144},
    {CFileException::endOfFile, 16144, 30, 16144, 16021, 16144, 30, 16021},
};

class ZNArqExCauses : public ZNArqEx {
 protected:
  struct Step {
    Op op;
    std::uint32_t expected;
    int attempts;
    std::function<std::uint32_t(ScriptedFile&)> run;
  };

  static std::vector<Step> StepsOf(const CauseRow& row) {
    static std::string buffer(kSize, 'n');
    return {{Op::open, row.open, row.openAttempts,
             [](ScriptedFile& file) { return file.Abre(kPath, 'G', kSize, false, true); }},
            {Op::read, row.read, 1, [](ScriptedFile& file) { return file.LeRegistro(1, buffer.data()); }},
            {Op::seek, row.seek, 1,
             [](ScriptedFile& file) {
               std::uint32_t position = 0;
               return file.Posiciona('P', 1, position);
             }},
            {Op::write, row.write, row.writeAttempts,
             [](ScriptedFile& file) {
               std::uint32_t number = 1;
               return file.GravaRegistro(buffer.data(), number, kSize);
             }},
            {Op::write, row.write, row.writeAttempts,
             [](ScriptedFile& file) { return file.GravaInicio(buffer.data(), kSize); }},
            {Op::close, row.close, 1, [](ScriptedFile& file) { return file.Fecha(); }}};
  }

  // Runs a step against a file whose operation fails until the given attempt.
  static std::uint32_t Run(const Step& step, const CauseRow& row, int until, ScriptedFile* file) {
    if (step.op != Op::open) file->Abre(kPath, 'G', kSize, false, true);
    file->failing = step.op;
    file->cause = row.cause;
    file->until = until;
    return step.run(*file);
  }
};

TEST_F(ZNArqExCauses, BecomeNumbersAfterTheAttemptsOfTheirOperation) {
  WriteFile(File(), Record('a') + Record('b'));
  for (const CauseRow& row : kCauses) {
    for (const Step& step : StepsOf(row)) {
      SCOPED_TRACE(std::to_string(row.cause) + " in operation " + std::to_string(static_cast<int>(step.op)));
      ForgetFailedFile();
      {
        ScriptedFile file;
        EXPECT_EQ(Run(step, row, 1000, &file), step.expected);
        EXPECT_EQ(file.attempts, step.attempts);
        EXPECT_EQ(file.waited, step.op == Op::open ? static_cast<DWORD>(step.attempts - 1) : 0U);
        const bool unrecorded = step.op == Op::read && row.cause == CFileException::endOfFile;
        EXPECT_EQ(FailedFile(), unrecorded ? "-" : "Dados.dat");
      }
      // The last attempt counts like the first one.
      ScriptedFile file;
      const std::uint32_t number = Run(step, row, CZNArqEx::kTentativas - 1, &file);
      EXPECT_EQ(number, step.attempts == CZNArqEx::kTentativas ? 0U : step.expected);
    }
  }
}

TEST_F(ZNArqEx, ReadOnlyFilesAreTold) {
  WriteFile(File(), Record('a'));
  chmod(File().c_str(), 0444);
  EXPECT_EQ(ScriptedFile().Abre(kPath, 'G', kSize, false, true), 16081U);
  EXPECT_EQ(ScriptedFile().Abre(kPath, 'L', kSize, false, true), 0U);
}

TEST_F(ZNArqEx, WrongArgumentsTouchNothing) {
  char buffer[kSize];
  std::uint32_t number = 1;
  ScriptedFile file;
  EXPECT_EQ(file.Abre("", 'C', kSize, true, true), 16179U);
  EXPECT_EQ(file.LeRegistro(0, buffer), 16179U);
  EXPECT_EQ(file.Abre(kPath, 'X', kSize, true, true), 16179U);
  EXPECT_EQ(file.Abre(kPath, 'C', 32769, true, true), 16179U);
  EXPECT_EQ(file.Abre(kPath, 'C', 0, true, true), 16179U);
  EXPECT_EQ(file.Posiciona('X', 0, number), 16179U);
  EXPECT_EQ(ScriptedFile().GravaRegistro(buffer, number, kSize), 16179U);
  EXPECT_TRUE(support::Names(home_.Data()).empty());
  EXPECT_EQ(FailedFile(), "(no key)");
}

// The registry is no place for what a client makes up.
TEST_F(ZNArqEx, PathsThatNoFileCanHave) {
  const std::string longest = "D:\\.\\" + std::string(250, 'x') + ".DAT";
  ASSERT_EQ(longest.size(), 259U);
  ScriptedFile file;
  EXPECT_EQ(file.Abre(longest, 'L', kSize, false, true), 16055U);
  const std::string tooLong = "D:\\" + std::string(5'000'000, 'x');
  for (const bool create : {false, true}) {
    ForgetFailedFile();
    EXPECT_EQ(file.Abre(tooLong, 'G', kSize, create, false), 16063U);
    EXPECT_LT(fs::file_size(home_.Home() / "registry.reg"), 2000U);
    EXPECT_EQ(FailedFile(), std::string(259, 'x'));
  }
  EXPECT_EQ(file.CriaArquivo(tooLong, 'G', kSize), 16063U);
  EXPECT_TRUE(support::Names(home_.Data()).empty());
}

TEST_F(ZNArqEx, MissingFilesAreMadeOnceThroughTheControlFile) {
  ScriptedFile file;
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, false, true), 16055U);
  EXPECT_EQ(file.waited, 0U);
  EXPECT_EQ(FailedFile(), "Dados.dat");

  ASSERT_EQ(file.Abre(kPath, 'G', kSize, true, true), 0U);
  EXPECT_EQ(FailedFile(), "ZNCTLARQ.DAT");  // read to its end
  std::string control = Record('\0', 32) + "DADOS.DAT" + std::string(23, '\0');
  EXPECT_EQ(ReadFile(File("ZNCTLARQ.DAT")), control);
  EXPECT_EQ(ReadFile(File("DADOS.DAT")), Record('\0'));
  std::uint32_t number = 0;
  EXPECT_EQ(file.GravaRegistro(Record('a').data(), number, kSize), 0U);
  EXPECT_EQ(number, 1U);
  EXPECT_EQ(file.Fecha(), 0U);

  // Whoever took the file away has taken it away from all; another file of the folder is made.
  fs::remove(File("DADOS.DAT"));
  EXPECT_EQ(ScriptedFile().Abre(kPath, 'G', kSize, true, true), 16055U);
  EXPECT_EQ(FailedFile(), "DADOS.DAT");
  EXPECT_EQ(ScriptedFile().Abre("D:\\Another.dat", 'L', 1, true, true), 0U);
  EXPECT_EQ(ReadFile(File("ZNCTLARQ.DAT")), control + "ANOTHER.DAT" + std::string(21, '\0'));
  EXPECT_EQ(support::Names(home_.Data()), (std::vector<std::string>{"ANOTHER.DAT", "ZNCTLARQ.DAT"}));

  EXPECT_EQ(ScriptedFile().CriaArquivo("D:\\", 'G', kSize), 16021U);
  EXPECT_EQ(ScriptedFile().CriaArquivo("NoFolder.dat", 'G', kSize), 16021U);
  EXPECT_EQ(ScriptedFile().Abre("D:\\Missing\\Dados.dat", 'G', kSize, true, true), 16063U);
}

TEST_F(ZNArqEx, ControlFileInOtherHandsIsWaitedFor) {
  WriteFile(File("ZNCTLARQ.DAT"), Record('\0', 40));  // cut in its second record, which counts as one
  auto holder = std::make_unique<CFile>();
  ASSERT_TRUE(holder->Open("D:\\ZNCTLARQ.DAT", CFile::modeReadWrite | CFile::shareDenyWrite));
  ScriptedFile file;
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, true, true), 16110U);
  EXPECT_EQ(file.waited, 29U + 1000U + 29U);

  int opened = 0;
  file.beforeOpen = [&](const std::string&, UINT) {
    if (++opened == 1 + 30 + 1) holder.reset();
  };
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, true, true), 0U);
  EXPECT_EQ(ReadFile(File("ZNCTLARQ.DAT")), Record('\0', 64) + "DADOS.DAT" + std::string(23, '\0'));
}

// What a failed creation leaves behind must not be taken for the data file.
TEST_F(ZNArqEx, FailedEntryLeavesNothingOpen) {
  class FullControl final : public ScriptedFile {
   public:
    bool full = true;
    void Write(const void* buffer, UINT count) override {
      if (full && count == 32 && SeekToEnd() > 0) throw CFileException(CFileException::diskFull, 112);
      ScriptedFile::Write(buffer, count);
    }
  };
  FullControl file;
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, true, true), 16136U);
  EXPECT_EQ(FailedFile(), "ZNCTLARQ.DAT");
  CFile other;
  EXPECT_TRUE(other.Open("D:\\ZNCTLARQ.DAT", CFile::modeReadWrite | CFile::shareExclusive));
  other.Close();
  file.full = false;
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, true, true), 0U);
  std::uint32_t number = 0;
  EXPECT_EQ(file.GravaRegistro(Record('a').data(), number, kSize), 0U);
  EXPECT_EQ(file.Fecha(), 0U);
  EXPECT_EQ(ReadFile(File("DADOS.DAT")), Record('\0') + Record('a'));
}

TEST_F(ZNArqEx, ControlFilesBeyondAllMeasureAreRefused) {
  WriteFile(File("ZNCTLARQ.DAT"), "");
  for (const std::uintmax_t bytes : {std::uintmax_t{1} << 37, std::uintmax_t{32} << 20}) {
    fs::resize_file(File("ZNCTLARQ.DAT"), bytes);
    EXPECT_EQ(ScriptedFile().Abre(kPath, 'G', kSize, true, true), 16098U);
    EXPECT_EQ(support::Names(home_.Data()), std::vector<std::string>{"ZNCTLARQ.DAT"});
    EXPECT_EQ(fs::file_size(File("ZNCTLARQ.DAT")), bytes);
  }
}

// The station that has entered a file makes it a moment later.
TEST_F(ZNArqEx, FilesThatAreBeingMadeAreWaitedFor) {
  WriteFile(File("ZNCTLARQ.DAT"), Record('\0', 32) + "DADOS.DAT" + std::string(23, '\0'));
  ScriptedFile file;
  int opened = 0;
  file.beforeOpen = [&](const std::string& path, UINT) {
    if (path == "D:\\DADOS.DAT" && ++opened == 30) WriteFile(File("DADOS.DAT"), Record('\0') + Record('o'));
  };
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, true, true), 0U);
  std::uint32_t number = 0;
  EXPECT_EQ(file.GravaRegistro(Record('n').data(), number, kSize), 0U);
  EXPECT_EQ(number, 2U);
}

// Between finding a file missing and making it another station may make it, and write.
TEST_F(ZNArqEx, FilesThatAppearMeanwhileKeepTheirContent) {
  const std::string others = Record('\0') + Record('o');
  const std::string othersControl = Record('\0', 32) + "OTHER.DAT" + std::string(23, '\0');
  ScriptedFile file;
  file.beforeOpen = [&](const std::string& path, UINT flags) {
    if ((flags & CFile::modeCreate) == 0) return;
    if (path == "D:\\ZNCTLARQ.DAT") WriteFile(File("ZNCTLARQ.DAT"), othersControl);
    if (path == "D:\\DADOS.DAT") WriteFile(File("DADOS.DAT"), others);
  };
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, true, true), 0U);
  EXPECT_EQ(file.Fecha(), 0U);
  EXPECT_EQ(ReadFile(File("DADOS.DAT")), others);
  EXPECT_EQ(ReadFile(File("ZNCTLARQ.DAT")), othersControl + "DADOS.DAT" + std::string(23, '\0'));

  // Who asks for creation gets an empty file.
  EXPECT_EQ(file.Abre(kPath, 'C', kSize, true, true), 0U);
  EXPECT_EQ(ReadFile(File("DADOS.DAT")), "");
}

TEST_F(ZNArqEx, RecordsAtAndBehindTheEnd) {
  char record[kSize];
  WriteFile(File(), Record('a') + Record('b') + "torn");
  {
    ScriptedFile file;
    ASSERT_EQ(file.Abre(kPath, 'G', kSize, false, true), 0U);
    EXPECT_EQ(file.LeRegistro(2, record), 0U);
    EXPECT_EQ(std::string(record, kSize), "torn" + Record('\0', kSize - 4));
    EXPECT_EQ(file.LeRegistro(3, record), 16021U);
    EXPECT_EQ(file.LeRegistro(0xFFFFFFFF, record), 16021U);
    std::uint32_t number = 0;
    EXPECT_EQ(file.GravaRegistro(Record('n').data(), number, kSize), 0U);  // at the end, wherever that is
    EXPECT_EQ(number, 2U);
    number = 0;
    EXPECT_EQ(file.Posiciona('F', 7, number), 0U);
    EXPECT_EQ(number, 3 * kSize + 4);
    EXPECT_EQ(file.Posiciona('P', number, number), 16021U);
    EXPECT_EQ(number, 0U);
  }
  EXPECT_EQ(ReadFile(File()), Record('a') + Record('b') + "torn" + Record('n'));

  constexpr std::uint32_t kFar = 20'000'000;  // far behind 4 GiB
  fs::resize_file(File(), std::uintmax_t{kFar} * kSize);
  ScriptedFile file;
  ASSERT_EQ(file.Abre(kPath, 'G', kSize, false, true), 0U);
  std::uint32_t number = kFar - 1;
  EXPECT_EQ(file.GravaRegistro(Record('z').data(), number, kSize), 0U);
  EXPECT_EQ(file.LeRegistro(number, record), 0U);
  EXPECT_EQ(std::string(record, kSize), Record('z'));
  EXPECT_EQ(file.Posiciona('F', 0, number), 0U);
  EXPECT_EQ(number, 0xFFFFFFFFU);
}

TEST_F(ZNArqEx, CacheServesWholeRecordsForAMinute) {
  std::string content;
  for (char fill = 0; fill < 127; ++fill)
    content += Record(fill);
  WriteFile(File(), content);
  char record[kSize];
  ScriptedFile file;
  const auto reads = [&](std::uint32_t number) {
    const int before = file.reads;
    EXPECT_EQ(file.LeRegistro(number, record), 0U);
    EXPECT_EQ(std::string(record, kSize), Record(static_cast<char>(number)));
    return file.reads - before;
  };
  file.now = 0xFFFFFF00;  // the clock is about to wrap around
  ASSERT_EQ(file.Abre(kPath, 'G', kSize, false, true), 0U);
  EXPECT_EQ(reads(1), 1);
  EXPECT_EQ(reads(124), 0);  // 124 records fit
  EXPECT_EQ(reads(125), 1);
  EXPECT_EQ(reads(1), 1);
  EXPECT_EQ(file.Fecha(), 0U);
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, false, false), 0U);
  EXPECT_EQ(reads(2), 0);  // closed and named again, it still knows
  file.now += 60000;
  EXPECT_EQ(reads(2), 0);
  file.now += 1;
  EXPECT_EQ(reads(2), 1);

  EXPECT_EQ(file.Fecha(), 0U);

  // An append leaves the caches as they are; a rewriting by any object makes all of them invalid.
  ScriptedFile other;
  ASSERT_EQ(other.Abre(kPath, 'G', kSize, false, true), 0U);
  std::uint32_t number = 0;
  EXPECT_EQ(other.GravaRegistro(content.data(), number, kSize), 0U);
  EXPECT_EQ(reads(2), 0);
  EXPECT_EQ(other.GravaRegistro(content.data() + kSize, number = 1, kSize), 0U);
  ASSERT_EQ(other.Fecha(), 0U);
  EXPECT_EQ(reads(2), 1);
  ASSERT_EQ(file.Fecha(), 0U);

  // What was read of one file is no other file's.
  WriteFile(File("Other.dat"), Record('x'));
  EXPECT_EQ(file.LeRegistroArquivo("D:\\Other.dat", 0, record, kSize), 0U);
  EXPECT_EQ(std::string(record, kSize), Record('x'));
}

TEST_F(ZNArqEx, ErrorRecord) {
  ScriptedFile file;
  EXPECT_EQ(file.LimpaErro(), 0U);
  EXPECT_EQ(FailedFile(), "(no key)");
  EXPECT_EQ(file.Abre(kPath, 'L', kSize, false, true), 16055U);
  EXPECT_EQ(ScriptedFile().LimpaErro(), 0U);  // another file's
  EXPECT_EQ(FailedFile(), "Dados.dat");
  EXPECT_EQ(FailedFile("Usuario"), "0");
  EXPECT_EQ(file.Abre(kPath, 'C', kSize, false, true), 0U);  // making it takes it out
  EXPECT_EQ(FailedFile(), " ");
  EXPECT_EQ(file.Fecha(), 0U);

  WriteFile(home_.Home() / "registry.reg", "damaged");
  EXPECT_EQ(file.RegistraErro(), 16217U);
  EXPECT_EQ(file.Abre("D:\\None.dat", 'L', kSize, false, true), 16055U);
}

}  // namespace
