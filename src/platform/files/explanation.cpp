// Finds out afterwards why a file operation has failed.
#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "files.h"
#include "path_name.h"
#include "platform/home/home.h"
#include "platform/host/system.h"
#include "platform/text/text.h"
#include "reservation.h"
#include "share_lock.h"

namespace files {
namespace {

using text::Presentable;

// ---- Words ---------------------------------------------------------------------------------------------------------

std::string NameOf(uid_t user) {
  std::array<char, 16384> room{};
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(user, &entry, room.data(), room.size(), &found) == 0 && found != nullptr) return entry.pw_name;
  return "user " + std::to_string(user);
}

std::string NameOfGroup(gid_t group) {
  std::array<char, 16384> room{};
  ::group entry{};
  ::group* found = nullptr;
  if (getgrgid_r(group, &entry, room.data(), room.size(), &found) == 0 && found != nullptr) return entry.gr_name;
  return std::to_string(group);
}

std::string Mode(const struct stat& status) {
  std::string digits = "0000";
  for (unsigned i = 0; i < digits.size(); ++i)
    digits[i] = static_cast<char>('0' + (status.st_mode >> (9 - 3 * i) & 7U));
  return digits;
}

const char* Kind(const struct stat& status) {
  if (S_ISDIR(status.st_mode)) return "a folder";
  if (S_ISREG(status.st_mode)) return "a file";
  if (S_ISFIFO(status.st_mode)) return "a pipe";
  return S_ISSOCK(status.st_mode) ? "a socket" : "a device";
}

std::string Server() {
  return "the server, which runs as " + NameOf(geteuid()) + ",";
}

std::string WhoCanChange(uid_t owner) {
  return owner == 0 ? "; root can change that" : "; " + NameOf(owner) + " or root can change that";
}

// Says what a right is for: R_OK, W_OK or X_OK.
const char* Use(const struct stat& status, unsigned right) {
  if (!S_ISDIR(status.st_mode)) return right == R_OK ? "read it" : "write it";
  if (right == X_OK) return "enter it";
  return right == R_OK ? "list it" : "make or remove files there";
}

// True when the mode certainly permits it, so that something else forbids it.
bool ModeAllows(const struct stat& status, unsigned right) {
  const uid_t user = geteuid();
  return user == 0 || (user == status.st_uid && (status.st_mode >> 6 & right) != 0);
}

// Returns the user, besides root, that can give the server a right which the kernel refuses.
uid_t GiverOf(const struct stat& status, unsigned right) {
  return ModeAllows(status, right) ? 0 : status.st_uid;
}

// Says why the kernel refuses a right that the server needs. `server` is the name of the server in the sentence.
std::string Rights(const std::string& path, const struct stat& status, unsigned right, const std::string& server) {
  const bool groupCounts = (status.st_mode >> 3 & 7U) != (status.st_mode & 7U);
  std::string rights = Presentable(path) + " belongs to " + NameOf(status.st_uid) +
                       (groupCounts ? " and the group " + NameOfGroup(status.st_gid) : "") + " with mode " +
                       Mode(status) + (host::HasAccessList(path) ? " and an access control list" : "") + ", and " +
                       server + " may not " + Use(status, right);
  return ModeAllows(status, right) ? rights + " all the same (a security policy or a file server forbids it)" : rights;
}

std::string Rights(const std::string& path, const struct stat& status, unsigned right) {
  return Rights(path, status, right, Server()) + WhoCanChange(GiverOf(status, right));
}

std::string LinkTo(const std::string& link) {
  std::string target;
  host::ReadLink(link, &target);
  return Presentable(link) + " is a symbolic link to " + Presentable(target);
}

// Says what an error number means when nothing on the disk accounts for it.
std::string Meaning(DWORD osError, const std::string& path) {
  switch (osError) {
    case ERROR_SUCCESS:
      return "nothing has failed at " + path;
    case ERROR_FILE_NOT_FOUND:
      return "the file " + path + " was not found";
    case ERROR_PATH_NOT_FOUND:
      return "the folder of " + path + " was not found";
    case ERROR_TOO_MANY_OPEN_FILES:
      return "the server, or this machine, had as many files open as it may when it came to " + path;
    case ERROR_ACCESS_DENIED:
      return "access to " + path + " was denied";
    case ERROR_INVALID_HANDLE:
      return "the file " + path + " was not open";
    case ERROR_NOT_ENOUGH_MEMORY:
      return "there was not enough memory for " + path;
    case ERROR_BAD_FORMAT:
      return path + " is not in the form that it should have";
    case ERROR_NOT_SAME_DEVICE:
      return path + " cannot be moved to another disk by renaming it";
    case ERROR_WRITE_PROTECT:
      return "the disk of " + path + " was write-protected";
    case ERROR_SEEK:
    case ERROR_NEGATIVE_SEEK:
      return path + " has no such position";
    case ERROR_SHARING_VIOLATION:
      return path + " was in use by another program or station";
    case ERROR_LOCK_VIOLATION:
      return "part of " + path + " was locked by another program";
    case ERROR_SHARING_BUFFER_EXCEEDED:
      return "the file system of " + path + " keeps no locks, or had none left";
    case ERROR_HANDLE_EOF:
      return path + " ended too early";
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL:
      return "the disk of " + path + " was full, or a limit for its files was reached";
    case ERROR_FILE_EXISTS:
      return path + " existed already";
    case ERROR_INVALID_PARAMETER:
      return "the file system does not do with " + path + " what it was asked for";
    case ERROR_INVALID_NAME:
      return path + " is not a name for a file";
    case ERROR_DIR_NOT_EMPTY:
      return "the folder " + path + " is not empty";
    case ERROR_FILENAME_EXCED_RANGE:
      return path + " is too long a name";
    case ERROR_IO_DEVICE:
      return "the disk failed with an input/output error at " + path + " (the kernel's log may tell more)";
    default:
      return "the system gave no reason at " + path + " that has a number of its own";
  }
}

// ---- Paths that are refused as written -----------------------------------------------------------------------------

std::string FromDesktop(std::string_view ansi) {
  return Presentable(text::ToUtf8(ansi));
}

std::string WhyNameRefused(std::string_view component) {
  constexpr std::string_view kRefused = "<>:\"|?*";
  const std::string name = "the name \"" + FromDesktop(component) + '"';
  const auto isRefused = [&](char c) {
    return static_cast<unsigned char>(c) < 0x20 || kRefused.find(c) != std::string_view::npos;
  };
  const auto refused = std::find_if(component.begin(), component.end(), isRefused);
  if (refused != component.end() && *refused == '?') {
    return name + " has a ?, which no file may have, and which stands for characters that code page 1252 lacks";
  }
  if (refused != component.end()) {
    return name + " has " + (*refused < ' ' ? "a control character" : std::string("a ") + *refused) +
           ", which no file may have";
  }
  if (component.find_first_not_of(" .") == std::string_view::npos) return name + " has nothing but blanks and dots";
  if (IsHidden(component)) return name + " is one that the server keeps for files that are being written";
  return name + " is that of a device on the desktop";
}

std::string WhyRefused(DWORD error, std::string_view text, std::string_view component) {
  const std::string path = FromDesktop(text);
  if (error == ERROR_INVALID_NAME) return WhyNameRefused(component);
  if (error == ERROR_FILENAME_EXCED_RANGE) {
    return "the name \"" + FromDesktop(component) + "\" has " + std::to_string(component.size()) +
           " characters, and 255 are the most";
  }
  if (text.empty()) return "the path is empty";
  if (component == "..") return path + " leads above the folder where it begins";
  if (text.size() > 1 && (text[1] == '\\' || text[1] == '/')) return path + " names no share";
  return path + " begins with neither a drive nor a share";
}

// ---- Where a path leads --------------------------------------------------------------------------------------------

// How far a path can be followed.
struct Place {
  std::string folder;     // of the name, in the letter case on disk
  std::string path;       // of the file
  std::string name;       // of the file; empty when the path is that of a drive or share
  DWORD error = 0;        // why the folder cannot be reached: 3, or 5 for lack of rights
  std::string obstacle;   // the same in words; empty when the folder is reached
  int fileError = 0;      // the errno value of the file's status call
  struct stat file = {};  // what the path leads to
  struct stat named = {};
  bool isLink = false;

  bool Exists() const { return obstacle.empty() && fileError == 0; }

  // Returns the path of the file itself, with symbolic links resolved.
  std::string Target() const {
    host::Descriptor in;
    std::string real;
    const bool leadsOn = isLink && Exists() && host::Open(AT_FDCWD, folder, O_PATH | O_DIRECTORY, &in) == 0;
    return leadsOn && host::RealPath(in, name, &real) == 0 ? real : path;
  }
};

std::string ParentOf(const std::string& path) {
  const std::size_t separator = path.rfind('/');
  return separator == 0 || separator == std::string::npos ? "/" : path.substr(0, separator);
}

std::string Below(const std::string& folder, const std::string& name) {
  return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

// Finds the names in a folder that equal `name` except for letter case, in byte order. Returns 0 or an errno value.
int Spellings(const std::string& folder, const std::string& name, std::vector<std::string>* spellings) {
  std::string folded;
  std::string own;
  host::Descriptor names;
  if (!FoldName(name, &folded)) return 0;
  if (const int error = host::OpenFolder(AT_FDCWD, folder, &names); error != 0) return error;
  const int error = host::ReadNames(names, [&](const char* other, unsigned char) {
    if (FoldName(other, &own) && own == folded) spellings->emplace_back(other);
  });
  std::sort(spellings->begin(), spellings->end());
  return error;
}

// Gives `*name` the letter case on disk, if it exists. EACCES when only reading the folder could tell and is not
// allowed.
int Spell(const std::string& folder, std::string* name) {
  struct stat status = {};
  if (host::StatLink(AT_FDCWD, Below(folder, *name), &status) != ENOENT) return 0;
  std::vector<std::string> spellings;
  const int error = Spellings(folder, *name, &spellings);
  if (!spellings.empty()) *name = spellings.front();
  return error;
}

// Returns the folder that hides a path because the server may not enter it; empty when there is none.
std::string ClosedFolder(const std::string& path, int linksLeft = 16) {
  std::string entered = "/";
  for (std::size_t end = 1; end <= path.size() && linksLeft > 0; ++end) {
    end = std::min(path.find('/', end), path.size());
    const std::string next = path.substr(0, end);
    struct stat status = {};
    const int error = host::StatLink(AT_FDCWD, next, &status);
    // A mount that only its own user may use refuses a status call although its folder may be entered.
    if (error == EACCES) return host::MayUse(entered, X_OK) == EACCES ? entered : std::string();
    if (error != 0) return {};
    if (S_ISLNK(status.st_mode) && host::Stat(AT_FDCWD, next, &status) == EACCES) {
      std::string target;
      if (host::ReadLink(next, &target) != 0) return {};
      return ClosedFolder(target.starts_with('/') ? target : Below(ParentOf(next), target), linksLeft - 1);
    }
    entered = next;
  }
  return {};
}

// Says why the status of a path may not be read.
std::string WhyClosed(const std::string& path) {
  const std::string folder = ClosedFolder(path);
  struct stat status = {};
  if (!folder.empty() && host::Stat(AT_FDCWD, folder, &status) == 0) return Rights(folder, status, X_OK);
  if (host::StatLink(AT_FDCWD, path, &status) != 0 || !S_ISLNK(status.st_mode)) return {};
  return LinkTo(path) + ", made by " + NameOf(status.st_uid) +
         " in a folder for everybody, and the system does not follow it for others";
}

// Says why a symbolic link, of a folder or of a file, leads nowhere.
std::string WhyDead(const std::string& link, int error) {
  return LinkTo(link) + (error == ELOOP ? ", which leads back to itself" : ", where there is nothing");
}

// Returns a folder's path without symbolic links, for people who must change it; as given if it cannot be resolved.
std::string RealFolder(const std::string& folder) {
  host::Descriptor in;
  std::string real;
  const bool isReal =
      host::Open(AT_FDCWD, folder, O_PATH | O_DIRECTORY, &in) == 0 && host::RealPath(in, ".", &real) == 0;
  return isReal ? real : folder;
}

// Returns true if a path is a folder that can be entered; otherwise sets the place's obstacle.
bool Enter(const std::string& folder, Place* place) {
  struct stat status = {};
  const int error = host::Stat(AT_FDCWD, folder, &status);
  if (error == 0 && S_ISDIR(status.st_mode)) {
    if (host::MayUse(folder, X_OK) != EACCES) return true;
    place->error = ERROR_ACCESS_DENIED;
    place->obstacle = Rights(RealFolder(folder), status, X_OK);
    return false;
  }
  place->error = error == EACCES ? ERROR_ACCESS_DENIED : ERROR_PATH_NOT_FOUND;
  if (error == 0) {
    place->obstacle = Presentable(folder) + " is " + Kind(status) + ", not a folder";
  } else if (error == EACCES) {
    place->obstacle = WhyClosed(folder);
  } else if (host::StatLink(AT_FDCWD, folder, &status) == 0 && S_ISLNK(status.st_mode)) {
    place->obstacle = WhyDead(folder, error);
  } else if (error == ENOENT) {
    place->obstacle = "there is no folder " + Presentable(folder);
  }
  if (place->obstacle.empty()) place->obstacle = "the folder " + Presentable(folder) + " cannot be reached";
  return false;
}

// Enters the drive or share that the path begins with.
bool EnterBase(std::string_view text, const std::string& base, Place* place) {
  if (Enter(base, place)) return true;
  std::string name;
  std::string folder;
  struct stat status = {};
  if (MappingOf(text, &name, &folder) && host::StatLink(AT_FDCWD, base, &status) == ENOENT) {
    place->obstacle = "the home " + Presentable(platform::Home::Current().Folder().native()) + " has no " +
                      (name.size() == 2 ? "drive " : "share ") + FromDesktop(name) + ", which would be " +
                      Presentable(base);
  }
  return false;
}

// Enters a folder in the place's folder. Returns false when it cannot.
bool StepInto(std::string name, Place* place) {
  struct stat status = {};
  if (Spell(place->folder, &name) == EACCES && host::Stat(AT_FDCWD, place->folder, &status) == 0) {
    place->error = ERROR_ACCESS_DENIED;
    place->obstacle = Rights(place->folder, status, R_OK);
    return false;
  }
  place->folder = Below(place->folder, name);
  if (!Enter(place->folder, place)) return false;
  place->folder = RealFolder(place->folder);
  return true;
}

// `spelled`: the name is in the letter case on disk, or there is no file of that name in any letter case.
Place Look(std::string_view text, const PathName& path, bool spelled) {
  Place place;
  place.folder = path.base > 0 ? path.path.substr(0, path.base) : ".";
  std::string rest = path.HasName() ? path.path.substr(path.base) : std::string();
  if (rest.starts_with('/')) rest.erase(0, 1);
  bool entered = EnterBase(text, place.folder, &place);
  if (entered) place.folder = RealFolder(place.folder);
  for (std::size_t end = rest.find('/'); entered && end != std::string::npos; end = rest.find('/')) {
    entered = StepInto(rest.substr(0, end), &place);
    rest.erase(0, end + 1);
  }
  if (entered && !rest.empty() && !spelled) Spell(place.folder, &rest);
  place.name = rest;
  place.path = rest.empty() ? place.folder : Below(place.folder, rest);
  if (!entered) return place;
  place.fileError = host::Stat(AT_FDCWD, place.path, &place.file);
  place.isLink = host::StatLink(AT_FDCWD, place.path, &place.named) == 0 && S_ISLNK(place.named.st_mode);
  return place;
}

// ---- What explains a number ----------------------------------------------------------------------------------------

std::string WhyMissing(const Place& place) {
  if (!place.obstacle.empty()) return place.error == ERROR_PATH_NOT_FOUND ? place.obstacle : std::string();
  if (place.fileError != ENOENT) return {};
  return place.isLink ? WhyDead(place.path, place.fileError) : "there is no file " + Presentable(place.path);
}

std::string WhyNoPath(const Place& place, bool meansFolder) {
  if (!place.obstacle.empty()) return place.obstacle;
  if (place.fileError == ELOOP) return WhyDead(place.path, ELOOP);
  if (meansFolder && place.fileError == ENOENT) return "there is no folder " + Presentable(place.path);
  if (meansFolder && place.Exists() && !S_ISDIR(place.file.st_mode)) {
    return Presentable(place.path) + " is " + Kind(place.file) + ", not a folder";
  }
  return place.name.empty() ? Presentable(place.path) + " is a folder, not a file" : std::string();
}

std::string WhyTooManyFiles() {
  host::Descriptor any;
  const int error = host::Open(AT_FDCWD, "/", O_PATH, &any);
  rlimit limit{};
  if (error == ENFILE) return "this machine has as many files open as it may";
  if (error != EMFILE || getrlimit(RLIMIT_NOFILE, &limit) != 0) return {};
  return "the server has as many files open as it may, " + std::to_string(limit.rlim_cur);
}

// Collects what keeps the server from changing a file and its name. Which of the reasons caused the failure depends on
// the operation; all of them must go before the file can be replaced.
class Hindrances {
 public:
  // Adds the reasons of a file that may be read.
  void AddFile(const std::string& path, const struct stat& file) {
    if (AddMarks(path)) return;
    if (host::IsReadOnly(file)) {
      Add(Presentable(path) + " is read-only (its mode " + Mode(file) + " lets nobody write)", file.st_uid);
    } else if (host::MayUse(path, W_OK) == EACCES) {
      Add(Rights(path, file, W_OK, NextServer()), GiverOf(file, W_OK));
    }
  }

  void AddFolder(const std::string& path) {
    struct stat folder = {};
    if (AddMarks(path) || host::Stat(AT_FDCWD, path, &folder) != 0) return;
    if (host::MayUse(path, R_OK) == EACCES) {
      Add(Rights(path, folder, R_OK, NextServer()), GiverOf(folder, R_OK));
    } else if (host::MayUse(path, W_OK) == EACCES) {
      Add(Rights(path, folder, W_OK, NextServer()), GiverOf(folder, W_OK));
    }
  }

  // Adds the reason of a name in a folder where only a file's owner may remove its name.
  void AddName(const std::string& path) {
    struct stat named = {};
    struct stat folder = {};
    const uid_t user = geteuid();
    if (host::StatLink(AT_FDCWD, path, &named) != 0 || host::Stat(AT_FDCWD, ParentOf(path), &folder) != 0) return;
    if ((folder.st_mode & S_ISVTX) == 0 || user == 0 || user == folder.st_uid || user == named.st_uid) return;
    Add(Presentable(path) + " belongs to " + NameOf(named.st_uid) + ", and in its folder (mode " + Mode(folder) + ") " +
            NextServer() + " may replace or remove only files of its own",
        folder.st_uid);
  }

  std::string Told() const { return told_.empty() ? told_ : told_ + WhoCanChange(owner_); }

 private:
  std::string NextServer() const { return told_.empty() ? Server() : "it"; }

  bool AddMarks(const std::string& path) {
    host::Marks marks;
    if (host::GetMarks(path, &marks) != 0 || (!marks.isImmutable && !marks.isAppendOnly)) return false;
    Add(Presentable(path) + " is marked as " +
            (marks.isImmutable ? "immutable (chattr +i)" : "append-only (chattr +a)"),
        0);
    return true;
  }

  void Add(const std::string& reason, uid_t owner) {
    owner_ = told_.empty() || owner_ == owner ? owner : 0;
    told_ += (told_.empty() ? "" : "; ") + reason;
  }

  std::string told_;
  uid_t owner_ = 0;  // the user that can change all of it, besides root
};

// Returns the path that reserves the file while it is created or replaced; empty for a name that cannot be reserved.
std::string HiddenPath(const Place& place) {
  const std::string target = place.Target();
  std::string folded;
  if (place.name.empty() || !FoldName(target.substr(target.rfind('/') + 1), &folded)) return {};
  return Below(ParentOf(target), ReservationName(folded));
}

// Says whose hidden file is in the way: its owner is creating the file, or was killed while doing so a moment ago.
std::string WhyReserved(const Place& place) {
  struct stat hidden = {};
  const std::string path = HiddenPath(place);
  if (host::StatLink(AT_FDCWD, path, &hidden) != 0) return {};
  if (!S_ISREG(hidden.st_mode))
    return Presentable(path) + " has the name that the server needs, and is " + Kind(hidden);
  if (host::MayUse(path, R_OK) == 0) return {};
  return NameOf(hidden.st_uid) + " has begun to write " + Presentable(place.path) +
         ": if that was broken off, it is in nobody's way after a minute";
}

std::string WhyDenied(const Place& place) {
  if (!place.obstacle.empty()) return place.error == ERROR_ACCESS_DENIED ? place.obstacle : std::string();
  if (place.fileError == EACCES) return WhyClosed(place.path);
  if (place.isLink && place.fileError == ENOENT) return WhyDead(place.path, ENOENT);
  if (place.Exists() && S_ISDIR(place.file.st_mode) && host::MayUse(place.path, R_OK) == EACCES) {
    return Rights(place.path, place.file, R_OK);
  }
  const std::string lead = place.isLink ? LinkTo(place.path) + "; " : std::string();
  if (place.Exists() && !S_ISREG(place.file.st_mode)) {
    return Presentable(place.path) + (place.isLink ? " leads to " : " is ") + Kind(place.file) + ", not a file";
  }
  const std::string target = place.Target();
  if (place.Exists() && host::MayUse(target, R_OK) == EACCES) return lead + Rights(target, place.file, R_OK);
  Hindrances hindrances;
  if (place.Exists()) hindrances.AddFile(target, place.file);
  hindrances.AddFolder(place.folder);
  if (ParentOf(target) != place.folder) hindrances.AddFolder(ParentOf(target));
  if (place.Exists()) hindrances.AddName(place.path);
  hindrances.AddName(HiddenPath(place));
  std::string reason = hindrances.Told();
  if (reason.empty()) reason = WhyReserved(place);
  if (!reason.empty()) return lead + reason;
  return place.isLink ? LinkTo(place.path) + ", through which the server does not write to files of this kind" : reason;
}

std::string WhyWriteProtected(const Place& place) {
  const std::string folder = ParentOf(place.Target());
  struct statvfs disk {};
  if (host::DiskOf(folder, &disk) != 0 || (disk.f_flag & ST_RDONLY) == 0) return {};
  return "the disk of " + Presentable(folder) + " is mounted read-only";
}

std::string WhyInUse(const Place& place, Care care) {
  if (care == Care::brief) return {};
  std::string holder = HolderOf(place.Target());
  const std::string hidden = HiddenPath(place);
  if (holder.empty() && !hidden.empty()) holder = HolderOf(hidden);
  if (holder.empty()) return {};
  std::string program;
  host::ReadLink("/proc/" + holder + "/exe", &program);
  return "process " + holder + (program.empty() ? "" : " (" + Presentable(program) + ")") + " has " +
         Presentable(place.path) + " in use";
}

std::string WhyFull(const Place& place) {
  constexpr std::uint64_t kLargestFile = std::uint64_t{128} << 20;
  const std::string folder = ParentOf(place.Target());
  struct statvfs disk {};
  rlimit limit{};
  if (!place.obstacle.empty() || host::DiskOf(folder, &disk) != 0 || disk.f_blocks == 0) return {};
  const bool isRoot = geteuid() == 0;
  const std::uint64_t left = (isRoot ? disk.f_bfree : disk.f_bavail) * disk.f_frsize;
  const std::uint64_t filesLeft = isRoot ? disk.f_ffree : disk.f_favail;
  const std::string what = "the disk of " + Presentable(folder);
  if (left == 0) return what + " is full";
  if (disk.f_files != 0 && filesLeft == 0) return what + " has room for content, but for no further file (inodes)";
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < std::min(left, kLargestFile)) {
    return "no file of the server may have more than " + std::to_string(limit.rlim_cur) +
           " bytes (its limit of file sizes)";
  }
  return what + " had no room for it and has " + std::to_string(left) + " bytes left, or the quota of " +
         NameOf(geteuid()) + " is used up";
}

std::string WhyTaken(const Place& place) {
  if (!place.obstacle.empty()) return {};
  if (place.isLink && place.fileError == ENOENT) return WhyDead(place.path, ENOENT) + ", but has the name";
  if (!place.Exists()) return {};
  const bool isFile = S_ISREG(place.file.st_mode);
  return Presentable(place.path) + " exists already" + (isFile ? "" : std::string(" and is ") + Kind(place.file));
}

std::string WhyTooLong(const Place& place, const PathName& path) {
  struct statvfs disk {};
  const std::size_t most = host::DiskOf(place.folder, &disk) == 0 ? disk.f_namemax : NAME_MAX;
  for (std::size_t start = 0; start < path.path.size();) {
    const std::size_t end = std::min(path.path.find('/', start), path.path.size());
    if (end - start > most) {
      return "the name \"" + Presentable(path.path.substr(start, end - start)) + "\" has " +
             std::to_string(end - start) + " bytes in UTF-8, and the disk takes " + std::to_string(most);
    }
    start = end + 1;
  }
  if (path.path.size() < PATH_MAX) return {};
  return "the path " + Presentable(path.path) + " has " + std::to_string(path.path.size()) +
         " bytes, and the system takes " + std::to_string(PATH_MAX - 1);
}

// The target of a symbolic link may have a name that the desktop does not allow.
std::string WhyNoName(const Place& place) {
  std::string ansi;
  if (!place.isLink || text::FromUtf8Exactly(place.Target(), &ansi)) return {};
  return LinkTo(place.path) + ", which has a character that code page 1252 lacks";
}

std::string Why(DWORD osError, const Place& place, const PathName& path, Care care) {
  switch (osError) {
    case ERROR_FILE_NOT_FOUND:
      return WhyMissing(place);
    case ERROR_PATH_NOT_FOUND:
      return WhyNoPath(place, path.meansFolder);
    case ERROR_TOO_MANY_OPEN_FILES:
      return WhyTooManyFiles();
    case ERROR_ACCESS_DENIED:
      return WhyDenied(place);
    case ERROR_WRITE_PROTECT:
      return WhyWriteProtected(place);
    case ERROR_SHARING_VIOLATION:
      return WhyInUse(place, care);
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL:
      return WhyFull(place);
    case ERROR_FILE_EXISTS:
      return WhyTaken(place);
    case ERROR_INVALID_NAME:
      return WhyNoName(place);
    case ERROR_FILENAME_EXCED_RANGE:
      return WhyTooLong(place, path);
    default:
      return {};
  }
}

}  // namespace

std::string Explain(const std::string& path, DWORD osError, Care care) {
  const std::string_view text = path.c_str();
  PathName name;
  std::string_view refused;
  const DWORD error = TranslatePath(text, &name, &refused);
  if (error != ERROR_SUCCESS) {
    return error == osError ? WhyRefused(error, text, refused) : Meaning(osError, FromDesktop(text));
  }
  // A missing file has been looked up in every letter case; at most a dangling link has the name.
  const Place place = Look(text, name, care == Care::brief && osError == ERROR_FILE_NOT_FOUND);
  std::string reason = Why(osError, place, name, care);
  return reason.empty() ? Meaning(osError, Presentable(place.path)) : reason;
}

}  // namespace files
