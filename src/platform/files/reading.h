// The names in a folder.
#pragma once

#include <chrono>
#include <functional>

#include "platform/host/system.h"

namespace files {

// As host::ReadNames; what a OneReading of the thread has read of the folder is not read again. `*begun` is when the
// reading began that the names are of.
int ReadNames(const host::Descriptor& folder, const std::function<void(const char* name, unsigned char type)>& visit,
              std::chrono::steady_clock::time_point* begun);

// Called after each change that this process makes to the names in a folder, hidden ones included: what is looked for
// once a name is reserved must have been read after that.
void NoteOwnChange();

}  // namespace files
