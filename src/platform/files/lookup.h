// From a path text's path to what is on the disk, whatever the letter case of either.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "path_name.h"
#include "platform/host/system.h"
#include "platform/kernel/kernel.h"

namespace files {

// An open folder, for all that use it at the same time.
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

// The folder that a path leads into and the name in it.
struct Location {
  FolderHandle folder;
  std::string name;  // as it is on the disk, or as written when there is none
  bool exists = false;
  bool isDeadLink = false;  // nothing exists, but a symbolic link that leads nowhere has the name
  struct stat status = {};  // of what exists; of what a symbolic link leads to
};

// The path of a file. One that ends in a separator means a folder: 5, or 3 when there is none.
DWORD TranslateFilePath(std::string_view text, PathName* path);

// For work on many files: while one lives, its thread keeps the folder open in which it looks. Going down the path
// costs as much as opening a file, and a descriptor each time. After a tenth of a second it does so again, since the
// path may lead elsewhere by then; at once when the folder is no more. One within another does nothing.
class KeptFolder {
 public:
  KeptFolder();
  ~KeptFolder();
  KeptFolder(const KeptFolder&) = delete;
  KeptFolder& operator=(const KeptFolder&) = delete;

 private:
  const bool outermost_;
};

// Opens the folder of the path's last component. 3 when there is none, or when the path ends with a drive.
DWORD OpenFolderOf(const PathName& path, FolderHandle* folder);

// Opens the folder that the whole path leads to.
DWORD OpenWholeFolder(const PathName& path, FolderHandle* folder);

// Finds `name` in `location->folder` and fills the rest of the location: the exact name, else the first in byte order
// of those that differ in letter case alone. A success whether it exists or not.
DWORD FindIn(const std::string& name, Location* location);

// The same, but does not read a folder of a network file system, which takes long: there a name that is spelt otherwise
// counts as missing. For steps that a thorough one follows.
DWORD FindQuicklyIn(const std::string& name, Location* location);

// Both of it; also a success whether the name exists or not.
DWORD Locate(const PathName& path, Location* location);

// The path with the letter case that is on the disk; components that do not exist as written.
std::string SpellAsOnDisk(const PathName& path);

}  // namespace files
