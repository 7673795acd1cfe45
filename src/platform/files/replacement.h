// A file that is written as a whole: new, or in the place of an old one, with or without its content.
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

  struct Manner {
    bool nameAsGiven = false;   // Commit gives an existing file the letter case of the path as well
    bool keepsContent = false;  // the file must exist, and what is written goes into a copy of its content
  };

  DWORD Begin(const PathName& path, Manner manner);

  const host::Descriptor& File() const { return reservation_.File(); }

  // Flushes the content, gives it the name and flushes the folder. The object is of no more use. When it fails, the
  // disk has what was there, except when it was the flushing of the folder that failed: then the new content is there.
  DWORD Commit();

 private:
  DWORD TryBegin(const PathName& path, Manner manner);
  DWORD FollowLink();
  DWORD TakeOverOwnership();
  DWORD TakeOverContent();
  DWORD TakeName();

  Location location_;
  std::string newSpelling_;  // of the old file's name, where it is to change
  host::Descriptor old_;
  Reservation reservation_;  // refers to the location's folder
};

}  // namespace files
