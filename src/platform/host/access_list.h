// Who may use a file or a folder, and how: its permissions and its access control list in one object.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <utility>

#include "platform/host/descriptor.h"

namespace host {

class AccessList {
 public:
  // The permissions alone, without a list.
  explicit AccessList(mode_t permissions);

  // Reads the list of a file, whose mode is `mode`.
  AccessList(const platform::Descriptor& file, mode_t mode);

  bool GroupMayWrite() const;

  // Takes all permissions from the owning group, so that another group does not inherit them.
  void ForgetGroup();

  // Adds what the other list permits. Permits nothing that neither of the two permits.
  void Add(const AccessList& other);

  // Gives a user who is no longer the owner the owner's permissions. Only a list can say so; does nothing without one.
  void AddFormerOwner(std::uint32_t user);

  // Applies the permissions to a file whose mode is `mode`. If the file system does not take lists, the group gets no
  // permissions. Returns 0 or an errno value.
  int ApplyTo(const platform::Descriptor& file, mode_t mode) const;

 private:
  using Entries = std::map<std::pair<std::uint16_t, std::uint32_t>, unsigned>;

  mode_t Permissions() const;
  void Restrict(unsigned most);

  bool isList_ = false;
  Entries permits_;    // by kind and user or group, in the system's order
  unsigned most_ = 0;  // the mask: the most that entries other than the owner's and everybody's permit
};

}  // namespace host
