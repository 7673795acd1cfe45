// The desktop platform's files: the file class with its failure causes, share modes that hold between all processes,
// names that ignore letter case, wild-card search and attributes.
//
// Paths are code page 1252 text with backslashes (a slash separates as well), and either start with a drive (D:) or a
// share (\\HOST\SHARE), which the home maps to a folder, or are relative to the current directory. `.` and `..` are
// worked out on the text; `..` never climbs above the drive, the share or the current directory. Blanks and dots at the
// end of a component do not count.
//
// Failures carry the platform's own error numbers (kernel.h):
//   a path that starts with a single backslash, or with a drive or share that the home lacks     3
//   a component with a control character or one of < > : " | ? *                123
//   a component of more than 255 characters or too long for the disk            206
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/kernel/kernel.h"

// A failed file operation.
class CFileException {
 public:
  enum Cause : int {
    none,
    generic,
    fileNotFound,
    badPath,
    tooManyOpenFiles,
    accessDenied,
    invalidFile,
    removeCurrentDir,
    directoryFull,
    badSeek,
    hardIO,
    sharingViolation,
    lockViolation,
    diskFull,
    endOfFile
  };

  CFileException() = default;
  CFileException(Cause cause, LONG osError, std::string fileName = {})
      : m_cause(cause), m_lOsError(osError), m_strFileName(std::move(fileName)) {}

  // The exception for a platform error number, with the cause that the file class gives it.
  static CFileException FromOsError(DWORD osError, std::string fileName = {});

  // The cause of a platform error number; `generic` for a number without one of its own.
  static Cause OsErrorToException(DWORD osError);

  Cause m_cause = none;
  LONG m_lOsError = 0;  // the platform's error number; 0 when the failure carries none
  std::string m_strFileName;
};

// Ways of opening that the desktop platform does not have, to go with its own flags.
namespace files {

inline constexpr UINT nameAsGiven = 0x10000;  // whole-file creation: an existing file takes the letter case of the path
inline constexpr UINT wholeUpdate = 0x20000;  // an existing file, read and written, denying both: whole or not at all
inline constexpr UINT mustBeNew = 0x40000;    // whole-file creation: a file that is there is not replaced
inline constexpr UINT noLink = 0x80000;       // in place: a symbolic link is refused, wherever it leads

}  // namespace files

// One open file. Neither copied nor moved; used by one thread at a time. The operations are virtual so that a test can
// put failures in front of them.
//
// What an open file excludes holds between all processes of this machine and, where the file system carries byte-range
// locks, between machines. An opener has an access (read, write) and a denial (none, write, both); Open succeeds
// exactly when its access meets no denial of a present opener and its denial meets no access of a present opener.
// An opener that dies holds nothing.
class CFile {
 public:
  enum OpenFlags : UINT {
    modeRead = 0x0000,
    modeWrite = 0x0001,
    modeReadWrite = 0x0002,
    shareCompat = 0x0000,     // denies both, like shareExclusive
    shareExclusive = 0x0010,  // denies both
    shareDenyWrite = 0x0020,
    shareDenyNone = 0x0040,
    modeCreate = 0x1000,      // a missing file is created; an existing one is truncated
    modeNoTruncate = 0x2000,  // with modeCreate: an existing file keeps its content
    typeBinary = 0x8000
  };

  enum SeekPosition : UINT { begin = 0, current = 1, end = 2 };

  CFile();
  virtual ~CFile();  // closes without committing: what was being created as a whole is dropped
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  // Opens `path`. FALSE on failure, with cause, error number and path in `*error` (unless null); the object then is not
  // open. A file opened with modeCreate, without modeNoTruncate, for writing and denying both is replaced as a whole:
  // until Close succeeds, the disk keeps what was there. The file keeps its letter case on disk, or takes that of the
  // path together with the content if nameAsGiven says so; a symbolic link keeps its name. With mustBeNew a file of the
  // name, in whatever letter case, is left alone: 80, from Close when it came to be after the opening. With wholeUpdate
  // what is written into an existing file is seen at Close or not at all; only the first writing costs a copy of it.
  // Any of these flags with another way of opening: 87.
  // A file with the read-only attribute (no write permission for anyone) is not opened for writing: 5.
  virtual BOOL Open(const char* path, UINT flags, CFileException* error = nullptr);

  // Reads up to `count` bytes at the position; fewer only at the end of the file. The number read.
  virtual UINT Read(void* buffer, UINT count);

  // Writes all of `count` bytes at the position; when that fails, the file is as long as it was before.
  virtual void Write(const void* buffer, UINT count);

  // Moves the position and gives it, counted from the start. A position before the start: badSeek, 131.
  virtual LONGLONG Seek(LONGLONG offset, UINT from);
  LONGLONG SeekToEnd() { return Seek(0, end); }
  void SeekToBegin() { Seek(0, begin); }

  virtual ULONGLONG GetLength() const;
  virtual void SetLength(ULONGLONG length);  // the position is then the new end

  // Writes what was written to the disk while others still have to wait.
  virtual void Flush();

  // Lets go of the file and writes what was written to the disk; what is created as a whole takes its name now, unless
  // a GroupedReplacements of the thread takes it over. When this throws, the file is no longer open, and what was to be
  // replaced as a whole is as it was (or as it was to become, if all that failed was the folder's last flushing).
  virtual void Close();

  // Lets go of the file without committing; never throws.
  virtual void Abort() noexcept;

  bool IsOpen() const { return m_open != nullptr; }

  // All of these throw CFileException, with the one of two paths that the failure is about. Removing and renaming need
  // that no opener has the file (32).
  static void Remove(const char* path);  // 5 for a read-only file or a folder
  // Gives a file another name, in its folder or another one of the same drive; 80 when that name is taken. Renaming a
  // file to its own path gives it that path's letter case; nothing is done (and an open file is no hindrance) when it
  // has it already.
  static void Rename(const char* oldPath, const char* newPath);

 private:
  struct OpenFile;
  std::unique_ptr<OpenFile> m_open;
};

// ---- Many files -----------------------------------------------------------------------------------------------------

namespace files {

class ReplacementGroup;

// While one lives, the files that its thread writes as a whole take their names together: the disk flushes a hundred of
// them nearly as fast as one. CFile::Close hands such a file over, complete under its hidden name and held as before,
// and succeeds although the disk still keeps what was there. To finish is to flush the contents, then to give each file
// its name, then to flush the folder once. Each file fails for itself.
//
// Files come in batches, so that the disk works while the next ones are made: Close ends a batch, and a thread of its
// own flushes its contents.
//
// The thread finds what it has written: before it opens, removes, renames or looks for a file of such a name, and
// before it searches a folder, the waiting files take their names. They also do so before an opening fails for want of
// descriptors or because a file is in use. One within another takes its place, once the files of that have their names.
// While one lives, a folder in which the thread looks time and again is the same for a tenth of a second at a time.
class GroupedReplacements {
 public:
  // What became of a file.
  struct Outcome {
    CFileException failure;    // with the cause `none` when the content is on the disk under its name
    std::string notKept = {};  // what the thread's keeper says in this case of the file that was there
  };

  GroupedReplacements();
  ~GroupedReplacements();  // finishes; the outcomes are lost
  GroupedReplacements(const GroupedReplacements&) = delete;
  GroupedReplacements& operator=(const GroupedReplacements&) = delete;

  // How many files have been handed over since the beginning.
  std::size_t Count() const;

  // True when it is time to close: more files in a batch would use too many descriptors and too much memory, and gain
  // nothing.
  bool IsFull() const;

  // Closes the batch, once the closed one before is finished.
  void Close() noexcept;

  // True when the thread has flushed the closed batch, or there is none that does.
  bool IsFlushed() const;

  // Finishes the closed batch. False when it was finished before.
  bool FinishClosed() noexcept;
  void Finish() noexcept;  // all files

  // Of the file that was handed over as the `number`-th, from 0, once it is finished.
  const Outcome& Of(std::size_t number) const;

  // Forgets the outcomes of the closed batch, which is finished.
  void ForgetClosed() noexcept;

 private:
  const std::unique_ptr<ReplacementGroup> m_group;
};

}  // namespace files

// ---- Many removals -------------------------------------------------------------------------------------------------

namespace files {

// While one lives, the removals that its thread makes in one folder (that of the first) are flushed together when it
// ends, or by the next file that takes its name in that folder. For work that is simply done again where a power
// failure has undone its end; whether that flushing succeeds is not told. One within another does nothing.
class GroupedRemovals {
 public:
  GroupedRemovals();
  ~GroupedRemovals();
  GroupedRemovals(const GroupedRemovals&) = delete;
  GroupedRemovals& operator=(const GroupedRemovals&) = delete;

 private:
  const bool m_outermost;
};

}  // namespace files

// ---- Several looks at one folder -----------------------------------------------------------------------------------

namespace files {

// For a call that looks several times at a folder that mostly stays as it is: it takes long to read a large one. While
// one lives, its thread reads such a folder once for all searches, and on a network file system for all names that it
// does not find as well. It reads it again once this process has changed it, and once its times say that another one
// has. One within another does nothing.
class OneReading {
 public:
  OneReading();
  ~OneReading();
  OneReading(const OneReading&) = delete;
  OneReading& operator=(const OneReading&) = delete;

 private:
  const bool m_outermost;
};

}  // namespace files

// ---- Attributes ----------------------------------------------------------------------------------------------------

inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

// Attributes of a file or folder; INVALID_FILE_ATTRIBUTES when there is none of that path.
DWORD GetFileAttributesA(const char* path);

namespace files {

// False for a folder on a network or FUSE file system, and for one that cannot be opened.
bool IsOnLocalDisk(const char* folder);

// The bytes of a file; nothing when there is none of that path.
std::optional<ULONGLONG> LengthOf(const char* path);

// Looks whether the file of a path is still what it was, for those who keep what they have read of it. Used by one
// thread at a time.
class ContentWatch {
 public:
  explicit ContentWatch(std::string path) : m_path(std::move(path)) {}

  // True at the first call; then, unless the path leads to the same file as at the last one and neither its content nor
  // its attributes have been changed since. Also true as long as the last change is so recent that another one could
  // bear the same time. Call it before reading.
  bool HasChanged();

 private:
  struct Times {
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool operator==(const Times&) const = default;
  };
  struct Stamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t length = 0;
    Times written;
    Times changed;
    bool operator==(const Stamp&) const = default;
  };

  const std::string m_path;
  std::optional<Stamp> m_last;  // of a file whose times vouch for it
};

}  // namespace files

// ---- Wild-card search ----------------------------------------------------------------------------------------------

struct _finddata_t {
  UINT attrib;      // FILE_ATTRIBUTE_DIRECTORY for a folder, otherwise 0: nothing that a look at each file would cost
  char name[1024];  // file name without folder, in its letter case on disk
};

// Searches a folder for the names that match the pattern in the last component of `pattern` (`*`: any run of
// characters, the empty one too; `?`: any one character; `.*` at the end: any extension or none; letter case aside) and
// delivers them sorted without regard to letter case. The handle of the search with the first match in `*found`; -1
// when nothing matches, the folder cannot be read or the path is refused. Folders match as well; hidden files of this
// system and names that code page 1252 cannot hold or the platform refuses never do, nor do the entries "." and "..".
// The whole search sees the folder as it was at the first call.
std::intptr_t _findfirst(const char* pattern, _finddata_t* found);
int _findnext(std::intptr_t handle, _finddata_t* found);  // 0, or -1 when there is no further match
int _findclose(std::intptr_t handle);                     // 0

// ---- Paths, for those who must hand a file to the host system -------------------------------------------------------

namespace files {

// The host system's (UTF-8) path of `path` with the letter case that is on the disk, for messages and tools; 0, or the
// platform's error number. Components that do not exist are taken as written.
DWORD HostPath(const char* path, std::string* host);

// Says in English for people what stands in the way of a file operation that has failed: who holds the file or what it
// is instead, whose it is and who may do what, which folder is missing or full, what is wrong with the name. `path` is
// that of the operation, `osError` the platform's number that it gave. It looks at the disk as it is now and changes
// nothing there. Where nothing that it sees leads to the number, it says what the number means and no more. UTF-8, a
// clause without a full stop, such as "/srv/reports/CT01Vendas.RXL belongs to maria with mode 0600, and the server,
// which runs as joao, may not read it; maria or root can change that". Never empty. From any thread. Throws
// std::bad_alloc. `care`: a thorough explanation also looks through the open files of all processes for the one that
// has the file in use, and through the folder for a link that leads nowhere, which takes some hundredths of a second.
enum class Care { brief, thorough };
std::string Explain(const std::string& path, DWORD osError, Care care = Care::thorough);

// 0 when the names in a folder can be read now, or the platform's error number.
DWORD FolderError(const char* path);

// What rights and names say of making a file of that path, or of replacing it, now: 0, or the platform's error number
// with which it would fail. It may fail for other reasons all the same, such as a full disk. Changes nothing.
DWORD ReplacementError(const char* path);

// The drive or share with which a path starts ("D:", "\\HOST\SHARE") and where the home maps it: a folder, or a link to
// one, that need not exist. False for a path that starts with neither.
bool MappingOf(std::string_view path, std::string* name, std::string* folder);

}  // namespace files
