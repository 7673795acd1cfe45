// A file of the host system, read at any place.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

namespace com {

// An open regular file; anything else (a folder, a pipe, a device) counts as not open. It has the size that it had
// when it was opened.
class HostFile {
 public:
  // A pipe must not hold up the caller until somebody writes to it, hence O_NONBLOCK.
  explicit HostFile(const std::string& path)
      : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)) {
    struct stat status {};
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return;
    isOpen_ = true;
    size_ = static_cast<std::uint64_t>(status.st_size);
  }
  ~HostFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;

  bool IsOpen() const { return isOpen_; }
  std::uint64_t Size() const { return size_; }

  // Reads exactly `count` bytes; false when the file does not have them there.
  bool ReadAt(std::uint64_t offset, void* destination, std::size_t count) const {
    if (!isOpen_ || offset > size_ || count > size_ - offset) return false;
    auto* bytes = static_cast<char*>(destination);
    while (count > 0) {
      const ssize_t got = pread(descriptor_, bytes, count, static_cast<off_t>(offset));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      bytes += got;
      count -= static_cast<std::size_t>(got);
      offset += static_cast<std::uint64_t>(got);
    }
    return true;
  }

  // The same, into a text of its own; takes no memory for bytes that the file does not have.
  bool Read(std::uint64_t offset, std::uint64_t count, std::string* bytes) const {
    if (offset > size_ || count > size_ - offset) return false;
    bytes->resize(count);
    return ReadAt(offset, bytes->data(), count);
  }

 private:
  const int descriptor_;
  bool isOpen_ = false;
  std::uint64_t size_ = 0;
};

}  // namespace com
