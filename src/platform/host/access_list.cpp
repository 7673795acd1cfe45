#include "access_list.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/host/system.h"

namespace host {
namespace {

constexpr const char* kAttribute = "system.posix_acl_access";
constexpr mode_t kPermissions = 0777;
constexpr mode_t kGroupPermissions = 0070;
constexpr unsigned kWriting = 2;

enum Kind : std::uint16_t { kOwner = 1, kUser = 2, kOwningGroup = 4, kGroup = 8, kMost = 16, kEverybody = 32 };

constexpr std::uint32_t kNobody = ~0U;  // in an entry that is not for one user or group

// An entry of a list in the system's format, where the entries follow a version number.
struct Entry {
  std::uint16_t kind;
  std::uint16_t permits;
  std::uint32_t who;
};
constexpr std::uint32_t kVersion = 2;

bool IsRestricted(unsigned kind) {
  return kind == kUser || kind == kOwningGroup || kind == kGroup;
}

void Append(unsigned kind, std::uint32_t who, unsigned permits, std::string* text) {
  const Entry entry{static_cast<std::uint16_t>(kind), static_cast<std::uint16_t>(permits), who};
  text->append(reinterpret_cast<const char*>(&entry), sizeof entry);
}

}  // namespace

AccessList::AccessList(mode_t permissions)
    : permits_{{{kOwner, kNobody}, permissions >> 6 & 7},
               {{kOwningGroup, kNobody}, permissions >> 3 & 7},
               {{kEverybody, kNobody}, permissions & 7}},
      most_(permissions >> 3 & 7) {}

AccessList::AccessList(const platform::Descriptor& file, mode_t mode) : AccessList(mode) {
  std::string text;
  const int error = GetAttribute(file, kAttribute, &text);
  if (error == ENODATA || error == EOPNOTSUPP || error == ENOSYS) return;
  // For a file with a list, the group bits of the mode are the most that the list permits.
  if (error != 0) {
    ForgetGroup();
    return;
  }
  isList_ = true;
  for (std::size_t at = sizeof kVersion; at + sizeof(Entry) <= text.size(); at += sizeof(Entry)) {
    Entry entry{};
    std::memcpy(&entry, text.data() + at, sizeof entry);
    if (entry.kind != kMost) permits_[{entry.kind, entry.who}] = entry.permits;
  }
}

bool AccessList::GroupMayWrite() const {
  return (permits_.at({kOwningGroup, kNobody}) & most_ & kWriting) != 0;
}

void AccessList::ForgetGroup() {
  permits_[{kOwningGroup, kNobody}] = 0;
}

void AccessList::Restrict(unsigned most) {
  for (auto& [key, permits] : permits_) {
    if (IsRestricted(key.first)) permits &= most;
  }
}

void AccessList::Add(const AccessList& other) {
  AccessList added = other;
  added.Restrict(other.most_);
  // What the mask of this list hides must stay hidden when the mask of the other list is added.
  if ((other.most_ & ~most_) != 0) Restrict(most_);
  most_ |= other.most_;
  isList_ = isList_ || other.isList_;
  for (const auto& [key, permits] : added.permits_)
    permits_[key] |= permits;
}

void AccessList::AddFormerOwner(std::uint32_t user) {
  if (!isList_) return;
  AccessList added(0);
  added.most_ = permits_.at({kOwner, kNobody});
  added.permits_[{kUser, user}] = added.most_;
  Add(added);
}

mode_t AccessList::Permissions() const {
  const unsigned group = permits_.at({kOwningGroup, kNobody}) & most_;
  return permits_.at({kOwner, kNobody}) << 6 | group << 3 | permits_.at({kEverybody, kNobody});
}

int AccessList::ApplyTo(const platform::Descriptor& file, mode_t mode) const {
  mode_t permissions = Permissions();
  if (isList_) {
    std::string text(reinterpret_cast<const char*>(&kVersion), sizeof kVersion);
    for (const auto& [key, permits] : permits_) {
      if (key.first == kEverybody) Append(kMost, kNobody, most_, &text);
      Append(key.first, key.second, permits, &text);
    }
    if (SetAttribute(file, kAttribute, text) == 0) return 0;
    permissions &= ~kGroupPermissions;  // the list may permit less to a member of the group
  }
  return (mode & kPermissions) == permissions ? 0 : ChangeMode(file, permissions);
}

}  // namespace host
