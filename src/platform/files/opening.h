// The ways in which a file is opened and its share mode taken.
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
  bool noLink = false;    // a symbolic link is not followed but refused
  bool content = false;   // only what the file holds counts, not what becomes of its name

  bool ReplacesWhole() const { return create && truncate && share.writes && share.denies == Denial::both; }
};

// Everything that an exclusive writer of an existing file needs.
inline constexpr OpenMode kExclusiveWriting = {{true, true, Denial::both}, false, false};
// For doing away with a file or its name: for those who need not write to it.
inline constexpr OpenMode kExclusiveReading = {{true, false, Denial::both}, false, false};

// Opens what the name leads to in `folder` (or AT_FDCWD) exactly as written, with its locks. kStartAnew when the name
// led elsewhere by the time the file was locked; 2 or 3 when there is no such name. `*length` (unless null) is how long
// the file was once it was locked.
DWORD OpenAsWritten(int folder, const std::string& name, const OpenMode& mode, host::Descriptor* file,
                    off_t* length = nullptr);

// Opens an existing file.
DWORD OpenExisting(const PathName& path, const OpenMode& mode, host::Descriptor* file, off_t* length = nullptr);

// The same, and tells where it is; for names that are about to be changed.
DWORD OpenLocated(const PathName& path, const OpenMode& mode, Location* location, host::Descriptor* file,
                  off_t* length = nullptr);

// Opens an existing file or creates one, which appears under its name already locked. `*createdIn` is then its folder,
// to be flushed.
DWORD OpenOrCreate(const PathName& path, const OpenMode& mode, host::Descriptor* file, FolderHandle* createdIn);

}  // namespace files
