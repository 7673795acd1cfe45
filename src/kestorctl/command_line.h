// The command line of the program as a whole.
#pragma once

namespace kestorctl {

// Does what the arguments ask for and tells the outcome. The process's exit status.
int RunCommandLine(int argc, char** argv);

}  // namespace kestorctl
