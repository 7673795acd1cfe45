// The home: the folder below which everything lies that belongs to one installation.
//
//   registry.reg   the registry
//   drives/d       a folder or a symbolic link: where paths that begin with D:\ continue
//   drives/host/share   the same for \\HOST\SHARE; both names in lower case
//   work/          the server's current directory, where file names without a folder end up
//   journal.jsonl  what servers have changed and refused to change, with older files beside it
//   server.lock    which process serves the home, and in which folder its sockets are
//   activation.lock, registry.lock   held by who starts the server or changes the registry
//
// The sockets of an installation lie elsewhere, in a folder that only its user may enter.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/descriptor.h"

namespace platform {

// A user of this system, with all groups.
struct Identity {
  uid_t user;
  gid_t group;
  std::vector<gid_t> groups;
};

// While one lives, what root does with files in the home of another user is done as that user, for this thread alone:
// it is the user's then, and nothing that the user puts there leads root elsewhere. For any other process it does
// nothing.
class ActingAsOwner {
 public:
  explicit ActingAsOwner(const std::filesystem::path& home);
  ~ActingAsOwner();
  ActingAsOwner(const ActingAsOwner&) = delete;
  ActingAsOwner& operator=(const ActingAsOwner&) = delete;

 private:
  bool acts_ = false;
  std::vector<gid_t> groups_;  // root's own
};

// Makes the calling process, which has one thread and is root's, a process of that user for good. Only system calls are
// made, so that it may stand between fork and exec. False when the system refuses; the process must end then.
bool Become(const Identity& identity);

class Home {
 public:
  // The home of this process: $KESTOR_HOME, else $XDG_CONFIG_HOME/kestor, else ~/.config/kestor. Taken from the
  // environment at the first call, or from Use. The folder need not exist. Safe to call from any thread.
  static const Home& Current();

  // Makes `folder` the home of this process and of the processes that it starts (KESTOR_HOME is set). Called before
  // there are other threads. A service that looked at another home before forgets nothing of it by itself.
  static void Use(const std::filesystem::path& folder);

  const std::filesystem::path& Folder() const { return folder_; }
  const std::filesystem::path& Registry() const { return registry_; }

  // The registry of the whole machine, which holds what that of the home lacks: in $KESTOR_SYSTEM, else in /etc/kestor.
  // Empty where there was none when this home came into use. Nothing but a person's commands writes there.
  const std::filesystem::path& SystemRegistry() const { return systemRegistry_; }

  const std::filesystem::path& SystemFolder() const { return systemFolder_; }

  // Whether this home is that folder.
  bool IsOfSystem() const { return isOfSystem_; }

  std::filesystem::path Drives() const { return folder_ / "drives"; }
  std::filesystem::path Work() const { return folder_ / "work"; }

  // Makes the folder, mode 0700, where it is missing and there is a registry of the whole machine: the user of such a
  // machine sets nothing up.
  void MakeOnFirstUse() const;

  // The folder where drive `letter` (either case) begins, with no final separator: a path that need not exist. It is
  // that of the whole machine where the home has no such drive.
  std::string Drive(char letter) const;

  // The same for an entry of the folder of drives, such as host/share.
  std::string Mapped(std::string_view entry) const;

  // The user whose server serves this process here: its own, but for root the owner of the home. A missing home counts
  // as the owner's of the folder in which it would be made.
  uid_t User() const;

  // Who a process of root must become before it serves this home: its owner, or `other` (who chose what is run) where
  // the home is root's. Nothing where this process is right as it is.
  std::optional<Identity> ServingIdentity(uid_t other = 0) const;

  // Where a server that this process starts has its sockets: $XDG_RUNTIME_DIR/kestor/<16 hexadecimal digits of the
  // home>, else /tmp/kestor-<uid>/<digits>. The variable counts when it is an absolute path to a folder of the user and
  // leaves room for socket paths of the system's 107 bytes. Two spellings of one home's path give one folder.
  std::string SocketFolder() const;

  // Where the server that serves the home has its sockets, as server.lock says; SocketFolder while none does.
  std::string ServingFolder() const;

  // True while a process of this user serves the home, also one whose sockets are not there at the moment.
  bool IsServed() const;

  // Makes this process the one that serves the home, with its sockets in SocketFolder, for as long as the descriptor is
  // open; one that it holds already it keeps, unless the file is no longer that of the home. 0, EAGAIN when another
  // process serves it, or another errno value.
  int TakeServing(Descriptor* lock) const;

  // Creates the socket folder, mode 0700. False when it, or the folder above it, belongs to another user, may be
  // entered by others, or is no folder; `*reason` then tells which, for people.
  bool PrepareSocketFolder(std::string* reason) const;

  // Opens a file by which the processes of this user lock each other out here, and makes it if need be: mode 0600, of
  // the user. It lies in the home; in the socket folder, which must be there, where this user cannot have it in the
  // home. None when it cannot be opened; errno says why.
  Descriptor OpenLockFile(const char* name) const;

 private:
  explicit Home(std::filesystem::path folder);
  std::filesystem::path folder_;
  std::filesystem::path registry_;
  std::filesystem::path systemFolder_;
  bool isOfSystem_ = false;
  std::filesystem::path systemRegistry_;
  std::string systemDrives_;  // with a final separator; empty where there are none
};

}  // namespace platform
