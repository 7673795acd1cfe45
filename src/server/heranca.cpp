#include "server/heranca.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

#include "platform/host/system.h"
#include "platform/host/whole_file.h"

namespace kestor {

namespace {

void RecusaImagensDeMemoria() {
  const rlimit nenhuma{};
  setrlimit(RLIMIT_CORE, &nenhuma);
  // The limit does not apply when the system passes dumps to a program. The filter keeps memory out of those.
  host::Descriptor filtro;
  if (host::Open(AT_FDCWD, "/proc/self/coredump_filter", O_WRONLY, &filtro) == 0) host::WriteAll(filtro.Number(), "0");
}

}  // namespace

void RecusaHeranca() {
  host::OccupyStandardDescriptors();
  syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
  umask(umask(S_IWOTH) | S_IWOTH);
  host::UnmaskOwner();
  RecusaImagensDeMemoria();
  // An inherited limit on file sizes makes a write fail instead of ending the process.
  std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace kestor
