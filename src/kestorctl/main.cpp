#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "command_line.h"
#include "marshal/marshal.h"

namespace {

// A standard descriptor that the caller closed would be given to the next socket or file, and what is meant for the
// caller would end up there. One that cannot be used the way it is meant makes that an ordinary error.
void OccupyStandardDescriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(standard, F_GETFD) < 0) open("/dev/null", standard == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardDescriptors();
  signal(SIGPIPE, SIG_IGN);  // a reader that went away is told like any other failed write
  marshal::RegisterInterfaces();
  return kestorctl::RunCommandLine(argc, argv);
}
