// A server process started by a client.
#pragma once

#include <string>

#include "platform/host/descriptor.h"

namespace com {

// A process without a terminal that is not a child of its starter and holds none of its descriptors. It outlives this
// object.
class ServerProcess {
 public:
  // Starts `command` (UTF-8: the path of an executable, in double quotes or not, and arguments) with "-Embedding"
  // appended, and passes on the home of this process. When root starts it in another user's home, or in its own home by
  // the command of `author`, the process runs as that user and otherwise inherits only search path, locale and time
  // zone. Returns false when there is no such executable or it cannot be run.
  bool Start(const std::string& command, uid_t author);

  // Returns true once the process is known to have ended.
  bool HasEnded() const;

  // Asks the process to end.
  void End() const;

 private:
  bool AwaitStart(int reports);

  platform::Descriptor process_;  // empty when the system provides none
  bool hadEnded_ = false;         // the process ended before `process_` was opened
};

}  // namespace com
