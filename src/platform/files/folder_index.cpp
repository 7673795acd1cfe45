#include "folder_index.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>

#include "leftovers.h"
#include "path_name.h"
#include "platform/text/text.h"
#include "reading.h"

namespace files {
namespace {

constexpr std::size_t kMostIndexes = 16;
constexpr std::uint32_t kWatchedEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// A quick check: false for most names with another folded form.
bool CanFoldTo(std::string_view folded, const char* name) {
  for (const char upper : folded) {
    if (static_cast<unsigned char>(*name) >= 0x80) return true;
    if (text::UpperChar(*name++) != upper) return false;
  }
  return *name == '\0' || static_cast<unsigned char>(*name) >= 0x80;
}

int ReadVisibleNames(const host::Descriptor& folder, const std::function<void(const char*)>& visit,
                     std::chrono::steady_clock::time_point* begun) {
  std::vector<std::string> hidden;
  const auto sort = [&](const char* name, unsigned char) {
    if (IsHidden(name)) {
      hidden.emplace_back(name);
    } else {
      visit(name);
    }
  };
  const int error = ReadNames(folder, sort, begun);
  RemoveLeftovers(folder, hidden);
  return error;
}

// Like FolderIndexes::Find, but without an index.
int Search(const host::Descriptor& folder, std::string_view folded, std::string* onDisk) {
  std::string first;
  std::string own;
  const auto compare = [&](const char* name) {
    if (!CanFoldTo(folded, name) || !FoldName(name, &own) || own != folded) return;
    if (first.empty() || name < first) first = name;
  };
  std::chrono::steady_clock::time_point begun;
  const int error = ReadVisibleNames(folder, compare, &begun);
  if (error != 0) return error;
  if (first.empty()) return ENOENT;
  *onDisk = first;
  return 0;
}

}  // namespace

FolderIndexes& FolderIndexes::OfProcess() {
  static FolderIndexes indexes;
  return indexes;
}

int FolderIndexes::Find(const host::Descriptor& folder, std::string_view name, std::string* onDisk) {
  std::string folded;
  if (!FoldName(name, &folded)) return ENOENT;
  struct stat status = {};
  if (const int error = host::StatNow(folder, &status); error != 0) return error;

  const std::lock_guard guard(mutex_);
  LeaveParentProcess();
  TakeNews();
  Index* const index = IndexOf(folder, status);
  Compare(status, index);
  if (index->current && index->names.Find(folded, onDisk)) return 0;
  if (index->current && index->movedAway == 0) return ENOENT;
  // Building an index takes several times as long as looking at each name, which is wasted if it is stale at once.
  if (!IsSettled(*index, std::chrono::steady_clock::now())) return Search(folder, folded, onDisk);
  if (const int error = Read(folder, index); error != 0) {
    Drop(index);
    return error;
  }
  return index->names.Find(folded, onDisk) ? 0 : ENOENT;
}

void FolderIndexes::CatchUp() {
  NoteOwnChange();
  const std::lock_guard guard(mutex_);
  LeaveParentProcess();
  TakeNews();
}

// A forked process inherits a second descriptor of its parent's event queue, and must not take events out of it.
void FolderIndexes::LeaveParentProcess() {
  const pid_t process = getpid();
  if (process_ == process) return;
  process_ = process;
  indexes_.clear();
  watcher_.Close();
}

void FolderIndexes::TakeNews() {
  if (!watcher_) return;
  alignas(inotify_event) std::array<char, 16 * 1024> buffer;
  std::size_t size = 0;
  while (host::ReadEvents(watcher_, buffer.data(), buffer.size(), &size) == 0 && size > 0) {
    for (std::size_t at = 0; at < size;) {
      const auto* const event = static_cast<const inotify_event*>(static_cast<const void*>(buffer.data() + at));
      try {
        Note(*event);
      } catch (const std::bad_alloc&) {
        Distrust();  // the event is lost
      }
      at += sizeof(inotify_event) + event->len;
    }
  }
}

// The indexes of watched folders may be stale: marks them to be read again.
void FolderIndexes::Distrust() {
  for (const auto& index : indexes_)
    index->current = index->current && index->watch < 0;
}

void FolderIndexes::Note(const inotify_event& event) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    Distrust();
    return;
  }
  const auto found =
      std::find_if(indexes_.begin(), indexes_.end(), [&](const auto& index) { return index->watch == event.wd; });
  if (found == indexes_.end()) return;
  Index& index = **found;
  if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0) {
    Drop(&index);
    return;
  }
  const std::string_view name(event.name, strnlen(event.name, event.len));
  if (index.movedAway == event.cookie) index.movedAway = 0;
  if (IsHidden(name)) return;
  if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
    index.names.Insert(name);
  } else {
    index.names.Erase(name);
    if ((event.mask & IN_MOVED_FROM) != 0) index.movedAway = event.cookie;
  }
}

FolderIndexes::Index* FolderIndexes::IndexOf(const host::Descriptor& folder, const struct stat& status) {
  auto found = std::find_if(indexes_.begin(), indexes_.end(), [&](const auto& index) {
    return index->device == status.st_dev && index->inode == status.st_ino;
  });
  if (found == indexes_.end()) {
    if (indexes_.size() == kMostIndexes) {
      Drop(std::min_element(indexes_.begin(), indexes_.end(), [](const auto& a, const auto& b) {
             return a->lastUse < b->lastUse;
           })->get());
    }
    auto index = std::make_unique<Index>();
    index->device = status.st_dev;
    index->inode = status.st_ino;
    Watch(folder, index.get());
    indexes_.push_back(std::move(index));
    found = indexes_.end() - 1;
  }
  (*found)->lastUse = ++uses_;
  return found->get();
}

void FolderIndexes::Watch(const host::Descriptor& folder, Index* index) {
  if (!host::IsLocal(folder)) return;
  if (!watcher_ && host::OpenWatcher(&watcher_) != 0) return;
  if (host::AddWatch(watcher_, folder, kWatchedEvents, &index->watch) != 0) index->watch = -1;
}

// Tells by its times, which may be a second old, whether a folder that is not watched has changed.
void FolderIndexes::Compare(const struct stat& status, Index* index) {
  if (index->watch >= 0) return;
  if (host::SameTimes(index->stamp, status) && index->ownChanges == OwnChanges()) return;
  index->stamp = status;
  index->ownChanges = OwnChanges();
  index->stampSeen = std::chrono::steady_clock::now();
  index->current = false;
}

// Times advance in steps, so a change in the same step as the reading of the names leaves no trace. Only times that
// have not changed for a while before the reading can be relied on.
bool FolderIndexes::IsSettled(const Index& index, std::chrono::steady_clock::time_point when) {
  constexpr auto kSettled = std::chrono::seconds(2);
  return index.watch >= 0 || when - index.stampSeen >= kSettled;
}

int FolderIndexes::Read(const host::Descriptor& folder, Index* index) {
  index->current = false;
  index->names = {};
  index->movedAway = 0;
  std::chrono::steady_clock::time_point begun;
  const int error = ReadVisibleNames(
      folder, [index](const char* name) { index->names.Insert(name); }, &begun);
  index->current = error == 0 && IsSettled(*index, begun);
  return error;
}

void FolderIndexes::Drop(const Index* index) {
  if (index->watch >= 0) host::RemoveWatch(watcher_, index->watch);
  indexes_.erase(std::find_if(indexes_.begin(), indexes_.end(), [&](const auto& own) { return own.get() == index; }));
}

}  // namespace files
