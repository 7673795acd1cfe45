#include "files.h"

CFileException::Cause CFileException::OsErrorToException(DWORD osError) {
  constexpr DWORD kErrorDirectoryFull = 82;
  switch (osError) {
    case ERROR_SUCCESS:
      return none;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_NO_MORE_FILES:
      return fileNotFound;
    case ERROR_PATH_NOT_FOUND:
    case ERROR_NOT_SAME_DEVICE:
    case ERROR_INVALID_NAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return badPath;
    case ERROR_TOO_MANY_OPEN_FILES:
    case ERROR_SHARING_BUFFER_EXCEEDED:
      return tooManyOpenFiles;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_FILE_EXISTS:
      return accessDenied;
    case ERROR_INVALID_HANDLE:
    case ERROR_BAD_FORMAT:
      return invalidFile;
    case ERROR_DIR_NOT_EMPTY:
      return removeCurrentDir;
    case kErrorDirectoryFull:
      return directoryFull;
    case ERROR_SEEK:
    case ERROR_NEGATIVE_SEEK:
      return badSeek;
    case ERROR_IO_DEVICE:
      return hardIO;
    case ERROR_SHARING_VIOLATION:
      return sharingViolation;
    case ERROR_LOCK_VIOLATION:
      return lockViolation;
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL:
      return diskFull;
    case ERROR_HANDLE_EOF:
      return endOfFile;
    default:
      return generic;
  }
}

CFileException CFileException::FromOsError(DWORD osError, std::string fileName) {
  return {OsErrorToException(osError), static_cast<LONG>(osError), std::move(fileName)};
}
