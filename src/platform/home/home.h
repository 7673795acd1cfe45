// The home: the folder that holds everything that belongs to one installation.
//
//   registry.reg   the registry
//   drives/d       a folder or a symbolic link: where paths that begin with D:\ continue
//   drives/host/share   the same for \\HOST\SHARE; both names in lower case
//   work/          the server's current directory, where file names without a folder end up
//   journal.jsonl  what servers have changed and refused to change, with older files next to it
//   server.lock    which process serves the home, and in which folder its sockets are
//   activation.lock, registry.lock   held by a process that starts the server or changes the registry
//
// The sockets of an installation lie elsewhere, in a folder that only its user can enter.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/descriptor.h"

namespace platform {

// A user of this system, with all groups of the user.
struct Identity {
  uid_t user;
  gid_t group;
  std::vector<gid_t> groups;
};

// While it lives, a thread of root accesses files as the owner of `home`, if that is another user: new files belong to
// the owner, and nothing that the owner puts there leads root elsewhere. Affects only the calling thread. Does nothing
// in a process that is not root's.
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

// Makes the calling process, which must be root's and have one thread, a process of that user for good. Makes only
// system calls, so that it can run between fork and exec. Returns false when the system refuses; the process must end
// then.
bool Become(const Identity& identity);

class Home {
 public:
  // Returns the home of this process: $KESTOR_HOME, else $XDG_CONFIG_HOME/kestor, else ~/.config/kestor. The first call
  // reads the environment, unless Use has set the home. The folder need not exist. Any thread may call it.
  static const Home& Current();

  // Makes `folder` the home of this process and of the processes that it starts (sets KESTOR_HOME). Must be called
  // before there are other threads. Does not reset what the process has cached from an earlier home.
  static void Use(const std::filesystem::path& folder);

  const std::filesystem::path& Folder() const { return folder_; }
  const std::filesystem::path& Registry() const { return registry_; }

  // The registry of the whole machine, which holds what the home's lacks: in $KESTOR_SYSTEM, else in /etc/kestor. Empty
  // if there was none when this home came into use. Only commands that a person gives write it.
  const std::filesystem::path& SystemRegistry() const { return systemRegistry_; }

  const std::filesystem::path& SystemFolder() const { return systemFolder_; }

  // Returns whether this home is that folder.
  bool IsOfSystem() const { return isOfSystem_; }

  std::filesystem::path Drives() const { return folder_ / "drives"; }
  std::filesystem::path Work() const { return folder_ / "work"; }

  // Creates the home's folder, mode 0700, if it is missing and the machine has a registry: users of such a machine need
  // no setup.
  void MakeOnFirstUse() const;

  // Returns the folder of drive `letter` (either case) without a final separator; it need not exist. Falls back to the
  // machine's drive if the home has none of that letter.
  std::string Drive(char letter) const;

  // Does the same for an entry of the folder of drives, such as host/share.
  std::string Mapped(std::string_view entry) const;

  // Returns the user whose server serves this process here: its own user, but for root the owner of the home. A missing
  // home counts as owned by the owner of the folder in which it would be made.
  uid_t User() const;

  // Returns the user that a process of root must become before it serves this home: the owner, or, in a home of root's,
  // `other`, who chose what is run. Returns nothing when the process need not change.
  std::optional<Identity> ServingIdentity(uid_t other = 0) const;

  // Returns where a server that this process starts has its sockets: $XDG_RUNTIME_DIR/kestor/<16 hexadecimal digits of
  // the home>, else /tmp/kestor-<uid>/<digits>. The variable counts when it is an absolute path to a folder of the user
  // and leaves room for socket paths of the system's 107 bytes. Two spellings of one home's path give one folder.
  std::string SocketFolder() const;

  // Returns where the server that serves the home has its sockets, as server.lock says; SocketFolder when none serves
  // it.
  std::string ServingFolder() const;

  // Returns true while a process of this user serves the home, even one whose sockets are missing at the moment.
  bool IsServed() const;

  // Makes this process the one that serves the home, with its sockets in SocketFolder, as long as the descriptor is
  // open. Keeps a lock that the process already holds, unless the home has another lock file by now. Returns 0, EAGAIN
  // when another process serves the home, or another errno value.
  int TakeServing(Descriptor* lock) const;

  // Creates the socket folder, mode 0700. Returns false when it, or the folder above it, cannot be made, belongs to
  // another user, may be entered by others, or is no folder. `*reason` then tells people which.
  bool PrepareSocketFolder(std::string* reason) const;

  // Opens a lock file that the processes of this user share here, and creates it if it is missing: mode 0600, owned by
  // the user. It lies in the home, or in the socket folder, which must exist, if this user cannot have it in the home.
  // Returns an empty descriptor on failure; errno says why.
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
