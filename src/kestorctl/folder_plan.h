// Folders of this system as the paths by which the server knows them: a drive of the home, and the way from there.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace kestorctl {

// A folder under both of its names.
struct Place {
  std::string desktopPath;       // such as D:\Dados\Relatorios; code page 1252
  std::filesystem::path folder;  // where that is on this system; empty when the path leads nowhere
  bool exists = false;
};

// Where a path that stands in the registry leads now.
Place PlaceOf(const std::string& desktopPath);

// Finds desktop paths for folders, entering new drives in the home where none leads there. Nothing is made before
// Apply. Throws LocalFailure.
class FolderPlan {
 public:
  // `argument`: a folder of this system, or already a desktop path on a drive of the home; UTF-8 or the host's bytes.
  // It need not exist. `current`: the desktop path by which the folder's purpose is entered now, kept when it leads
  // there.
  Place Find(const std::string& argument, const std::string& current);

  // The drives to be entered, by letter.
  const std::map<char, std::filesystem::path>& NewDrives() const { return newDrives_; }

  // Makes the folders that are missing and enters the drives. The home's folder of drives must be there.
  void Apply() const;

 private:
  std::string PathTo(const std::filesystem::path& folder, const std::string& current);
  char NewDrive(const std::filesystem::path& folder);

  std::map<char, std::filesystem::path> newDrives_;
  std::set<std::filesystem::path> missing_;
};

// Throws LocalFailure unless the folder is there or this process may make it, with the folders above it.
void RequireMakeable(const std::filesystem::path& folder);

}  // namespace kestorctl
