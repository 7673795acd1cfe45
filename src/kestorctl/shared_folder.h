// A reports folder in which the members of a group work together.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <string>

namespace kestorctl {

class SharedFolder {
 public:
  // What Share did to the files in the folder.
  struct Files {
    std::size_t changed = 0;
    std::size_t left = 0;  // those that this process could not or must not change
  };

  // `group`: the name of a group, or a number. Throws UsageError when it is neither.
  explicit SharedFolder(const std::string& group);

  const std::string& Group() const { return group_; }

  // Throws LocalFailure unless the group has the folder or this process may give it to the group. The folder need not
  // exist.
  void RequirePossible(const std::filesystem::path& folder) const;

  // Lets the group make files in the folder, makes new files the group's (setgid), and lets the group read and write
  // files of its members that are there already. A read-only file stays read-only. Throws LocalFailure.
  Files Share(const std::filesystem::path& folder) const;

 private:
  bool Has(const struct stat& folder) const;
  void RequirePossible(const std::filesystem::path& path, const struct stat& folder) const;
  bool HasMember(uid_t user) const;

  std::string group_;
  gid_t id_ = 0;
};

}  // namespace kestorctl
