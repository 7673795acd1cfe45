// The class objects and marshalers of this process, as activation and the serving side both need them.
#pragma once

#include <string>

#include "platform/com/com.h"
#include "platform/com/marshaler.h"

namespace com {

// The class object that this process has published, with a reference for the caller; empty when there is none.
ComPtr<IClassFactory> FindClassObject(REFCLSID clsid);

// False when nothing carries the interface.
bool FindMarshaler(REFIID iid, Marshaler* marshaler);

// The socket of a class of the current home: where this process would listen, and where the process that serves the
// home does.
std::string OwnSocketPath(REFCLSID clsid);
std::string ServingSocketPath(REFCLSID clsid);

}  // namespace com
