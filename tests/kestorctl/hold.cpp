// hold FILE COMMAND [ARGUMENT]...: runs a command while this process has the file open for itself alone, as a program
// does that edits it. FILE is a path of the desktop. The status is the command's, or 1 when the file cannot be had.
#include <unistd.h>

#include <cstdio>

#include "platform/files/files.h"
#include "support/support.h"

int main(int count, char** arguments) {
  CFile file;
  CFileException failure;
  if (count < 3 || !file.Open(arguments[1], CFile::modeRead | CFile::shareExclusive, &failure)) {
    std::fprintf(stderr, "hold: not to be had: error %ld\n", static_cast<long>(failure.m_lOsError));
    return 1;
  }
  return support::Child([arguments] { return execvp(arguments[2], arguments + 2); }).Wait();
}
