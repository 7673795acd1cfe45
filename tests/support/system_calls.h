// Stands between the tested code and the system, in programs that link to test_system_calls.
#pragma once

#include <string>
#include <vector>

namespace support {

// While the object exists, the steps by which files change are seen, and those that are called `failing` fail with
// `error`. A step is called as it is seen: "fsync file", "fsync folder", "fdatasync file", "rename FROM TO",
// "rename2 FROM TO", "unlink NAME", where "hidden" stands for any name that starts with a dot. Locks
// ("lock") can fail, but are not seen. One object at a time.
class SystemCalls {
 public:
  explicit SystemCalls(std::string failing = {}, int error = 0);
  ~SystemCalls() { current = nullptr; }
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  const std::vector<std::string>& Seen() const { return seen_; }

  static bool Fails(const std::string& step);  // asked before each step; errno is then set

 private:
  static SystemCalls* current;

  const std::string failing_;
  const int error_;
  std::vector<std::string> seen_;
};

}  // namespace support
