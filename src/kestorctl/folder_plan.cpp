#include "folder_plan.h"

#include <fcntl.h>

#include <algorithm>
#include <optional>

#include "failure.h"
#include "host_files.h"
#include "platform/files/files.h"
#include "platform/home/home.h"
#include "platform/host/system.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

using platform::Home;

constexpr std::string_view kSeparators = "\\/";

bool IsDesktopPath(const std::string& argument) {
  if (argument.starts_with(R"(\\)")) return true;
  if (argument.size() < 2 || argument[1] != ':') return false;
  const char letter = text::UpperChar(argument[0]);
  return letter >= 'A' && letter <= 'Z' && (argument.size() == 2 || kSeparators.find(argument[2]) != kSeparators.npos);
}

fs::path WithoutSeparator(const fs::path& folder) {
  return folder.has_filename() ? folder : folder.parent_path();
}

// Follows links, and removes a separator at the end. Takes what does not exist as it is written.
fs::path Canonical(const fs::path& folder) {
  return WithoutSeparator(fs::weakly_canonical(fs::absolute(folder)));
}

// Returns whether the argument is written like a path of the desktop platform, even one that is not accepted.
bool LooksLikeDesktopPath(const std::string& argument) {
  return argument.find('\\') != argument.npos || IsDesktopPath(argument.substr(0, 2));
}

std::string DriveRoot(char letter) {
  return std::string(1, letter) + ":\\";
}

// Returns whether the path leads the server to this folder. A name that the desktop platform reads differently, or
// finds in another letter case, leads elsewhere.
bool LeadsTo(const std::string& desktopPath, const fs::path& folder) {
  std::string host;
  return files::HostPath(desktopPath.c_str(), &host) == 0 && Canonical(host) == folder;
}

// Returns the path to `folder` from the drive; empty when there is none.
std::string PathOnDrive(char letter, const fs::path& folder) {
  const fs::path drive = Home::Current().Drive(letter);
  if (!fs::is_directory(drive)) return {};
  const fs::path start = fs::canonical(drive);
  const auto [left, rest] = std::mismatch(start.begin(), start.end(), folder.begin(), folder.end());
  if (left != start.end()) return {};
  std::string names;
  for (auto name = rest; name != folder.end(); ++name) {
    if (!names.empty()) names += '\\';
    names += name->native();
  }
  std::string ansi;
  if (!text::FromUtf8Exactly(names, &ansi)) return {};
  const std::string path = DriveRoot(letter) + ansi;
  return LeadsTo(path, folder) ? path : std::string();
}

// Returns the place of a desktop path.
Place GivenPlace(const std::string& argument) {
  Place place;
  if (!text::FromUtf8Exactly(argument, &place.desktopPath)) {
    throw LocalFailure("code page 1252 lacks a character of " + argument);
  }
  if (argument.size() == 2) place.desktopPath += '\\';
  std::string name;
  std::string entry;
  if (files::MappingOf(place.desktopPath, &name, &entry) && !fs::is_directory(entry)) {
    throw LocalFailure("the home has no " + std::string(name.size() == 2 ? "drive " : "share ") + text::ToUtf8(name) +
                       " (" + entry + " would have to be a folder or a link to one)");
  }
  std::string host;
  if (files::HostPath(place.desktopPath.c_str(), &host) != 0) {
    throw LocalFailure("the desktop platform refuses the path " + argument);
  }
  place.folder = Canonical(host);
  return place;
}

// Makes the folder and those above it. For the home of another user, root makes them as that user, whose server must
// write there. A folder that the user may not make, root makes and gives to the user.
void Make(const fs::path& folder) {
  if (folder.empty() || fs::is_directory(folder)) return;
  Make(folder.parent_path());
  const std::optional<platform::Identity> owner = Home::Current().ServingIdentity();
  if (owner) {
    const platform::ActingAsOwner acting(Home::Current().Folder());
    std::error_code failed;
    fs::create_directory(folder, failed);
    if (!failed) return;
  }
  fs::create_directory(folder);
  host::Descriptor made;
  struct stat status {};
  if (!owner || host::Open(AT_FDCWD, folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW, &made) != 0 ||
      host::Stat(made, &status) != 0)
    return;
  const bool keepsGroup = (status.st_mode & S_ISGID) != 0;
  host::ChangeOwner(made, owner->user, keepsGroup ? status.st_gid : owner->group);
}

}  // namespace

Place PlaceOf(const std::string& desktopPath) {
  Place place;
  place.desktopPath = desktopPath;
  std::string host;
  if (files::HostPath(desktopPath.c_str(), &host) != 0) return place;
  // A path with links that cannot be followed stays as it is.
  std::error_code failed;
  const fs::path canonical = fs::weakly_canonical(host, failed);
  place.folder = WithoutSeparator(failed ? fs::path(host) : canonical);
  place.exists = fs::is_directory(place.folder, failed);
  return place;
}

void RequireMakeable(const fs::path& folder) {
  if (fs::is_directory(folder)) return;
  fs::path above = folder;
  while (!fs::exists(fs::symlink_status(above)) && above.has_parent_path() && above != above.parent_path()) {
    above = above.parent_path();
  }
  if (!fs::is_directory(above)) throw LocalFailure(above.string() + " is no folder");
  if (!MayWriteInto(above)) {
    throw LocalFailure("cannot make " + folder.string() + ": no permission to write in " + above.string(),
                       E_ACCESSDENIED);
  }
}

Place FolderPlan::Find(const std::string& argument, const std::string& current) {
  Place place;
  if (IsDesktopPath(argument)) {
    place = GivenPlace(argument);
  } else if (LooksLikeDesktopPath(argument) && !fs::exists(argument)) {
    throw LocalFailure(argument + " is neither a folder of this system nor a path such as D:\\Dados\\Relatorios");
  } else {
    place.folder = Canonical(argument);
    place.desktopPath = PathTo(place.folder, current);
  }
  RequireMakeable(place.folder);
  place.exists = fs::is_directory(place.folder);
  if (!place.exists) missing_.insert(place.folder);
  return place;
}

std::string FolderPlan::PathTo(const fs::path& folder, const std::string& current) {
  if (!current.empty() && LeadsTo(current, folder)) return current;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    std::string path = PathOnDrive(letter, folder);
    if (!path.empty()) return path;
  }
  return DriveRoot(NewDrive(folder));
}

char FolderPlan::NewDrive(const fs::path& folder) {
  for (const auto& [letter, start] : newDrives_) {
    if (start == folder) return letter;
  }
  for (char letter = 'D'; letter <= 'Z'; ++letter) {
    if (newDrives_.count(letter) != 0 || fs::exists(fs::symlink_status(Home::Current().Drive(letter)))) continue;
    newDrives_.emplace(letter, folder);
    return letter;
  }
  throw LocalFailure("no drive letter is free for " + folder.string() + ": see " + Home::Current().Drives().string());
}

void FolderPlan::Apply() const {
  for (const fs::path& folder : missing_)
    Make(folder);
  const platform::ActingAsOwner owner(Home::Current().Folder());
  for (const auto& [letter, folder] : newDrives_) {
    fs::create_directory_symlink(folder, Home::Current().Drive(letter));
  }
}

}  // namespace kestorctl
