#include <csignal>

#include "command_line.h"
#include "marshal/marshal.h"
#include "platform/host/system.h"

int main(int argc, char** argv) {
  host::OccupyStandardDescriptors();
  host::UnmaskOwner();
  signal(SIGPIPE, SIG_IGN);  // a write whose reader has gone away fails like any other write
  marshal::RegisterInterfaces();
  return kestorctl::RunCommandLine(argc, argv);
}
