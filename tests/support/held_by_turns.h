// A file that another station keeps opening.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "platform/files/files.h"

namespace support {

// Opens an existing file alone and lets go of it, over and over, as long as the object lives.
class HeldByTurns {
 public:
  explicit HeldByTurns(std::string path) : path_(std::move(path)), thread_([this] { Hold(); }) {}
  ~HeldByTurns() {
    done_ = true;
    thread_.join();
  }
  HeldByTurns(const HeldByTurns&) = delete;
  HeldByTurns& operator=(const HeldByTurns&) = delete;

 private:
  void Hold() const {
    while (!done_) {
      CFile file;
      file.Open(path_.c_str(), CFile::modeRead | CFile::shareExclusive);
    }
  }

  const std::string path_;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

}  // namespace support
