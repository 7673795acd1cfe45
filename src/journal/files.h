// The files of the journal: names, opening, creation and rotation. Functions that return int return 0 or an errno
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

// Finds the numbers of all older files in the folder, in ascending order.
int FindOlder(const Descriptor& folder, std::vector<unsigned>* numbers);

// A byte of each file that serves as a lock. A process that appends holds it shared as long as it has the file open; a
// process that deletes an old file locks it exclusively. So no line is written into a deleted file, however long a
// process is stopped between checking that the file still is journal.jsonl and writing. An old file that such a process
// still has open is kept longer.
inline constexpr host::LockRange kAppending = {0, 1};

// Opens a file of the journal for reading or appending. Refuses a link, pipe, folder or device in its place.
enum class Access { reading, appending };
int OpenFile(int folder, const std::string& name, Access access, Descriptor* file, struct stat* status);

// Opens a file of the home for appending, and creates it if it is missing. The file belongs to the owner of the home
// and has mode 0600; if the group may write the home, it may write the file as well.
int OpenOrMakeFile(const std::filesystem::path& home, const std::string& name, Descriptor* file, struct stat* status);

// If `full` still is journal.jsonl, renames it to the first older file, moves each older file up by one, and deletes
// all but the `kept` youngest. Returns false if this is not possible now, for example because another process is
// rotating. Every file has a name at every step, and the next rotation continues where this one stopped.
bool Rotate(const std::filesystem::path& home, const struct stat& full, unsigned kept);

// Describes an error of these functions for people; empty for 0.
std::string Reason(int error);

}  // namespace journal
