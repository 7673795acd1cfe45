// The desktop platform's files: the file class with its failure causes, share modes that hold between all processes,
// case-insensitive names, wild-card search and attributes.
//
// Paths are code page 1252 text with backslashes (slashes also separate). A path starts with a drive (D:) or a share
// (\\HOST\SHARE), which the home maps to a folder, or is relative to the current directory. `.` and `..` are resolved
// in the text; `..` never climbs above the drive, the share or the current directory. Blanks and dots at the end of a
// component are ignored.
//
// Failures carry the platform's own error numbers (kernel.h):
//   a path that starts with a single backslash, or with a drive or share that the home lacks     3
//   a component with a control character or one of < > : " | ? *, or a device's name           123
//   a component of more than 255 characters or too long for the disk                           206
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

  // Returns the exception for a platform error number, with the cause that the file class assigns to it.
  static CFileException FromOsError(DWORD osError, std::string fileName = {});

  // Returns the cause of a platform error number; `generic` when the number has none of its own.
  static Cause OsErrorToException(DWORD osError);

  Cause m_cause = none;
  LONG m_lOsError = 0;  // the platform's error number; 0 when the failure carries none
  std::string m_strFileName;
};

// Open flags that the desktop platform does not have, for use together with its own.
namespace files {

inline constexpr UINT nameAsGiven = 0x10000;  // whole-file creation: an existing file takes the letter case of the path
inline constexpr UINT wholeUpdate = 0x20000;  // read-write, denying both: an existing file is updated as a whole
inline constexpr UINT mustBeNew = 0x40000;    // whole-file creation: an existing file is not replaced
inline constexpr UINT noLink = 0x80000;       // opening in place: a symbolic link is refused, wherever it leads

}  // namespace files

// One open file. Cannot be copied or moved; used by one thread at a time. The operations are virtual so that a test can
// inject failures.
//
// Share modes hold between all processes of this machine and, where the file system carries byte-range locks, between
// machines. Each opener has an access (read, write) and a denial (none, write, both). Open succeeds if and only if no
// current opener denies its access and it denies no current opener's access. A process that dies holds no lock.
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
    modeCreate = 0x1000,      // creates a missing file; truncates an existing one
    modeNoTruncate = 0x2000,  // with modeCreate: an existing file keeps its content
    typeBinary = 0x8000
  };

  enum SeekPosition : UINT { begin = 0, current = 1, end = 2 };

  CFile();
  virtual ~CFile();  // closes without committing: a file written as a whole is discarded
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  // Opens `path`. Returns FALSE on failure, with cause, error number and path in `*error` (unless null); the object is
  // then not open. A file opened with modeCreate, without modeNoTruncate, for writing and denying both is replaced as a
  // whole: until Close succeeds, the disk keeps the old file. The file keeps its letter case on disk; with nameAsGiven
  // it takes the letter case of the path together with the content. A symbolic link keeps its name. With mustBeNew an
  // existing file of the name, in any letter case, is left alone: 80, from Close if the file appears after the opening.
  // With wholeUpdate, changes to an existing file become visible at Close or not at all; only the first write copies
  // the file. Any of these flags with another kind of opening: 87.
  // A file with the read-only attribute (no write permission for anyone) cannot be opened for writing: 5.
  virtual BOOL Open(const char* path, UINT flags, CFileException* error = nullptr);

  // Reads up to `count` bytes at the position and returns the number read: fewer only at the end of the file.
  virtual UINT Read(void* buffer, UINT count);

  // Writes all `count` bytes at the position. A failure leaves the file as long as it was before.
  virtual void Write(const void* buffer, UINT count);

  // Moves the position and returns it, counted from the start. A position before the start: badSeek, 131.
  virtual LONGLONG Seek(LONGLONG offset, UINT from);
  LONGLONG SeekToEnd() { return Seek(0, end); }
  void SeekToBegin() { Seek(0, begin); }

  virtual ULONGLONG GetLength() const;
  virtual void SetLength(ULONGLONG length);  // also moves the position to the new end

  // Flushes the written data to the disk without releasing the locks.
  virtual void Flush();

  // Flushes the written data to the disk and closes the file. A file written as a whole takes its name now, unless a
  // GroupedReplacements of the thread takes it over. If Close throws, the file is no longer open, and a file that was
  // to be replaced as a whole is unchanged (or replaced, if only the final flush of the folder failed).
  virtual void Close();

  // Closes the file without committing. Never throws.
  virtual void Abort() noexcept;

  bool IsOpen() const { return m_open != nullptr; }

  // Remove and Rename throw CFileException with whichever path the failure is about. Both fail with 32 while any opener
  // has the file.
  static void Remove(const char* path);  // 5 for a read-only file or a folder
  // Renames a file within its folder or into another folder of the same drive; 80 when the new name is taken. Renaming
  // a file to its own path changes its letter case to that of the path; if it has that already, nothing happens, and
  // the file may be open.
  static void Rename(const char* oldPath, const char* newPath);

 private:
  struct OpenFile;
  std::unique_ptr<OpenFile> m_open;
};

// ---- Many files -----------------------------------------------------------------------------------------------------

namespace files {

class ReplacementGroup;

// While an object lives, the files that its thread writes as a whole take their names together: the disk flushes a
// hundred of them nearly as fast as one. CFile::Close hands such a file over, complete under its hidden name and still
// locked, and succeeds although the disk still keeps the old file. Finishing flushes the contents, then gives each file
// its name, then flushes the folder once. Each file fails on its own.
//
// Files come in batches, so that the disk works while the next files are made: Close ends a batch, and a separate
// thread flushes its contents.
//
// The thread sees its own writes: the waiting files take their names before it opens, removes, renames or looks up a
// file of such a name, and before it searches a folder. They also do so before an opening fails for lack of descriptors
// or because a file is in use. A nested object first finishes the files of the outer one, and then takes its place
// until it is destroyed. While an object lives, the thread looks up the path of a folder that it uses repeatedly only
// every tenth of a second.
class GroupedReplacements {
 public:
  // The result for one file.
  struct Outcome {
    CFileException failure;    // with the cause `none` when the content is on the disk under its name
    std::string notKept = {};  // why the thread's keeper did not keep the old file, if so
  };

  GroupedReplacements();
  ~GroupedReplacements();  // finishes all files; their outcomes are lost
  GroupedReplacements(const GroupedReplacements&) = delete;
  GroupedReplacements& operator=(const GroupedReplacements&) = delete;

  // Returns how many files have been handed over so far.
  std::size_t Count() const;

  // True when the batch should be closed: more files would use too many descriptors and too much memory, and gain
  // nothing.
  bool IsFull() const;

  // Finishes the batch closed before, then closes the current one.
  void Close() noexcept;

  // True when the separate thread has flushed the closed batch, or when there is no such thread.
  bool IsFlushed() const;

  // Finishes the closed batch. Returns false when it was finished before.
  bool FinishClosed() noexcept;
  void Finish() noexcept;  // all files

  // Returns the outcome of the `number`-th file handed over, from 0, which must be finished and not forgotten.
  const Outcome& Of(std::size_t number) const;

  // Finishes the closed batch and forgets its outcomes.
  void ForgetClosed() noexcept;

 private:
  const std::unique_ptr<ReplacementGroup> m_group;
};

}  // namespace files

// ---- Many removals -------------------------------------------------------------------------------------------------

namespace files {

// While an object lives, its thread's removals in one folder (that of the first) are flushed together: when the object
// is destroyed, or by the next file that takes its name in that folder. For work that can be repeated if a power
// failure undoes the last removals; a failed flush is not reported. A nested object does nothing.
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

// ---- Repeated reading of one folder --------------------------------------------------------------------------------

namespace files {

// For calls that look at a mostly unchanging folder several times, because reading a large folder takes long. While an
// object lives, its thread reads such a folder once for all searches and, on a network file system, also for all names
// that do not exist as written. It reads the folder again after this process has changed it, or when the folder's times
// show that another process has. A nested object does nothing.
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

// Returns the attributes of a file or folder; INVALID_FILE_ATTRIBUTES when the path leads to neither.
DWORD GetFileAttributesA(const char* path);

namespace files {

// False for a folder on a network or FUSE file system, and for one that cannot be opened.
bool IsOnLocalDisk(const char* folder);

// Returns the size of a file in bytes; nothing when the path leads to no file.
std::optional<ULONGLONG> LengthOf(const char* path);

// Detects changes of the file of a path, for callers that cache what they read from it. Used by one thread at a time.
class ContentWatch {
 public:
  explicit ContentWatch(std::string path) : m_path(std::move(path)) {}

  // True at the first call. After that, false only if the path still leads to the same file and neither its content nor
  // its attributes have changed since the last call. Also true while the last change is so recent that another one
  // could have the same time. Call it before reading.
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
  std::optional<Stamp> m_last;  // only while the file's times can be relied on
};

}  // namespace files

// ---- Wild-card search ----------------------------------------------------------------------------------------------

struct _finddata_t {
  UINT attrib;      // FILE_ATTRIBUTE_DIRECTORY for a folder, otherwise 0: nothing that takes a stat of each file
  char name[1024];  // file name without folder, in its letter case on disk
};

// Searches a folder for the names that match the last component of `pattern`, ignoring letter case (`*`: any run of
// characters, even an empty one; `?`: any one character; `.*` at the end: any extension or none), and delivers them
// sorted without regard to letter case. Returns a search handle, with the first match in `*found`, or -1 when nothing
// matches, the folder cannot be read or the path is refused. Folders match as well. Hidden files of this system, names
// that code page 1252 cannot represent or the platform refuses, and the entries "." and ".." never match. The whole
// search sees the folder as it was at the first call.
std::intptr_t _findfirst(const char* pattern, _finddata_t* found);
int _findnext(std::intptr_t handle, _finddata_t* found);  // 0, or -1 when there is no further match
int _findclose(std::intptr_t handle);                     // 0, or -1 for the handle -1

// ---- Host paths and explanations ------------------------------------------------------------------------------------

namespace files {

// Puts the host system's path (UTF-8) of `path` into `*host`, in the letter case on disk, for messages and tools.
// Components that do not exist stay as written. Returns 0 or the platform's error number.
DWORD HostPath(const char* path, std::string* host);

// Says in English, for people, why a file operation failed: which process holds the file, what the path leads to
// instead of a file, who owns the file and with which permissions, which folder is missing, which disk is full, what is
// wrong with the name. `path` is the path of the operation, `osError` the platform's number that it gave. Looks at the
// disk as it is now and changes nothing there. If nothing that it finds accounts for the number, it says only what the
// number means. Returns a UTF-8 clause without a full stop, such as "/srv/reports/CT01Vendas.RXL belongs to maria with
// mode 0600, and the server, which runs as joao, may not read it; maria or root can change that". Never empty. May be
// called from any thread. Throws std::bad_alloc. A thorough explanation also searches the open files of all processes
// for the one that has the file in use, and the folder for a dangling link, which takes some hundredths of a second.
enum class Care { brief, thorough };
std::string Explain(const std::string& path, DWORD osError, Care care = Care::thorough);

// Returns 0 when the names in a folder can be read now, or the platform's error number.
DWORD FolderError(const char* path);

// Checks permissions and names for creating or replacing the file of a path now. Returns 0, or the platform's error
// number with which that would fail. It may still fail for other reasons, such as a full disk. Changes nothing.
DWORD ReplacementError(const char* path);

// Gives the drive or share that a path starts with ("D:", "\\HOST\SHARE") and the folder, or link to a folder, that the
// home maps it to, which need not exist. Returns false for a path that starts with neither.
bool MappingOf(std::string_view path, std::string* name, std::string* folder);

}  // namespace files
