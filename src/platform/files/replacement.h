// A file that is written as a whole: new, or in the place of an old one.
#pragma once

#include <string>

#include "opening.h"

namespace files {

// What is written goes to a hidden file; Commit gives it the name. Until then the disk keeps what was there, and it
// stays so when the object goes without a Commit or its process is killed. The old file and the hidden one are held
// exclusively, so that the name is held from Begin to the end of Commit, whichever of them has it.
class Replacement {
 public:
  Replacement() = default;
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // `nameAsGiven`: Commit gives an existing file the letter case of the path as well.
  DWORD Begin(const PathName& path, bool nameAsGiven);

  const host::Descriptor& File() const { return reservation_.File(); }

  // Flushes the content, gives it the name and flushes the folder. The object is of no more use. When it fails, the
  // disk has what was there, except when it was the flushing of the folder that failed: then the new content is there.
  DWORD Commit();

 private:
  DWORD TryBegin(const PathName& path, bool nameAsGiven);
  DWORD FollowLink();
  DWORD TakeOverOwnership();
  DWORD TakeName();

  Location location_;
  std::string newSpelling_;  // of the old file's name, where it is to change
  host::Descriptor old_;
  Reservation reservation_;  // refers to the location's folder
};

}  // namespace files
