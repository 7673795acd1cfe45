// The home: the folder below which everything lies that belongs to one installation.
//
//   registry.reg   the registry
//   drives/d       a folder or a symbolic link: where paths that begin with D:\ continue
//   work/          the server's current directory, where file names without a folder end up
//
// The sockets of an installation lie elsewhere, in a folder that only its user may enter.
#pragma once

#include <filesystem>
#include <string>

namespace platform {

class Home {
 public:
  // The home of this process: $KESTOR_HOME, else $XDG_CONFIG_HOME/kestor, else ~/.config/kestor. Taken from the
  // environment at the first call, or from Use. The folder need not exist. Safe to call from any thread.
  static const Home& Current();

  // Makes `folder` the home of this process and of the processes that it starts (KESTOR_HOME is set). Called before
  // there are other threads. A service that looked at another home before forgets nothing of it by itself.
  static void Use(const std::filesystem::path& folder);

  const std::filesystem::path& Folder() const { return folder_; }
  std::filesystem::path Registry() const { return folder_ / "registry.reg"; }
  std::filesystem::path Drives() const { return folder_ / "drives"; }
  std::filesystem::path Work() const { return folder_ / "work"; }

  // The folder where drive `letter` (either case) begins, with no final separator: a path that need not exist.
  std::string Drive(char letter) const;

  // The folder of this home's sockets: $XDG_RUNTIME_DIR/kestor/<16 hexadecimal digits of the home>, else
  // /tmp/kestor-<uid>/<digits>; the second also when the variable names no existing folder by an absolute path, or
  // would make socket paths longer than the system's 107 bytes. Two spellings of one home's path give one folder; a
  // process with the variable and one without it have different ones, and with them a server each.
  std::string SocketFolder() const;

  // Creates the socket folder, mode 0700. False when it, or the folder above it, belongs to another user, may be
  // entered by others, or is no folder; `*reason` then tells which, for people.
  bool PrepareSocketFolder(std::string* reason) const;

 private:
  explicit Home(std::filesystem::path folder) : folder_(std::move(folder)) {}

  std::filesystem::path folder_;
};

}  // namespace platform
