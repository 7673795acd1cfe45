// Reads, writes, copies and replaces whole files.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/host/descriptor.h"

namespace host {

// Reads from the descriptor's position to the end. EFBIG after more than `most` bytes; `*bytes` then holds what was
// read. Returns 0 or an errno value, as all functions here do unless they say otherwise.
int ReadAll(int descriptor, std::size_t most, std::string* bytes);

// Writes all the bytes at the descriptor's position.
int WriteAll(int descriptor, std::string_view bytes);

// Copies the content of a file into an empty one, whatever the positions of the two descriptors.
int CopyContent(const platform::Descriptor& from, const platform::Descriptor& to);

// Gives a file the owner and the group of another one, as far as the system allows. Returns false when it keeps its own
// group.
bool TakeOverOwners(const platform::Descriptor& file, const struct stat& other);

// Gives a new file the owner, the group and the permissions of the file that it replaces. Only the superuser can give a
// file away; in any other process the process's user owns the new file, which gets the old group only if the user
// belongs to it. If the old group cannot be kept, its permissions are not given to another group.
int TakeOverRights(const platform::Descriptor& file, const struct stat& old);

// Gives a new file the rights that its folder implies, whatever the umask. Its owner may read and write it. So may the
// folder's group, if the folder permits that group to make files and the file belongs to it. A default access control
// list of the folder decides all this by itself and is not overridden. A file made by the superuser gets the owner and
// the group of the folder, as far as the system allows.
int TakeFolderRights(const platform::Descriptor& file, const platform::Descriptor& folder);

// The same for a file that replaces another one: gives it what TakeOverRights gives, with the access control list of
// the old file, and at least what the folder implies. In a folder shared with its group the file keeps that group.
int TakeOverRightsInFolder(const platform::Descriptor& file, const platform::Descriptor& old,
                           const platform::Descriptor& folder);

// Replaces the content of the file `name` in `folder`, whole or not at all: writes the content under `hiddenName`,
// flushes it, renames it and flushes the folder. Removes a file that a killed process left under the hidden name; the
// caller ensures that no other process writes there. `old` is the status of the file that is replaced, null for a new
// file, which gets `mode` as far as the umask allows. A failure leaves the file as it was, unless only the flush of the
// folder failed.
int ReplaceFile(const platform::Descriptor& folder, const std::string& name, const std::string& hiddenName,
                std::string_view bytes, const struct stat* old, mode_t mode = 0666);

}  // namespace host
