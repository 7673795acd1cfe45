// Stands between the tested code and the system, in programs that link to test_system_calls.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/host/fault_point.h"

namespace support {

// While the object exists, it judges every system call on files before it is made, on the thread that makes it. Only
// one object may exist at a time.
class SystemCalls {
 public:
  using Judge = std::function<host::Fate(const host::SystemCall&)>;
  using Failures = std::vector<std::pair<std::string, int>>;

  explicit SystemCalls(Judge judge);
  // Notes the steps that change files; steps whose names start with one of `failures` fail with its errno value. The
  // names are "fsync file", "fsync folder", "fdatasync file", "rename FROM TO", "rename2 FROM TO", "link FROM TO",
  // "unlink NAME", where "hidden" stands for any name that starts with a dot. Locks ("lock") can fail, but are not
  // noted.
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
