// A file that is written as a whole: a new one, or one that replaces an old file, empty or with its content.
#pragma once

#include <string>
#include <vector>

#include "opening.h"

namespace files {

// Writes go to a hidden file, to which Commit gives the name. Until then the disk keeps the old file, also when the
// object is destroyed without a Commit or its process is killed. The old file and the hidden file are locked
// exclusively, so that the name is locked from Begin to the end of Commit, whichever file has it. With keepsContent the
// hidden file is created only when something is written.
class Replacement {
 public:
  Replacement() = default;
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  struct Manner {
    bool nameAsGiven = false;   // Commit also gives an existing file the letter case of the path
    bool mustBeNew = false;     // 80 when the file exists, now or at Commit
    bool keepsContent = false;  // the file must exist, and writes go into a copy of its content
  };

  DWORD Begin(const PathName& path, Manner manner);

  // Makes the file ready for writing; with keepsContent this copies the old content. A failure changes nothing.
  DWORD PrepareToWrite();

  // Returns the hidden file, or the old file if it has not been copied yet.
  const host::Descriptor& File() const { return reservation_.File() ? reservation_.File() : old_; }

  // Flushes the content, gives it the name and flushes the folder. The object cannot be used any more afterwards. On
  // failure the disk keeps the old file, unless only the flush of the folder failed: then the new content is in place.
  DWORD Commit();

  // The steps of Commit, for committing several files together.
  void StartFlushing() const { host::StartWriting(File()); }
  DWORD FlushContent() const;
  DWORD KeepAndTakeName();
  const host::Descriptor& Folder() const { return location_.folder; }  // the folder to flush
  void LetGo() noexcept;

  // Returns, in upper case, the name that the file gets and that of a symbolic link which led to it.
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
  std::string newSpelling_;  // of the old file's name, if it changes
  host::Descriptor old_;
  Reservation reservation_;  // refers to the location's folder
};

}  // namespace files
