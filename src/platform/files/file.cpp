#include <algorithm>
#include <limits>
#include <memory>
#include <optional>

#include "files.h"
#include "keeping.h"
#include "machines.h"
#include "opening.h"
#include "platform/kernel/host_error.h"
#include "platform/text/text.h"
#include "replacement.h"
#include "replacement_group.h"

using files::Denial;
using files::OpenMode;

struct CFile::OpenFile {
  std::string name;  // the path as given, for failures
  bool reads = false;
  bool writes = false;
  host::Descriptor own;  // a file that is written in place or only read
  files::FolderHandle createdIn;
  std::unique_ptr<files::Replacement> replacement;  // a file that is written as a whole
  LONGLONG position = 0;
  off_t lengthAtOpening = std::numeric_limits<off_t>::max();  // unknown
  bool keepsLength = false;                                   // no opener can change the length
  bool written = false;
  DWORD writeError = ERROR_SUCCESS;  // of the last write

  const host::Descriptor& File() const { return replacement != nullptr ? replacement->File() : own; }

  [[noreturn]] void Fail(DWORD error) const { throw CFileException::FromOsError(error, name); }
  void Check(int hostError) const {
    if (hostError != 0) Fail(platform::OsError(hostError));
  }

  std::string PlainName() const { return text::ToUtf8(name.substr(name.find_last_of("\\/:") + 1)); }

  // True when the next write is the first change of a content that existed and can be read.
  bool IsFirstInPlace() const { return replacement == nullptr && !createdIn && !written && reads; }

  DWORD Begin(const files::PathName& path, const OpenMode& mode, UINT flags);
  void PrepareToWrite();
  DWORD Finish();
};

namespace {

constexpr UINT kAccessFlags = CFile::modeWrite | CFile::modeReadWrite;
constexpr UINT kShareFlags = CFile::shareExclusive | CFile::shareDenyWrite | CFile::shareDenyNone;
constexpr UINT kKnownFlags = kAccessFlags | kShareFlags | CFile::modeCreate | CFile::modeNoTruncate |
                             CFile::typeBinary | files::nameAsGiven | files::wholeUpdate | files::mustBeNew |
                             files::noLink;

std::optional<OpenMode> ModeOf(UINT flags) {
  OpenMode mode;
  if ((flags & ~kKnownFlags) != 0 || (flags & kAccessFlags) == kAccessFlags) return std::nullopt;
  mode.share.writes = (flags & kAccessFlags) != 0;
  mode.share.reads = (flags & CFile::modeWrite) == 0;
  switch (flags & kShareFlags) {
    case CFile::shareCompat:
    case CFile::shareExclusive:
      mode.share.denies = Denial::both;
      break;
    case CFile::shareDenyWrite:
      mode.share.denies = Denial::write;
      break;
    case CFile::shareDenyNone:
      mode.share.denies = Denial::none;
      break;
    default:
      return std::nullopt;
  }
  mode.create = (flags & CFile::modeCreate) != 0;
  mode.truncate = mode.create && (flags & CFile::modeNoTruncate) == 0;
  mode.content = !mode.share.writes && !mode.create;
  if ((flags & (files::nameAsGiven | files::mustBeNew)) != 0 && !mode.ReplacesWhole()) return std::nullopt;
  const bool changesAlone = mode.share.reads && mode.share.writes && mode.share.denies == Denial::both;
  mode.noLink = (flags & files::noLink) != 0;
  if (mode.noLink && (mode.ReplacesWhole() || (flags & files::wholeUpdate) != 0)) return std::nullopt;
  if ((flags & files::wholeUpdate) != 0 && (mode.create || !changesAlone)) return std::nullopt;
  return mode;
}

}  // namespace

CFile::CFile() = default;

CFile::~CFile() = default;

BOOL CFile::Open(const char* path, UINT flags, CFileException* error) {
  Abort();
  auto open = std::make_unique<OpenFile>();
  open->name = files::TextOf(path);
  const std::optional<OpenMode> mode = ModeOf(flags);
  files::PathName translated;
  DWORD code = mode ? files::TranslateFilePath(open->name.c_str(), &translated) : ERROR_INVALID_PARAMETER;
  if (code == ERROR_SUCCESS) {
    files::FinishGroupWith(translated);
    code = open->Begin(translated, *mode, flags);
    // This thread's own waiting files may be in the way.
    const bool mayBeOwn = code == ERROR_TOO_MANY_OPEN_FILES || code == ERROR_SHARING_VIOLATION;
    if (mayBeOwn && files::FinishGroup()) code = open->Begin(translated, *mode, flags);
  }
  if (code == ERROR_SUCCESS) {
    m_open = std::move(open);
    return TRUE;
  }
  if (error != nullptr) *error = CFileException::FromOsError(code, std::move(open->name));
  return FALSE;
}

UINT CFile::Read(void* buffer, UINT count) {
  if (!m_open) throw CFileException::FromOsError(ERROR_INVALID_HANDLE);
  if (!m_open->reads) m_open->Fail(ERROR_ACCESS_DENIED);
  UINT total = 0;
  while (total < count) {
    std::size_t read = 0;
    m_open->Check(
        host::ReadAt(m_open->File(), static_cast<char*>(buffer) + total, count - total, m_open->position, &read));
    total += static_cast<UINT>(read);
    m_open->position += static_cast<LONGLONG>(read);
    // A short read may also mean that the device fails after it: read on, unless the file already ended here when it
    // was opened.
    if (read == 0 || m_open->position >= m_open->lengthAtOpening) break;
  }
  return total;
}

void CFile::Write(const void* buffer, UINT count) {
  if (!m_open) throw CFileException::FromOsError(ERROR_INVALID_HANDLE);
  m_open->PrepareToWrite();
  const auto lengthBefore = static_cast<LONGLONG>(GetLength());
  UINT total = 0;
  while (total < count) {
    std::size_t written = 0;
    m_open->writeError = platform::OsError(host::WriteAt(m_open->File(), static_cast<const char*>(buffer) + total,
                                                         count - total, m_open->position + total, &written));
    if (m_open->writeError != ERROR_SUCCESS) {
      // A full disk must not leave part of a record at the end, to which the next one would be appended.
      if (m_open->position + total > lengthBefore) host::Truncate(m_open->File(), lengthBefore);
      m_open->Fail(m_open->writeError);
    }
    total += static_cast<UINT>(written);
  }
  m_open->position += total;
}

LONGLONG CFile::Seek(LONGLONG offset, UINT from) {
  if (!m_open) throw CFileException::FromOsError(ERROR_INVALID_HANDLE);
  LONGLONG origin = 0;
  if (from == current) {
    origin = m_open->position;
  } else if (from == end) {
    origin = static_cast<LONGLONG>(GetLength());
  } else if (from != begin) {
    m_open->Fail(ERROR_INVALID_PARAMETER);
  }
  LONGLONG position = 0;
  if (__builtin_add_overflow(origin, offset, &position) || position < 0) m_open->Fail(ERROR_NEGATIVE_SEEK);
  m_open->position = position;
  return position;
}

ULONGLONG CFile::GetLength() const {
  if (!m_open) throw CFileException::FromOsError(ERROR_INVALID_HANDLE);
  if (m_open->keepsLength) return static_cast<ULONGLONG>(m_open->lengthAtOpening);
  off_t length = 0;
  m_open->Check(host::Length(m_open->File(), &length));
  return static_cast<ULONGLONG>(length);
}

void CFile::SetLength(ULONGLONG length) {
  if (!m_open) throw CFileException::FromOsError(ERROR_INVALID_HANDLE);
  m_open->PrepareToWrite();
  const LONGLONG position = Seek(static_cast<LONGLONG>(length), begin);
  m_open->writeError = platform::OsError(host::Truncate(m_open->File(), position));
  if (m_open->writeError != ERROR_SUCCESS) m_open->Fail(m_open->writeError);
}

void CFile::Flush() {
  if (!m_open) throw CFileException::FromOsError(ERROR_INVALID_HANDLE);
  m_open->Check(host::SyncData(m_open->File()));
}

void CFile::Close() {
  if (!m_open) return;
  const std::unique_ptr<OpenFile> open = std::move(m_open);
  if (const DWORD error = open->Finish(); error != ERROR_SUCCESS) open->Fail(error);
}

void CFile::Abort() noexcept {
  m_open.reset();
}

DWORD CFile::OpenFile::Begin(const files::PathName& path, const OpenMode& mode, UINT flags) {
  DWORD error = ERROR_SUCCESS;
  reads = mode.share.reads;
  writes = mode.share.writes;
  if (mode.ReplacesWhole() || (flags & files::wholeUpdate) != 0) {
    replacement = std::make_unique<files::Replacement>();
    error = replacement->Begin(path, {.nameAsGiven = (flags & files::nameAsGiven) != 0,
                                      .mustBeNew = (flags & files::mustBeNew) != 0,
                                      .keepsContent = (flags & files::wholeUpdate) != 0});
    written = mode.create;
  } else if (mode.create) {
    error = files::OpenOrCreate(path, mode, &own, &createdIn);
    if (files::Keeper* const keeper = files::Keeping::Current(); keeper != nullptr && createdIn)
      keeper->SeeNew(PlainName(), own, false);
    written = mode.truncate;
  } else {
    error = files::OpenExisting(path, mode, &own, &lengthAtOpening);
    keepsLength = !writes && mode.share.denies != Denial::none;
  }
  return error;
}

void CFile::OpenFile::PrepareToWrite() {
  if (!writes) Fail(ERROR_ACCESS_DENIED);
  writeError = replacement != nullptr ? replacement->PrepareToWrite() : DWORD{ERROR_SUCCESS};
  if (writeError != ERROR_SUCCESS) Fail(writeError);
  if (files::Keeper* const keeper = files::Keeping::Current(); keeper != nullptr && IsFirstInPlace()) {
    keeper->Keep({.way = files::LeavingFile::Way::rewritten, .name = PlainName(), .file = own});
  }
  written = true;
}

DWORD CFile::OpenFile::Finish() {
  if (writeError != ERROR_SUCCESS && replacement != nullptr) return writeError;
  if (replacement != nullptr && !written) return ERROR_SUCCESS;
  if (files::ReplacementGroup* const group = files::ReplacementGroup::Current(); group != nullptr && replacement) {
    group->Add(replacement, name);
    return ERROR_SUCCESS;
  }
  if (replacement != nullptr) return replacement->Commit();
  if (!written && !createdIn) return platform::OsError(own.Close());
  // Other processes on this machine need not wait for the disk: what they write on top is flushed together with it. If
  // the unlocking fails, closing the file lets them in. Processes on other machines read only what has been flushed.
  struct stat status = {};
  if (host::Stat(own, &status) == 0 && !files::IsBetweenMachines(own, status)) files::ReleaseShareLock(own);
  DWORD error = ERROR_SUCCESS;
  if (createdIn) {
    error = platform::OsError(host::Sync(own));
    if (error == ERROR_SUCCESS) error = platform::OsError(host::Sync(createdIn));
  } else {
    error = platform::OsError(host::SyncData(own));
  }
  const DWORD closeError = platform::OsError(own.Close());
  return error != ERROR_SUCCESS ? error : closeError;
}
