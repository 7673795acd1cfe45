// hold FILE COMMAND [ARGUMENT]...: runs a command while this process has the file open exclusively, as a program that
// edits it does. FILE is a path of the desktop. Exits with the command's status, or 1 if it cannot open the file.
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
