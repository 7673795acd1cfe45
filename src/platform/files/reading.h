// Reads the names in a folder.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "platform/host/system.h"

namespace files {

// Must not change names in a folder: it may be called with the names that a OneReading keeps.
using VisitName = std::function<void(const char* name, unsigned char type)>;

// Like host::ReadNames, for a search. Uses what the thread's OneReading has read of the folder, if anything.
int ReadNamesOnce(const host::Descriptor& folder, const VisitName& visit);

// The same, but always reads the folder on a local file system, where changes are reported at once. `*begun` is when
// the reading that the names come from began.
int ReadNames(const host::Descriptor& folder, const VisitName& visit, std::chrono::steady_clock::time_point* begun);

// Called after each change that this process makes to the names in a folder, and after each reservation: later lookups
// must not use an older reading. The folder's times may not show the change, because a network file system may report
// old times, or times in whole seconds.
void NoteOwnChange();
std::uint64_t OwnChanges();  // how many such changes and reservations there have been

}  // namespace files
