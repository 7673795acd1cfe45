// Files as a whole: reading one to its end, and replacing one.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/host/descriptor.h"

namespace host {

// Reads from where the descriptor stands to the end. EFBIG when more than `most` bytes come; `*bytes` is then as long
// as what was read. Returns 0 or an errno value, as all functions here do.
int ReadAll(int descriptor, std::size_t most, std::string* bytes);

// Writes all of the bytes where the descriptor stands.
int WriteAll(int descriptor, std::string_view bytes);

// Writes the content of a file into another one, which is empty, wherever the two descriptors stand.
int CopyContent(const platform::Descriptor& from, const platform::Descriptor& to);

// Gives a file the owner and the group of another one, as far as the system allows it. False when it keeps its own
// group.
bool TakeOverOwners(const platform::Descriptor& file, const struct stat& other);

// Gives a new file the owner, the group and the permissions of the one that it replaces. Only the superuser can give a
// file away; any other process becomes its owner, and leaves it to its group if that is one of its own. What a group
// that cannot be kept was permitted is not permitted to another one.
int TakeOverRights(const platform::Descriptor& file, const struct stat& old);

// Gives a new file the rights that its folder gives, whatever the umask. Its owner may read and write it. So may the
// folder's group, where the folder permits that group to make files and the file is that group's. A default access
// control list of the folder says all this by itself, and is left to say it. What the superuser makes belongs to the
// owner and the group of the folder, as far as the system allows that.
int TakeFolderRights(const platform::Descriptor& file, const platform::Descriptor& folder);

// The same for a file that replaces another one: what TakeOverRights gives, with the access control list of the old
// file, and at least what the folder gives, for which the file keeps the group of a folder that is shared.
int TakeOverRightsInFolder(const platform::Descriptor& file, const platform::Descriptor& old,
                           const platform::Descriptor& folder);

// Gives the file `name` in `folder` a new content, whole or not at all: the content is written under `hiddenName`,
// flushed and renamed, and the folder is flushed. What a killed process left under the hidden name is removed; the
// caller sees to it that no other process writes there. `old` is the file that is replaced, null for a new one, which
// gets `mode` as far as the umask lets it. After a failure the file is what it was, except when the flushing of the
// folder failed.
int ReplaceFile(const platform::Descriptor& folder, const std::string& name, const std::string& hiddenName,
                std::string_view bytes, const struct stat* old, mode_t mode = 0666);

}  // namespace host
