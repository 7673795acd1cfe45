// Opens files and takes their share modes.
#pragma once

#include <string>

#include "lookup.h"
#include "path_name.h"
#include "platform/host/system.h"
#include "platform/kernel/kernel.h"
#include "reservation.h"
#include "share_lock.h"

namespace files {

struct OpenMode {
  ShareMode share;
  bool create = false;
  bool truncate = false;  // an existing file loses its content
  bool noLink = false;    // a symbolic link is refused, not followed
  bool content = false;   // only the content of the file matters, not what becomes of its name

  bool ReplacesWhole() const { return create && truncate && share.writes && share.denies == Denial::both; }
};

// For an exclusive writer of an existing file.
inline constexpr OpenMode kExclusiveWriting = {{true, true, Denial::both}, false, false};
// For removing or renaming a file, which takes no permission to write to it.
inline constexpr OpenMode kExclusiveReading = {{true, false, Denial::both}, false, false};

// Opens the file that `name`, exactly as written, leads to in `folder` (or AT_FDCWD), and takes its locks. kStartAnew
// when the name leads elsewhere by the time the file is locked; 2 or 3 when there is no such name. `*length` (unless
// null) is the length of the locked file.
DWORD OpenAsWritten(int folder, const std::string& name, const OpenMode& mode, host::Descriptor* file,
                    off_t* length = nullptr);

// Opens an existing file.
DWORD OpenExisting(const PathName& path, const OpenMode& mode, host::Descriptor* file, off_t* length = nullptr);

// The same, but also gives the location of the file; for names that are about to be changed.
DWORD OpenLocated(const PathName& path, const OpenMode& mode, Location* location, host::Descriptor* file,
                  off_t* length = nullptr);

// Opens an existing file or creates one. A new file is already locked when it appears under its name; `*createdIn` is
// then its folder, which the caller must flush.
DWORD OpenOrCreate(const PathName& path, const OpenMode& mode, host::Descriptor* file, FolderHandle* createdIn);

}  // namespace files
