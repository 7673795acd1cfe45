#include "mappings.h"

#include "failure.h"
#include "platform/files/files.h"
#include "platform/home/home.h"
#include "platform/text/text.h"
#include "registry_values.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

bool LeadsTo(const fs::path& entry, const fs::path& folder) {
  std::error_code failed;
  return fs::equivalent(entry, folder, failed) && !failed;
}

}  // namespace

Mapping ParseMapping(const std::string& option) {
  const std::size_t equals = option.find('=');
  if (equals == std::string::npos || equals + 1 == option.size()) {
    throw UsageError("--drive: D=DIR or \\\\HOST\\SHARE=DIR is needed, not " + option);
  }
  std::string path = AnsiArgument("--drive", option.substr(0, equals));
  if (path.size() == 1) path += ':';
  Mapping mapping;
  std::string entry;
  if (!files::MappingOf(path, &mapping.name, &entry) || mapping.name.size() != path.size()) {
    throw UsageError("--drive: " + option.substr(0, equals) + " is neither a drive nor a share");
  }
  // The entry of this home, even where that of the whole machine is in effect.
  const fs::path found = entry;
  const bool isDrive = mapping.name.size() == 2;
  mapping.entry =
      platform::Home::Current().Drives() / (isDrive ? fs::path() : found.parent_path().filename()) / found.filename();
  mapping.folder = fs::weakly_canonical(fs::absolute(option.substr(equals + 1)));
  return mapping;
}

void RequireEnterable(const Mapping& mapping) {
  if (!fs::is_directory(mapping.folder)) throw LocalFailure("--drive: " + mapping.folder.string() + " is no folder");
  const fs::path above = mapping.entry.parent_path();
  const fs::file_status around = fs::symlink_status(above);
  if (fs::exists(around) && !fs::is_directory(around)) {
    throw LocalFailure("--drive: " + above.string() + " is no folder");
  }
  const fs::file_status there = fs::symlink_status(mapping.entry);
  if (fs::exists(there) && !fs::is_symlink(there) && !LeadsTo(mapping.entry, mapping.folder)) {
    throw LocalFailure("--drive: " + mapping.entry.string() + " is no link; what is there must go first");
  }
}

bool Enter(const Mapping& mapping) {
  if (LeadsTo(mapping.entry, mapping.folder)) return false;
  // A name that no drive and no share can have.
  const fs::path made = mapping.entry.parent_path() / ('<' + mapping.entry.filename().string());
  const platform::ActingAsOwner owner(platform::Home::Current().Folder());
  fs::create_directories(mapping.entry.parent_path());
  fs::remove(made);
  fs::create_directory_symlink(mapping.folder, made);
  fs::rename(made, mapping.entry);
  return true;
}

std::string MissingMapping(const std::string& desktopPath) {
  std::string name;
  std::string entry;
  const bool isMissing = files::MappingOf(desktopPath, &name, &entry) && !fs::exists(fs::symlink_status(entry));
  return isMissing ? text::ToUtf8(name) : std::string();
}

}  // namespace kestorctl
