// Stands between the tested code and the system, in programs that link to test_system_calls.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/host/fault_point.h"

namespace support {

// While the object exists, it sees every system call on files before it is made, and says what becomes of it. One
// object at a time. The thread that makes the call is the one that asks.
class SystemCalls {
 public:
  using Judge = std::function<host::Fate(const host::SystemCall&)>;
  using Failures = std::vector<std::pair<std::string, int>>;

  explicit SystemCalls(Judge judge);
  // The steps by which files change are noted, and those whose names begin like one of `failures` fail with its errno
  // value. A step is called as it is seen: "fsync file", "fsync folder", "fdatasync file", "rename FROM TO",
  // "rename2 FROM TO", "link FROM TO", "unlink NAME", where "hidden" stands for any name that starts with a dot. Locks
  // ("lock") can fail, but are not noted.
  explicit SystemCalls(const Failures& failures = {});
  SystemCalls(const std::string& failing, int error) : SystemCalls(Failures{{failing, error}}) {}
  ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  const std::vector<std::string>& Seen() const { return seen_; }

 private:
  std::vector<std::string> seen_;
};

}  // namespace support
