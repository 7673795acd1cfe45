// A file that is written as a whole: new, or in the place of an old one, with or without its content.
#pragma once

#include <string>
#include <vector>

#include "opening.h"

namespace files {

// What is written goes to a hidden file; Commit gives it the name. Until then the disk keeps what was there, and it
// stays so when the object goes without a Commit or its process is killed. The old file and the hidden one are held
// exclusively, so that the name is held from Begin to the end of Commit, whichever of them has it. Where the old
// content is kept, there is a hidden file only once something is written.
class Replacement {
 public:
  Replacement() = default;
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  struct Manner {
    bool nameAsGiven = false;   // Commit gives an existing file the letter case of the path as well
    bool mustBeNew = false;     // there must be no file, neither now nor at Commit: 80
    bool keepsContent = false;  // the file must exist, and what is written goes into a copy of its content
  };

  DWORD Begin(const PathName& path, Manner manner);

  // Makes the file ready to be written to: where the content is kept, that is when it is copied. When that fails, all
  // is as it was.
  DWORD PrepareToWrite();

  // What is read: the hidden file, or the old one as long as no copy of it was needed.
  const host::Descriptor& File() const { return reservation_.File() ? reservation_.File() : old_; }

  // Flushes the content, gives it the name and flushes the folder. The object is of no more use. When it fails, the
  // disk has what was there, except when it was the flushing of the folder that failed: then the new content is there.
  DWORD Commit();

  // The steps of Commit, for several files together.
  void StartFlushing() const { host::StartWriting(File()); }
  DWORD FlushContent() const;
  DWORD KeepAndTakeName();
  const host::Descriptor& Folder() const { return location_.folder; }  // to be flushed
  void LetGo() noexcept;

  // In upper case, the name that the file gets, and that of a symbolic link to it.
  std::vector<std::string> FoldedNames() const;

 private:
  DWORD TryBegin(const PathName& path, bool isFirstAttempt);
  DWORD Reserve();
  DWORD FollowLink();
  DWORD RefuseTakenName();
  DWORD TakeName();

  Manner manner_;
  Location location_;
  std::string linkName_;     // of the symbolic link that led to the old file
  std::string newSpelling_;  // of the old file's name, where it is to change
  host::Descriptor old_;
  Reservation reservation_;  // refers to the location's folder
};

}  // namespace files
