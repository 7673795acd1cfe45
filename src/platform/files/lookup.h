// Finds what a path leads to on the disk, whatever the letter case of either.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "path_name.h"
#include "platform/host/system.h"
#include "platform/kernel/kernel.h"

namespace files {

// An open folder, shared by all its users and closed after the last one.
class FolderHandle {
 public:
  FolderHandle() = default;  // none
  explicit FolderHandle(host::Descriptor opened)
      : opened_(std::make_shared<const host::Descriptor>(std::move(opened))) {}

  explicit operator bool() const { return opened_ != nullptr; }
  operator const host::Descriptor&() const { return *opened_; }
  int Number() const { return opened_->Number(); }

 private:
  std::shared_ptr<const host::Descriptor> opened_;
};

// The folder that holds a path's last component, and the name of that component.
struct Location {
  FolderHandle folder;
  std::string name;  // as on the disk, or as written if it does not exist
  bool exists = false;
  bool isDeadLink = false;  // nothing exists, and the name is that of a dangling symbolic link
  struct stat status = {};  // of what exists, symbolic links followed
};

// Translates the path of a file. A path that ends in a separator means a folder: 5, or 3 when there is no such folder.
DWORD TranslateFilePath(std::string_view text, PathName* path);

// For work on many files: while an object lives, its thread keeps the folder open that it used last. Opening a folder
// again costs as much as opening a file, and a descriptor each time. The thread opens it again after a tenth of a
// second, because the path may lead elsewhere by then, and at once if the folder was removed. A nested object does
// nothing.
class KeptFolder {
 public:
  KeptFolder();
  ~KeptFolder();
  KeptFolder(const KeptFolder&) = delete;
  KeptFolder& operator=(const KeptFolder&) = delete;

 private:
  const bool outermost_;
};

// Opens the folder that holds the path's last component. 3 when the folder does not exist, or when the path has no such
// component because it is that of a drive or share.
DWORD OpenFolderOf(const PathName& path, FolderHandle* folder);

// Opens the folder that the whole path leads to.
DWORD OpenWholeFolder(const PathName& path, FolderHandle* folder);

// Finds `name` in `location->folder` and fills in the rest of the location: the exact name, otherwise the first in byte
// order of those that differ only in letter case. Succeeds whether the name exists or not.
DWORD FindIn(const std::string& name, Location* location);

// The same, but never reads a folder of a network file system, which takes long: there a name in another letter case
// counts as missing. For a first attempt that a full lookup follows.
DWORD FindQuicklyIn(const std::string& name, Location* location);

// Calls OpenFolderOf, then FindIn. Succeeds whether the name exists or not.
DWORD Locate(const PathName& path, Location* location);

// Returns the path in the letter case on disk. Components that do not exist stay as written.
std::string SpellAsOnDisk(const PathName& path);

}  // namespace files
