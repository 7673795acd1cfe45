// Which name on the disk is meant when a name is given in another letter case, without reading the folder each time.
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

// The name indexes of the folders used last. On local file systems an index is kept current by the kernel's news of
// changes, from whatever process they come. Elsewhere, and where the kernel cannot watch any more folders, it holds for
// as long as the folder's times stay what they are. For all threads.
class FolderIndexes {
 public:
  static FolderIndexes& OfProcess();

  // Gives the name in the folder that equals `name` but for letter case, the first one in byte order. 0, ENOENT, or
  // another errno value when the folder cannot be read.
  int Find(const host::Descriptor& folder, std::string_view name, std::string* onDisk);

  // Takes in what has changed. Called after own changes, so that a process which makes many of them without looking a
  // name up does not make the kernel drop news.
  void CatchUp();

 private:
  struct Index {
    dev_t device = 0;
    ino_t inode = 0;
    int watch = -1;  // -1: not watched
    NameSet names;
    bool current = false;
    std::uint32_t movedAway = 0;  // a name has moved whose new name the kernel has not told yet; 0: none
    // Of a folder that is not watched: its status with its times, the own changes before, and since when it is so.
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
