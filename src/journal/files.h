// The files of the journal: their names, how they are opened and made, and their rotation. Functions give 0 or an errno
// value.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/host/descriptor.h"
#include "platform/host/system.h"

namespace journal {

using platform::Descriptor;

// "journal.jsonl" for 0, and "journal.N.jsonl" for the N-th older file.
std::string FileName(unsigned number);

// The numbers of all older files in the folder, ascending.
int FindOlder(const Descriptor& folder, std::vector<unsigned>* numbers);

// A byte of each file. A process that appends has it locked shared as long as it has the file open; a process that
// deletes an old file locks it alone. So no line is written into a file that is deleted, however long a process is
// stopped between looking whether the file still is journal.jsonl and writing. An old file that such a process has not
// left yet is kept longer.
inline constexpr host::LockRange kAppending = {0, 1};

// Opens a file of the journal for reading or appending, and no link, pipe, folder or device in its place.
enum class Access { reading, appending };
int OpenFile(int folder, const std::string& name, Access access, Descriptor* file, struct stat* status);

// Opens a file of the home for appending, and makes it if need be. It is the home's owner's, with mode 0600; where the
// home is one that its group may write, the group may write it as well.
int OpenOrMakeFile(const std::filesystem::path& home, const std::string& name, Descriptor* file, struct stat* status);

// Renames `full`, if it still is journal.jsonl, to the first older file, those that are there to the next one each, and
// deletes all but the `kept` youngest. False when it cannot be done now, as while another process does it; what has
// been done by then leaves every file with a name, and the next rotation goes on from there.
bool Rotate(const std::filesystem::path& home, const struct stat& full, unsigned kept);

// What an error of these functions means, for people; empty for 0.
std::string Reason(int error);

}  // namespace journal
