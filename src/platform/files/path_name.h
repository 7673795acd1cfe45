// Paths worked out on their text, and what makes a name: which ones the platform refuses, which are this system's own
// and when two are the same.
#pragma once

#include <string>
#include <string_view>

#include "platform/kernel/kernel.h"

namespace files {

// The host system's path of a path text, in the letter case of the text. It leads nowhere but into the folder where
// its drive begins, or into the current directory, unless a symbolic link leads on from there.
struct PathName {
  std::string path;          // UTF-8, never empty
  std::size_t base = 0;      // how much of it is the folder of the drive or share; 0: it is relative to the current one
  std::size_t name = 0;      // where the last component begins; path.size() when the path is the base itself
  bool meansFolder = false;  // it was written with a separator at its end

  bool HasName() const { return name < path.size(); }
  std::string Name() const { return path.substr(name); }
  std::string Folder() const;  // the path of the folder that holds the last component
};

// The text of a caller's path. None at all is an empty one.
inline std::string_view TextOf(const char* path) {
  return path != nullptr ? path : "";
}

// 0, or the platform's error number. `*refused` (unless null) is then the component for which the path was refused;
// none where it was refused as a whole.
DWORD TranslatePath(std::string_view text, PathName* path, std::string_view* refused = nullptr);

// Splits a search pattern into the folder to search and the pattern of its names (code page 1252).
DWORD TranslatePattern(std::string_view text, PathName* folder, std::string* pattern);

// True for a name (code page 1252) that a path can lead to.
bool IsPlatformName(std::string_view name);

// Hidden files, which hold what is not a file of its name yet, are this system's own: no path leads to them.
inline constexpr std::string_view kHiddenPrefix = ".kestor-";
bool IsHidden(std::string_view name);

// The form of a name on the disk (UTF-8) that it shares with exactly the names that differ from it in letter case
// alone: upper case in code page 1252. False for a name that the code page cannot hold.
bool FoldName(std::string_view name, std::string* folded);

}  // namespace files
