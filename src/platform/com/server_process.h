// A server process started by a client.
#pragma once

#include <string>

#include "platform/host/descriptor.h"

namespace com {

// A process that belongs to no terminal, is not its starter's child and holds none of its descriptors. It lives on
// when the object goes.
class ServerProcess {
 public:
  // Starts `command` (UTF-8: the path of an executable, in double quotes or not, and arguments) with "-Embedding"
  // appended and the home of this process. Where root does that in another user's home, or with the command of
  // `author`, the process is that user's and gets nothing else of root's environment. False when there is no such
  // executable or it cannot be run.
  bool Start(const std::string& command, uid_t author);

  // True once the process is known to have ended.
  bool HasEnded() const;

  // Asks it to end.
  void End() const;

 private:
  bool AwaitStart(int reports);

  platform::Descriptor process_;  // none when the system gives none
  bool hadEnded_ = false;         // before it could be had
};

}  // namespace com
