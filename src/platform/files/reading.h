// The names in a folder.
#pragma once

#include <functional>

#include "platform/host/system.h"

namespace files {

// As host::ReadNames; what a OneReading of the thread has read of the folder is not read again.
int ReadNames(const host::Descriptor& folder, const std::function<void(const char* name, unsigned char type)>& visit);

// To be told of every change that this process has made to the names in a folder.
void ForgetReadings();

}  // namespace files
