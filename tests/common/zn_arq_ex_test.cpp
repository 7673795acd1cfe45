// The shared record files: failure numbers, retries, the control file, the cache, the error record.
#include "common/zn_arq_ex.h"

#include <array>
#include <gtest/gtest.h>
#include <set>

#include "platform/registry/registry.h"
#include "support/installation.h"

namespace fs = std::filesystem;
using kestor::CZNArqEx;
using support::ReadFile;
using support::WriteFile;

namespace {

constexpr std::uint32_t kSize = 264;
constexpr char kPath[] = "D:\\Dados.dat";
constexpr char kControl[] = "ZNCTLARQ.DAT";

std::string Record(char fill, std::size_t size = kSize) {
  return std::string(size, fill);
}

enum class Op { none, open, close, read, seek, write, writeStart };

// Fails one operation with one cause, from the first attempt to the `until`-th. Counts attempts and has its own clock.
class ScriptedFile : public CZNArqEx {
 public:
  Op failing = Op::none;
  CFileException::Cause cause = CFileException::none;
  int until = 1000;
  int attempts = 0;  // of the failing operation
  int reads = 0;
  DWORD waited = 0, now = 0;
  std::function<void(const std::string& path, UINT flags)> beforeOpen = [](const std::string&, UINT) {};

  std::uint32_t Abre(char mode, bool creates) { return CZNArqEx::Abre(kPath, mode, kSize, creates, true); }
  using CZNArqEx::Abre;

  // Appends a record and returns its number.
  std::uint32_t Appended(char fill) {
    std::uint32_t number = 0;
    EXPECT_EQ(GravaRegistro(Record(fill).data(), number, kSize), 0U);
    return number;
  }

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

class ZNArqEx : public testing::Test {
 protected:
  fs::path File(const char* name = "Dados.dat") const { return home_.Data() / name; }

  // Returns the content of a control file: a free record, then one for each name.
  static std::string Control(const std::vector<std::string>& names) {
    std::string control = Record('\0', 32);
    for (const std::string& name : names)
      control += name + Record('\0', 32 - name.size());
    return control;
  }

  // Returns a value of the error record.
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

std::uint32_t Do(Op op, ScriptedFile& file) {
  std::string buffer(kSize, 'n');
  std::uint32_t number = 1;
  if (op == Op::open) return file.Abre('G', false);
  if (op == Op::read) return file.LeRegistro(1, buffer.data());
  if (op == Op::seek) return file.Posiciona('P', 1, number);
  if (op == Op::write) return file.GravaRegistro(buffer.data(), number, kSize);
  if (op == Op::writeStart) return file.GravaInicio(buffer.data(), kSize);
  return file.Fecha();
}

TEST_F(ZNArqEx, CausesBecomeNumbersAfterTheAttemptsOfTheirOperation) {
  using Cause = CFileException;
  using Row = std::tuple<CFileException::Cause, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;
  // Opening and writing fail with these numbers at once, with all others after the last attempt.
  const std::set<std::uint32_t> atOnce = {16012, 16039, 16055, 16063, 16098, 16101};
  WriteFile(File(), Record('a') + Record('b'));
  for (const auto& [cause, open, close, read, write] :
       {Row(Cause::generic, 16144, 16144, 16144, 16144), Row(Cause::fileNotFound, 16055, 16144, 16144, 16055),
        Row(Cause::badPath, 16063, 16144, 16144, 16063), Row(Cause::tooManyOpenFiles, 16071, 16144, 16144, 16144),
        Row(Cause::accessDenied, 16080, 16080, 16080, 16080), Row(Cause::invalidFile, 16098, 16098, 16098, 16098),
        Row(Cause::removeCurrentDir, 16144, 16144, 16144, 16144), Row(Cause::directoryFull, 16101, 16144, 16144, 16144),
        Row(Cause::badSeek, 16144, 16144, 16012, 16012), Row(Cause::hardIO, 16144, 16039, 16039, 16039),
        Row(Cause::sharingViolation, 16110, 16110, 16110, 16110), Row(Cause::lockViolation, 16128, 16128, 16128, 16128),
        Row(Cause::diskFull, 16136, 16144, 16144, 16136), Row(Cause::endOfFile, 16144, 16144, 16021, 16144)}) {
    for (const auto& [op, number] :
         {std::pair(Op::open, open), std::pair(Op::close, close), std::pair(Op::read, read), std::pair(Op::seek, read),
          std::pair(Op::write, write), std::pair(Op::writeStart, write)}) {
      SCOPED_TRACE(std::to_string(cause) + " in operation " + std::to_string(static_cast<int>(op)));
      const bool repeats = (op == Op::open || op >= Op::write) && !atOnce.contains(number);
      // A failure of the last attempt counts like that of the first one.
      for (const int until : {1000, CZNArqEx::kTentativas - 1}) {
        ForgetFailedFile();
        ScriptedFile file;
        if (op != Op::open) Do(Op::open, file);
        file.failing = op == Op::writeStart ? Op::write : op;
        file.cause = cause;
        file.until = until;
        const std::uint32_t result = Do(op, file);
        EXPECT_EQ(result, repeats && until < 30 ? 0 : number);
        EXPECT_TRUE(result == 0 || file.Falha().m_cause == cause);
        EXPECT_EQ(file.attempts, repeats ? 30 : 1);
        EXPECT_EQ(file.waited, repeats && op == Op::open ? 29U : 0U);
        EXPECT_EQ(FailedFile(), op == Op::read && cause == CFileException::endOfFile ? "-" : "Dados.dat");
      }
    }
  }
}

TEST_F(ZNArqEx, WrongArgumentsTouchNothing) {
  char buffer[kSize];
  std::uint32_t number = 1;
  ScriptedFile file;
  for (const std::uint32_t result :
       {file.Abre("", 'C', kSize, true, true), file.LeRegistro(0, buffer), file.Abre('X', true),
        file.Abre(kPath, 'C', 32769, true, true), file.Abre(kPath, 'C', 0, true, true), file.Posiciona('X', 0, number),
        ScriptedFile().GravaRegistro(buffer, number, kSize)})
    EXPECT_EQ(result, 16179U);
  EXPECT_TRUE(support::Names(home_.Data()).empty());
  EXPECT_EQ(FailedFile(), "(no key)");
}

// Paths that a client makes up do not go into the registry.
TEST_F(ZNArqEx, PathsThatNoFileCanHave) {
  ScriptedFile file;
  EXPECT_EQ(file.Abre("D:\\.\\" + std::string(250, 'x') + ".DAT", 'L', kSize, false, true), 16055U);
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

// ---- The control file ----------------------------------------------------------------------------------------------

TEST_F(ZNArqEx, MissingFilesAreMadeWhereTheyCanBe) {
  EXPECT_EQ(ScriptedFile().CriaArquivo("D:\\", 'G', kSize), 16021U);
  EXPECT_EQ(ScriptedFile().Abre("D:\\Missing\\Dados.dat", 'G', kSize, true, true), 16063U);
  WriteFile(File(kControl), "");
  ScriptedFile file;
  EXPECT_EQ(file.Abre('G', true), 0U);
  EXPECT_EQ(ReadFile(File(kControl)), Control({"DADOS.DAT"})) << "left empty by a station that was killed";
  EXPECT_EQ(file.Appended('a'), 1U);
  const support::TempHome other("/proc");  // can be opened, but has no room for any name
  EXPECT_EQ(ScriptedFile().Abre('G', true), 16063U);
}

TEST_F(ZNArqEx, ControlFileInOtherHandsIsWaitedFor) {
  WriteFile(File(kControl), Record('\0', 40));  // cut in its second record, which counts as a record
  auto holder = std::make_unique<CFile>();
  ASSERT_TRUE(holder->Open("D:\\ZNCTLARQ.DAT", CFile::modeReadWrite | CFile::shareDenyWrite));
  ScriptedFile file;
  EXPECT_EQ(file.Abre('G', true), 16110U);
  EXPECT_EQ(file.Falha().m_strFileName, "D:\\ZNCTLARQ.DAT");
  EXPECT_EQ(file.waited, 29U + 1000U + 29U);
  int opened = 0;
  file.beforeOpen = [&](const std::string&, UINT) {
    if (++opened == 1 + 30 + 1) holder.reset();
  };
  EXPECT_EQ(file.Abre('G', true), 0U);
  EXPECT_EQ(ReadFile(File(kControl)), Control({"", "DADOS.DAT"}));
}

TEST_F(ZNArqEx, ControlFilesBeyondAllMeasureAreRefused) {
  WriteFile(File(kControl), "");
  for (const std::uintmax_t bytes : {std::uintmax_t{1} << 37, std::uintmax_t{32} << 20}) {
    fs::resize_file(File(kControl), bytes);
    EXPECT_EQ(ScriptedFile().Abre('G', true), 16098U);
    EXPECT_EQ(support::Names(home_.Data()), std::vector<std::string>{kControl});
    EXPECT_EQ(fs::file_size(File(kControl)), bytes);
  }
}

// A station enters a file in the control file a moment before it creates the file.
TEST_F(ZNArqEx, FilesThatAreBeingMadeAreWaitedFor) {
  WriteFile(File(kControl), Control({"DADOS.DAT"}));
  ScriptedFile file;
  int opened = 0;
  file.beforeOpen = [&](const std::string& path, UINT) {
    if (path == "D:\\DADOS.DAT" && ++opened == 30) WriteFile(File("DADOS.DAT"), Record('\0') + Record('o'));
  };
  EXPECT_EQ(file.Abre('G', true), 0U);
  EXPECT_EQ(file.Appended('n'), 2U);
}

// After this station finds a file missing, and before it creates the file, another station may create and write it.
TEST_F(ZNArqEx, FilesThatAppearMeanwhileKeepTheirContent) {
  const std::string others = Record('h') + Record('o');
  ScriptedFile file;
  file.beforeOpen = [&](const std::string& path, UINT flags) {
    if ((flags & CFile::modeCreate) == 0) return;
    if (path == "D:\\ZNCTLARQ.DAT") WriteFile(File(kControl), Control({"OTHER.DAT"}));
    if (path == "D:\\DADOS.DAT") WriteFile(File("DADOS.DAT"), others);
  };
  EXPECT_EQ(file.Abre('G', true), 0U);
  EXPECT_EQ(file.Fecha(), 0U);
  EXPECT_EQ(ReadFile(File("DADOS.DAT")), others);
  EXPECT_EQ(ReadFile(File(kControl)), Control({"OTHER.DAT", "DADOS.DAT"}));

  // Opening for creation empties it.
  EXPECT_EQ(file.Abre('C', true), 0U);
  EXPECT_EQ(ReadFile(File("DADOS.DAT")), "");
}

// ---- Records -------------------------------------------------------------------------------------------------------

TEST_F(ZNArqEx, RecordsAtTheEndAndBeyondIt) {
  char record[kSize];
  std::uint32_t number = 0;
  WriteFile(File(), Record('a') + Record('b') + "torn");
  ScriptedFile file;
  EXPECT_EQ(file.Abre('G', false), 0U);
  EXPECT_EQ(file.LeRegistro(2, record), 0U);
  EXPECT_EQ(std::string(record, kSize), "torn" + Record('\0', kSize - 4));
  EXPECT_EQ(file.LeRegistro(3, record), 16021U);
  EXPECT_EQ(file.LeRegistro(0xFFFFFFFF, record), 16021U);
  EXPECT_EQ(file.Appended('n'), 2U) << "at the end, wherever that is";
  EXPECT_EQ(file.Posiciona('F', 7, number), 0U);
  EXPECT_EQ(number, 3 * kSize + 4);
  EXPECT_EQ(file.Posiciona('P', number, number), 16021U);
  EXPECT_EQ(number, 0U);
  EXPECT_EQ(ReadFile(File()), Record('a') + Record('b') + "torn" + Record('n'));

  constexpr std::uint32_t kFar = 20'000'000;  // beyond 4 GiB
  fs::resize_file(File(), std::uintmax_t{kFar} * kSize);
  number = kFar - 1;
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
  EXPECT_EQ(file.Abre('G', false), 0U);
  EXPECT_EQ((std::array{reads(1), reads(124), reads(125), reads(1)}), (std::array{1, 0, 1, 1})) << "124 records fit";
  EXPECT_EQ(file.Fecha(), 0U);
  EXPECT_EQ(file.Abre(kPath, 'G', kSize, false, false), 0U);
  EXPECT_EQ(reads(2), 0) << "closed and named again, it still knows";
  file.now += 60000;
  EXPECT_EQ(reads(2), 0);
  file.now += 1;
  EXPECT_EQ(reads(2), 1);
  EXPECT_EQ(file.Fecha(), 0U);

  // An append leaves the caches as they are; a rewrite by any object invalidates all of them.
  ScriptedFile other;
  EXPECT_EQ(other.Abre('G', false), 0U);
  other.Appended('\0');
  EXPECT_EQ(reads(2), 0);
  std::uint32_t number = 1;
  EXPECT_EQ(other.GravaRegistro(Record(1).data(), number, kSize), 0U);
  EXPECT_EQ(other.Fecha(), 0U);
  EXPECT_EQ(reads(2), 1);
  EXPECT_EQ(file.Fecha(), 0U);

  // What was read from one file is not returned for another.
  WriteFile(File("Other.dat"), Record('x', 3 * kSize));
  EXPECT_EQ(file.LeRegistroArquivo("D:\\Other.dat", 2, record, kSize), 0U);
  EXPECT_EQ(std::string(record, kSize), Record('x'));
}

TEST_F(ZNArqEx, ErrorRecord) {
  ScriptedFile file;
  EXPECT_EQ(file.LimpaErro(), 0U);
  EXPECT_EQ(FailedFile(), "(no key)");
  EXPECT_EQ(file.Abre('L', false), 16055U);
  EXPECT_EQ(ScriptedFile().LimpaErro(), 0U);  // another file's
  EXPECT_EQ(FailedFile() + FailedFile("Usuario"), "Dados.dat0");
  EXPECT_EQ(file.Abre('C', false), 0U);  // creating the file removes its error record
  EXPECT_EQ(FailedFile(), " ");
  EXPECT_EQ(file.Fecha(), 0U);
  WriteFile(home_.Home() / "registry.reg", "damaged");
  EXPECT_EQ(file.RegistraErro(), 16217U);
  EXPECT_EQ(file.Abre("D:\\None.dat", 'L', kSize, false, true), 16055U);
  EXPECT_EQ(file.Falha().m_strFileName, "D:\\None.dat");
  char record[kSize];
  EXPECT_EQ(file.LeRegistroArquivo("D:\\Dados.dat", 9, record, kSize), 16021U);
  EXPECT_EQ(file.Falha().m_cause, CFileException::none) << "the end of the file is no failure of it";
}

}  // namespace
