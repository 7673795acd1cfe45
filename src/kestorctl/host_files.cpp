#include "host_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "failure.h"
#include "platform/host/descriptor.h"

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

std::string ReadAll(int descriptor, const std::string& name, std::size_t maxBytes) {
  std::string bytes;
  struct stat status {};
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
    if (static_cast<std::size_t>(status.st_size) > maxBytes) ThrowTooLarge(name, maxBytes);
    bytes.reserve(static_cast<std::size_t>(status.st_size));
  }
  std::array<char, 1 << 16> block{};
  for (;;) {
    const ssize_t count = read(descriptor, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Throw("cannot read", name, errno);
    if (count == 0) return bytes;
    bytes.append(block.data(), static_cast<std::size_t>(count));
    if (bytes.size() > maxBytes) ThrowTooLarge(name, maxBytes);
  }
}

mode_t ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// A pattern for a name of its own in the folder of `file`.
std::string TemporaryName(const fs::path& file) {
  constexpr std::size_t kLongestStart = 200;
  std::string name(".");
  name.append(file.filename().native(), 0, kLongestStart).append(".XXXXXX");
  return file.parent_path() / name;
}

// A file that takes shape under a name of its own beside the one whose place it takes in the end.
class Replacement {
 public:
  // `shown`: what messages call it.
  Replacement(const fs::path& file, const std::string& shown)
      : file_(file),
        shown_(shown),
        temporary_(TemporaryName(file)),
        descriptor_(mkostemp(temporary_.data(), O_CLOEXEC)) {
    if (!descriptor_) Throw("cannot write", shown_, errno);
  }
  ~Replacement() {
    if (!inPlace_) unlink(temporary_.c_str());
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  void Write(std::string_view bytes, mode_t mode) {
    int error = WriteAll(descriptor_.Number(), bytes);
    if (error == 0 && (fchmod(descriptor_.Number(), mode) != 0 || fsync(descriptor_.Number()) != 0)) error = errno;
    if (error == 0) error = descriptor_.Close();
    if (error == 0 && rename(temporary_.c_str(), file_.c_str()) != 0) error = errno;
    if (error != 0) Throw("cannot write", shown_, error);
    inPlace_ = true;
  }

 private:
  const std::string file_;
  const std::string shown_;
  std::string temporary_;
  Descriptor descriptor_;
  bool inPlace_ = false;
};

// The descriptor that is open on the file already; -1 when it is neither standard output nor standard error. A file
// under a name such as /dev/stdout is somebody's open file: replaced, it would lose what is written there besides.
int StandardDescriptorOf(const struct stat& file) {
  for (const int standard : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat open {};
    if (fstat(standard, &open) == 0 && open.st_dev == file.st_dev && open.st_ino == file.st_ino) return standard;
  }
  return -1;
}

void WriteInPlace(const fs::path& file, std::string_view bytes) {
  Descriptor descriptor(open(file.c_str(), O_WRONLY | O_CLOEXEC));
  int error = descriptor ? WriteAll(descriptor.Number(), bytes) : errno;
  if (error == 0) error = descriptor.Close();
  if (error != 0) Throw("cannot write", file, error);
}

}  // namespace

int WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

std::string ReadInput(const std::string& file, std::size_t maxBytes) {
  if (file == "-") return ReadAll(STDIN_FILENO, "standard input", maxBytes);
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) Throw("cannot read", file, errno);
  return ReadAll(descriptor.Number(), file, maxBytes);
}

void WriteOutput(const fs::path& file, std::string_view bytes) {
  struct stat old {};
  if (stat(file.c_str(), &old) != 0) {
    if (errno != ENOENT || file.empty()) Throw("cannot write", file, errno);
    Replacement(fs::absolute(file), file).Write(bytes, ModeOfNewFiles());
    return;
  }
  if (S_ISDIR(old.st_mode)) Throw("cannot write", file, EISDIR);
  if (const int standard = StandardDescriptorOf(old); standard >= 0) {
    if (const int error = WriteAll(standard, bytes); error != 0) Throw("cannot write", file, error);
    return;
  }
  if (!S_ISREG(old.st_mode)) return WriteInPlace(file, bytes);
  // Replacing would pass over the mode of a file that may not be written, and would cut a link off from its file.
  if (faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) Throw("cannot write", file, errno);
  Replacement(fs::canonical(file), file).Write(bytes, old.st_mode & 0777);
}

bool MayWriteInto(const fs::path& folder) {
  return fs::is_directory(folder) && faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

}  // namespace kestorctl
