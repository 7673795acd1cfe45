#include "host_files.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure.h"
#include "platform/host/system.h"
#include "platform/host/whole_file.h"

namespace kestorctl {

namespace fs = std::filesystem;

using platform::Descriptor;

namespace {

[[noreturn]] void Throw(const char* what, const std::string& file, int error) {
  throw LocalFailure(std::string(what) + " " + file + ": " + std::strerror(error));
}

[[noreturn]] void ThrowTooLarge(const std::string& name, std::size_t maxBytes) {
  throw LocalFailure(name + " is too large: a content holds at most " + std::to_string(maxBytes) + " bytes");
}

std::string ReadToEnd(int descriptor, const std::string& name, std::size_t maxBytes) {
  struct stat status {};
  const bool isFile = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  if (isFile && static_cast<std::size_t>(status.st_size) > maxBytes) ThrowTooLarge(name, maxBytes);
  std::string bytes;
  const int error = host::ReadAll(descriptor, maxBytes, &bytes);
  if (error == EFBIG) ThrowTooLarge(name, maxBytes);
  if (error != 0) Throw("cannot read", name, error);
  return bytes;
}

// Replaces the file, which messages call `shown`.
void Replace(const fs::path& file, const std::string& shown, std::string_view bytes, const struct stat* old) {
  constexpr std::size_t kLongestStart = 200;
  const std::string name = file.filename();
  const std::string hiddenName = '.' + name.substr(0, kLongestStart) + '.' + std::to_string(host::Random());
  Descriptor folder;
  int error = host::OpenFolder(AT_FDCWD, file.parent_path(), &folder);
  // Files can be renamed in a folder that may not be read.
  if (error == EACCES) error = host::Open(AT_FDCWD, file.parent_path(), O_PATH | O_DIRECTORY, &folder);
  if (error == 0) error = host::ReplaceFile(folder, name, hiddenName, bytes, old);
  if (error != 0) Throw("cannot write", shown, error);
}

// Returns standard output or standard error when that is the file, otherwise -1. If a file under a name such as
// /dev/stdout were replaced, what else is written to that descriptor would be lost.
int StandardDescriptorOf(const struct stat& file) {
  for (const int standard : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat open {};
    if (fstat(standard, &open) == 0 && open.st_dev == file.st_dev && open.st_ino == file.st_ino) return standard;
  }
  return -1;
}

void WriteInPlace(const fs::path& file, std::string_view bytes) {
  Descriptor descriptor(open(file.c_str(), O_WRONLY | O_CLOEXEC));
  int error = descriptor ? host::WriteAll(descriptor.Number(), bytes) : errno;
  if (error == 0) error = descriptor.Close();
  if (error != 0) Throw("cannot write", file, error);
}

}  // namespace

std::string ReadInput(const std::string& file, std::size_t maxBytes) {
  if (file == "-") return ReadToEnd(STDIN_FILENO, "standard input", maxBytes);
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) Throw("cannot read", file, errno);
  return ReadToEnd(descriptor.Number(), file, maxBytes);
}

void WriteOutput(const fs::path& file, std::string_view bytes) {
  struct stat old {};
  if (stat(file.c_str(), &old) != 0) {
    if (errno != ENOENT || file.empty()) Throw("cannot write", file, errno);
    Replace(fs::absolute(file), file, bytes, nullptr);
    return;
  }
  if (S_ISDIR(old.st_mode)) Throw("cannot write", file, EISDIR);
  if (const int standard = StandardDescriptorOf(old); standard >= 0) {
    if (const int error = host::WriteAll(standard, bytes); error != 0) Throw("cannot write", file, error);
    return;
  }
  if (!S_ISREG(old.st_mode)) return WriteInPlace(file, bytes);
  // A replacement would ignore that the file may not be written, and would replace a link instead of its target.
  if (faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) Throw("cannot write", file, errno);
  Replace(fs::canonical(file), file, bytes, &old);
}

bool MayWriteInto(const fs::path& folder) {
  return fs::is_directory(folder) && faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

std::string UserName(uid_t user) {
  const passwd* const entry = getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

}  // namespace kestorctl
