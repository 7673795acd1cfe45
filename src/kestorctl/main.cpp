#include <csignal>

#include "command_line.h"
#include "marshal/marshal.h"
#include "platform/host/system.h"

int main(int argc, char** argv) {
  host::OccupyStandardDescriptors();
  host::UnmaskOwner();
  signal(SIGPIPE, SIG_IGN);  // a reader that went away is told like any other failed write
  marshal::RegisterInterfaces();
  return kestorctl::RunCommandLine(argc, argv);
}
