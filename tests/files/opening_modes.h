// The ways in which this system opens files, what the platform says about any two openers, and short ways to try.
#pragma once

#include <string>

#include "platform/files/files.h"

inline constexpr UINT kReadExclusive = CFile::modeRead | CFile::shareExclusive;
inline constexpr UINT kCreateExclusive = CFile::modeCreate | CFile::modeWrite | CFile::shareExclusive;
inline constexpr UINT kUpdateExclusive =
    CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite | CFile::shareExclusive;
inline constexpr UINT kReadShared = CFile::modeRead | CFile::shareDenyNone;
inline constexpr UINT kUpdateShared = CFile::modeReadWrite | CFile::shareDenyWrite;
inline constexpr UINT kCreateShared = CFile::modeCreate | kUpdateShared;
inline constexpr UINT kCreateNothingDenied =
    CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite | CFile::shareDenyNone;

inline bool Writes(UINT flags) {
  return (flags & (CFile::modeWrite | CFile::modeReadWrite)) != 0;
}

inline bool Denies(UINT holder, UINT opener) {
  const bool deniesWriting = (holder & CFile::shareDenyNone) == 0;
  const bool deniesReading = deniesWriting && (holder & CFile::shareDenyWrite) == 0;
  const bool reads = (opener & CFile::modeWrite) == 0;
  return (deniesReading && reads) || (deniesWriting && Writes(opener));
}

inline bool Compatible(UINT a, UINT b) {
  return !Denies(a, b) && !Denies(b, a);
}

// The platform's error number of what `action` throws, 0 when it throws nothing.
template <typename Action>
LONG ErrorOf(const Action& action) {
  try {
    action();
    return 0;
  } catch (const CFileException& failure) {
    return failure.m_lOsError;
  }
}

// Opens and gives the platform's error number, 0 for success.
inline LONG OpenError(CFile* file, const char* path, UINT flags) {
  CFileException failure;
  return file->Open(path, flags, &failure) ? 0 : failure.m_lOsError;
}

inline LONG OpenError(const char* path, UINT flags) {
  CFile file;
  return OpenError(&file, path, flags);
}

// The whole content of a file just opened.
inline std::string ContentOf(CFile* file) {
  std::string content(static_cast<std::size_t>(file->GetLength()), '\0');
  content.resize(file->Read(content.data(), static_cast<UINT>(content.size())));
  return content;
}
