#include "replacement.h"

#include <utility>

#include "folder_index.h"
#include "keeping.h"
#include "platform/host/whole_file.h"
#include "platform/kernel/host_error.h"

namespace files {

DWORD Replacement::Begin(const PathName& path, Manner manner) {
  manner_ = manner;
  bool isFirstAttempt = true;
  return UntilNotOvertaken([&] {
    const DWORD error = TryBegin(path, std::exchange(isFirstAttempt, false));
    if (error != ERROR_SUCCESS) {
      reservation_.Cancel();
      old_.Close();
    }
    return error;
  });
}

// Always locks the old file before the hidden one: of two replacements that begin at the same time, the old file's lock
// refuses one. A missing name is looked up again once it is reserved, so a quick lookup is enough at the first attempt.
DWORD Replacement::TryBegin(const PathName& path, bool isFirstAttempt) {
  linkName_.clear();
  newSpelling_.clear();
  DWORD error = OpenFolderOf(path, &location_.folder);
  if (error != ERROR_SUCCESS) return error;
  const bool quick = isFirstAttempt && !manner_.keepsContent;
  error = quick ? FindQuicklyIn(path.Name(), &location_) : FindIn(path.Name(), &location_);
  if (error != ERROR_SUCCESS) return error;
  if (location_.exists && manner_.mustBeNew) return ERROR_FILE_EXISTS;
  if (!location_.exists && manner_.keepsContent) return ERROR_FILE_NOT_FOUND;
  if (location_.exists) {
    if (manner_.nameAsGiven && location_.name != path.Name()) newSpelling_ = path.Name();
    if (error = FollowLink(); error != ERROR_SUCCESS) return error;
    error = OpenAsWritten(location_.folder.Number(), location_.name, kExclusiveWriting, &old_);
    if (error != ERROR_SUCCESS) return error == ERROR_FILE_NOT_FOUND ? kStartAnew : error;
  }
  return manner_.keepsContent ? ERROR_SUCCESS : Reserve();
}

DWORD Replacement::Reserve() {
  const ShareMode exclusive = kExclusiveWriting.share;
  if (const DWORD error = reservation_.Take(location_.folder, location_.name, old_, exclusive);
      error != ERROR_SUCCESS) {
    return error;
  }
  if (old_) {
    const int error = host::TakeOverRightsInFolder(File(), old_, location_.folder);
    if (error != 0) return platform::OsError(error);
  } else {
    // Another process may have created the file before the name was reserved: then that file must be locked.
    if (const DWORD error = RefuseTakenName(); error != ERROR_SUCCESS) {
      return error == ERROR_FILE_EXISTS ? kStartAnew : error;
    }
    if (location_.isDeadLink) return ERROR_ACCESS_DENIED;
  }
  return reservation_.Settle();
}

DWORD Replacement::RefuseTakenName() {
  const std::string name = location_.name;
  const DWORD error = FindIn(name, &location_);
  return error == ERROR_SUCCESS && location_.exists ? ERROR_FILE_EXISTS : error;
}

DWORD Replacement::PrepareToWrite() {
  if (reservation_.File()) return ERROR_SUCCESS;
  DWORD error = Reserve();
  if (error == ERROR_SUCCESS) error = platform::OsError(host::CopyContent(old_, File()));
  if (error != ERROR_SUCCESS) reservation_.Cancel();
  return error;
}

// The target of a symbolic link is replaced, not the link, whose letter case is not that of the target.
DWORD Replacement::FollowLink() {
  struct stat status = {};
  if (host::StatLink(location_.folder.Number(), location_.name, &status) != 0) return kStartAnew;
  if (!S_ISLNK(status.st_mode)) return ERROR_SUCCESS;
  newSpelling_.clear();
  std::string real;
  if (const int error = host::RealPath(location_.folder, location_.name, &real); error != 0)
    return platform::OsError(error);
  linkName_ = location_.name;
  const std::size_t separator = real.rfind('/');
  location_.name = real.substr(separator + 1);
  host::Descriptor folder;
  const int error = host::OpenFolder(AT_FDCWD, real.substr(0, separator + 1), &folder);
  if (error == 0) location_.folder = FolderHandle(std::move(folder));
  return platform::OsError(error);
}

DWORD Replacement::TakeName() {
  if (!old_) {
    // A program that does not take these locks may have created the file meanwhile, perhaps in another letter case.
    // This is checked where it costs little.
    const bool looksAgain = manner_.mustBeNew && host::IsLocal(location_.folder);
    const DWORD error = looksAgain ? RefuseTakenName() : DWORD{ERROR_SUCCESS};
    return error == ERROR_SUCCESS ? reservation_.TakeFreeName(location_.name) : error;
  }
  if (newSpelling_.empty()) return reservation_.ReplaceName(location_.name);
  // The old file is renamed first, so that the two spellings never exist at the same time.
  const int hostError = host::ChangeSpelling(location_.folder, location_.name, newSpelling_);
  if (hostError != 0) return platform::OsError(hostError);
  const DWORD error = reservation_.ReplaceName(newSpelling_);
  if (error != ERROR_SUCCESS) host::ChangeSpelling(location_.folder, newSpelling_, location_.name);
  return error;
}

DWORD Replacement::KeepAndTakeName() {
  Keeper* const keeper = Keeping::Current();
  if (keeper == nullptr) return TakeName();
  if (old_) {
    keeper->Keep({.name = linkName_.empty() ? location_.name : linkName_,
                  .file = old_,
                  .folder = &Folder(),
                  .entry = location_.name,
                  .successor = &File()});
  }
  const DWORD error = TakeName();
  if (error != ERROR_SUCCESS && old_) keeper->Drop();
  if (error == ERROR_SUCCESS && !old_) keeper->SeeNew(location_.name, File(), true);
  return error;
}

DWORD Replacement::Commit() {
  DWORD error = FlushContent();
  if (error == ERROR_SUCCESS) error = KeepAndTakeName();
  if (error == ERROR_SUCCESS) error = platform::OsError(host::Sync(location_.folder));
  LetGo();
  FolderIndexes::OfProcess().CatchUp();
  return error;
}

DWORD Replacement::FlushContent() const {
  return platform::OsError(host::Sync(File()));
}

void Replacement::LetGo() noexcept {
  reservation_.Cancel();
  old_.Close();
}

std::vector<std::string> Replacement::FoldedNames() const {
  std::vector<std::string> names;
  for (const std::string& name : {location_.name, linkName_}) {
    std::string folded;
    if (!name.empty() && FoldName(name, &folded)) names.push_back(std::move(folded));
  }
  return names;
}

}  // namespace files
