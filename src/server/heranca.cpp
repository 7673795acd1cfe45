#include "server/heranca.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

#include "platform/host/descriptor.h"

namespace kestor {

namespace {

void RecusaImagensDeMemoria() {
  const rlimit nenhuma{};
  setrlimit(RLIMIT_CORE, &nenhuma);
  // The limit does not count where the system hands dumps to a program: those are to have no memory in them.
  const platform::Descriptor filtro(open("/proc/self/coredump_filter", O_WRONLY | O_CLOEXEC));
  constexpr std::string_view kNada = "0";
  [[maybe_unused]] const ssize_t escrito = write(filtro.Number(), kNada.data(), kNada.size());
}

// A standard descriptor that the starter closed would be given to the next socket or file, and messages of the runtime
// would end up there.
void OcupaDescritoresPadrao() {
  for (const int padrao : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(padrao, F_GETFD) < 0) open("/dev/null", O_RDWR);
  }
}

}  // namespace

void RecusaHeranca() {
  OcupaDescritoresPadrao();
  syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
  umask(umask(S_IWOTH) | S_IWOTH);
  RecusaImagensDeMemoria();
  // An inherited limit on file sizes is a failed write and not the process's end.
  std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace kestor
