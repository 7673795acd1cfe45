// The command line of the program as a whole.
#pragma once

namespace kestorctl {

// Runs the command that the arguments name and writes its answer. Returns the exit status of the process.
int RunCommandLine(int argc, char** argv);

}  // namespace kestorctl
