// Finds the name on disk for a name given in another letter case, without reading the folder each time.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "name_set.h"
#include "platform/host/system.h"

namespace files {

// The name indexes of the most recently used folders. On local file systems the kernel's change events keep an index
// current, whichever process makes the change. Elsewhere, and where the kernel cannot watch any more folders, an index
// is valid while the folder's times stay the same. May be used from any thread.
class FolderIndexes {
 public:
  static FolderIndexes& OfProcess();

  // Puts the name in the folder that equals `name` except for letter case into `*onDisk`; of several, the first in byte
  // order. Returns 0, ENOENT, or another errno value when the folder cannot be read.
  int Find(const host::Descriptor& folder, std::string_view name, std::string* onDisk);

  // Processes the pending change events. Called after this process's own changes, so that many of them without a lookup
  // do not overflow the kernel's event queue.
  void CatchUp();

 private:
  struct Index {
    dev_t device = 0;
    ino_t inode = 0;
    int watch = -1;  // -1: not watched
    NameSet names;
    bool current = false;
    std::uint32_t movedAway = 0;  // a rename whose new name the kernel has not reported yet; 0: none
    // For a folder that is not watched: its status with times, OwnChanges() then, and when both were first seen.
    struct stat stamp = {};
    std::uint64_t ownChanges = 0;
    std::chrono::steady_clock::time_point stampSeen;
    std::uint64_t lastUse = 0;
  };

  FolderIndexes() = default;

  void LeaveParentProcess();
  void TakeNews();
  void Note(const inotify_event& event);
  void Distrust();
  Index* IndexOf(const host::Descriptor& folder, const struct stat& status);
  void Watch(const host::Descriptor& folder, Index* index);
  static void Compare(const struct stat& status, Index* index);
  static bool IsSettled(const Index& index, std::chrono::steady_clock::time_point when);
  static int Read(const host::Descriptor& folder, Index* index);
  void Drop(const Index* index);

  std::mutex mutex_;
  pid_t process_ = 0;
  host::Descriptor watcher_;
  std::vector<std::unique_ptr<Index>> indexes_;
  std::uint64_t uses_ = 0;
};

}  // namespace files
