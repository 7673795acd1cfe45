#include "platform/kernel/host_error.h"

#include <cerrno>

namespace platform {

DWORD OsError(int hostError) {
  switch (hostError) {
    case 0:
      return ERROR_SUCCESS;
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
    case ELOOP:
      return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EISDIR:
    case ENXIO:  // what opening a socket or a pipe without a reader gives
    case ENODEV:
      return ERROR_ACCESS_DENIED;
    case EBADF:
      return ERROR_INVALID_HANDLE;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case EXDEV:
      return ERROR_NOT_SAME_DEVICE;
    case EROFS:
      return ERROR_WRITE_PROTECT;
    case ESPIPE:
      return ERROR_SEEK;
    case EAGAIN:
    case ETXTBSY:
    case EBUSY:
      return ERROR_SHARING_VIOLATION;
    case EDEADLK:
      return ERROR_LOCK_VIOLATION;
    case ENOLCK:
      return ERROR_SHARING_BUFFER_EXCEEDED;
    case EEXIST:
      return ERROR_FILE_EXISTS;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return ERROR_DISK_FULL;
    case ENOTEMPTY:
      return ERROR_DIR_NOT_EMPTY;
    case ENAMETOOLONG:
      return ERROR_FILENAME_EXCED_RANGE;
    case EIO:
      return ERROR_IO_DEVICE;
    default:
      return ERROR_GEN_FAILURE;
  }
}

}  // namespace platform
