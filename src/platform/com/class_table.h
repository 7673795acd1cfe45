// The class objects and marshalers of this process, for activation and for serving.
#pragma once

#include <string>

#include "platform/com/com.h"
#include "platform/com/marshaler.h"

namespace com {

// Returns the class object that this process has published, with a reference for the caller; empty when there is none.
ComPtr<IClassFactory> FindClassObject(REFCLSID clsid);

// Returns false when the interface has no marshaler.
bool FindMarshaler(REFIID iid, Marshaler* marshaler);

// Return the path of a class's socket in the current home: where this process would listen, and where the process that
// serves the home listens.
std::string OwnSocketPath(REFCLSID clsid);
std::string ServingSocketPath(REFCLSID clsid);

}  // namespace com
