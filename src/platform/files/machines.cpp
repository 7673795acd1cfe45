#include "machines.h"

#include <sys/sysmacros.h>

namespace files {

bool IsBetweenMachines(const host::Descriptor& file, const struct stat& status) {
  return major(status.st_dev) == 0 && !host::IsLocal(file);
}

DWORD CatchUpWithMachines(const host::Descriptor& file, struct stat* status) {
  if (!IsBetweenMachines(file, *status)) return ERROR_SUCCESS;
  host::ForgetContent(file);
  // On an open file, ENOENT and ESTALE both mean that another machine has removed it.
  const int error = host::StatNow(file, status);
  return error == ENOENT ? kStartAnew : OpeningError(error);
}

}  // namespace files
