// The ways in which this system opens files, and what the platform says about any two openers.
#pragma once

#include <cstdlib>

#include "platform/files/files.h"

inline constexpr UINT kReadExclusive = CFile::modeRead | CFile::shareExclusive;
inline constexpr UINT kCreateExclusive = CFile::modeCreate | CFile::modeWrite | CFile::shareExclusive;
inline constexpr UINT kUpdateExclusive =
    CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite | CFile::shareExclusive;
inline constexpr UINT kReadShared = CFile::modeRead | CFile::shareDenyNone;
inline constexpr UINT kUpdateShared = CFile::modeReadWrite | CFile::shareDenyWrite;
inline constexpr UINT kCreateShared = CFile::modeCreate | CFile::modeReadWrite | CFile::shareDenyWrite;
inline constexpr UINT kCreateNothingDenied =
    CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite | CFile::shareDenyNone;

inline bool Reads(UINT flags) {
  return (flags & CFile::modeWrite) == 0;
}
inline bool Writes(UINT flags) {
  return (flags & (CFile::modeWrite | CFile::modeReadWrite)) != 0;
}
inline bool DeniesReading(UINT flags) {
  return (flags & (CFile::shareDenyWrite | CFile::shareDenyNone)) == 0;
}
inline bool DeniesWriting(UINT flags) {
  return (flags & CFile::shareDenyNone) == 0;
}

inline bool Denies(UINT holder, UINT opener) {
  return (DeniesReading(holder) && Reads(opener)) || (DeniesWriting(holder) && Writes(opener));
}

inline bool Compatible(UINT a, UINT b) {
  return !Denies(a, b) && !Denies(b, a);
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

// Rounds of a test that looks for rare events: `few` normally, `many` in the long form of the tests.
inline int Rounds(int few, int many) {
  return getenv("KESTOR_LONG_TESTS") != nullptr ? many : few;
}
