// Translates the text of paths, and decides which names the platform refuses, which are this system's own, and when two
// names are the same.
#pragma once

#include <string>
#include <string_view>

#include "platform/kernel/kernel.h"

namespace files {

// The host system's path of a path text, in the letter case of the text. It never leads out of the folder of its drive
// or share, or out of the current directory, except through a symbolic link.
struct PathName {
  std::string path;          // UTF-8, never empty
  std::size_t base = 0;      // length of the folder of the drive or share in `path`; 0: `path` is relative
  std::size_t name = 0;      // where the last component begins; path.size() when the path is the base itself
  bool meansFolder = false;  // the text ends with a separator

  bool HasName() const { return name < path.size(); }
  std::string Name() const { return path.substr(name); }
  std::string Folder() const;  // the path of the folder that holds the last component
};

// Returns the text of a caller's path; a null pointer counts as an empty text.
inline std::string_view TextOf(const char* path) {
  return path != nullptr ? path : "";
}

// Returns 0 or the platform's error number. If a component was refused, it is put into `*refused` (unless null); if the
// path was refused as a whole, `*refused` does not change.
DWORD TranslatePath(std::string_view text, PathName* path, std::string_view* refused = nullptr);

// Splits a search pattern into the folder to search and the pattern of its names (code page 1252).
DWORD TranslatePattern(std::string_view text, PathName* folder, std::string* pattern);

// True for a name (code page 1252) that a path can lead to.
bool IsPlatformName(std::string_view name);

// Hidden files are this system's own and hold content that does not have its name yet. No path leads to them.
inline constexpr std::string_view kHiddenPrefix = ".kestor-";
bool IsHidden(std::string_view name);

// Gives the folded form of a name on the disk (UTF-8), which exactly the names that differ only in letter case share:
// upper case in code page 1252. Returns false for a name that the code page cannot represent.
bool FoldName(std::string_view name, std::string* folded);

}  // namespace files
