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
  // What Share did besides the folder itself.
  struct Files {
    std::size_t changed = 0;
    std::size_t left = 0;  // those that another user would have to change
  };

  // `group`: a name or a number. Throws UsageError when there is no such group.
  explicit SharedFolder(const std::string& group);

  const std::string& Group() const { return group_; }

  // Throws LocalFailure unless this process may give the folder to the group, or the group has it. The folder need not
  // exist.
  void RequirePossible(const std::filesystem::path& folder) const;

  // Lets the group make files in the folder, gives it those that will be made there (setgid), and lets it read and
  // write those of its members that are there. A file that nobody may write stays so. Throws LocalFailure.
  Files Share(const std::filesystem::path& folder) const;

 private:
  bool Has(const struct stat& folder) const;
  void RequirePossible(const std::filesystem::path& path, const struct stat& folder) const;
  bool HasMember(uid_t user) const;

  std::string group_;
  gid_t id_ = 0;
};

}  // namespace kestorctl
