// Who may use a file or a folder, and how: its permissions and its access control list as one.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <utility>

#include "platform/host/descriptor.h"

namespace host {

class AccessList {
 public:
  // What permissions say without a list.
  explicit AccessList(mode_t permissions);

  // Of a file whose mode is known.
  AccessList(const platform::Descriptor& file, mode_t mode);

  bool GroupMayWrite() const;

  // What the owning group is permitted is not permitted to another one.
  void ForgetGroup();

  // Permits what the other list permits as well. Nobody gets what neither of them permits.
  void Add(const AccessList& other);

  // Permits a user what is permitted to the owner, where a list can say so: one who is no longer the owner.
  void AddFormerOwner(std::uint32_t user);

  // Gives it to a file of this mode. A file system that does not take lists leaves the group with nothing. 0 or an
  // errno value.
  int ApplyTo(const platform::Descriptor& file, mode_t mode) const;

 private:
  using Entries = std::map<std::pair<std::uint16_t, std::uint32_t>, unsigned>;

  mode_t Permissions() const;
  void Restrict(unsigned most);

  bool isList_ = false;
  Entries permits_;    // by kind and user or group, in the order of the system
  unsigned most_ = 0;  // what of it counts for all but the owner and everybody
};

}  // namespace host
