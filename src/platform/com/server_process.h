// A server process started by a client.
#pragma once

#include <string>

namespace com {

// A process that belongs to no terminal, is nobody's child and holds none of the starter's descriptors. It lives on
// when the object goes.
class ServerProcess {
 public:
  ServerProcess() = default;
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // Starts `command` (UTF-8: the path of an executable, in double quotes or not, and arguments) with "-Embedding"
  // behind it and the home of this process. False when there is no such executable or it cannot be run.
  bool Start(const std::string& command);

  // True once the process is known to have ended.
  bool HasEnded() const;

  // Asks it to end.
  void End() const;

 private:
  int process_ = -1;  // descriptor of the process; -1 when the system gives none
};

}  // namespace com
