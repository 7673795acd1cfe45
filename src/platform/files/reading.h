// The names in a folder.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "platform/host/system.h"

namespace files {

// Changes no names in a folder: it is called for what a OneReading keeps of them.
using VisitName = std::function<void(const char* name, unsigned char type)>;

// As host::ReadNames, for a search; what a OneReading of the thread has read of the folder is not read again.
int ReadNamesOnce(const host::Descriptor& folder, const VisitName& visit);

// The same, but on a file system that tells of each change the names are those of now. `*begun` is when the reading
// began that they are of.
int ReadNames(const host::Descriptor& folder, const VisitName& visit, std::chrono::steady_clock::time_point* begun);

// Called after each change that this process makes to the names in a folder, and after each reservation: what is looked
// for then must not come from an older reading. A network file system may give older times of a folder, and times that
// advance in whole seconds.
void NoteOwnChange();
std::uint64_t OwnChanges();  // how many there have been

}  // namespace files
