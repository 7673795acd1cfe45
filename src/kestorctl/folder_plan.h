// Folders of this system, and the paths by which the server knows them: a drive of the home, and the names below it.
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

// Returns where a path from the registry leads now.
Place PlaceOf(const std::string& desktopPath);

// Finds desktop paths for folders, and plans a new drive of the home for a folder to which no drive leads. Makes
// nothing before Apply. Throws LocalFailure.
class FolderPlan {
 public:
  // `argument`: a folder of this system, or a desktop path on a drive of the home; UTF-8 or the host's bytes. The
  // folder need not exist. `current`: the desktop path that the registry has for this purpose now; it is kept when it
  // leads to the folder.
  Place Find(const std::string& argument, const std::string& current);

  // Returns the drives that Apply enters, by letter.
  const std::map<char, std::filesystem::path>& NewDrives() const { return newDrives_; }

  // Makes the folders that are missing and enters the drives. The home's folder of drives must exist.
  void Apply() const;

 private:
  std::string PathTo(const std::filesystem::path& folder, const std::string& current);
  char NewDrive(const std::filesystem::path& folder);

  std::map<char, std::filesystem::path> newDrives_;
  std::set<std::filesystem::path> missing_;
};

// Throws LocalFailure unless the folder exists or this process may make it, with the folders above it.
void RequireMakeable(const std::filesystem::path& folder);

}  // namespace kestorctl
