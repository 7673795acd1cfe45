// What the server enters in the registry below HKEY_CLASSES_ROOT so that clients find it: its application identity, its
// three classes with their programmatic identifiers, and its type library.
#pragma once

#include <string>

#include "platform/com/com.h"

namespace kestor {

// Registers `executable` (full path on the host system, UTF-8) as the local server of the three classes, and the type
// library that it contains or, failing that, the one in the file next to it with the same name and the extension .tlb.
//
// Registers the application identity first and ignores its result, then the classes in order, then the type library.
// Returns the result of the first class, or of the type library, that fails, and undoes nothing then:
//   0x80070003               the path is empty, because the system did not tell it; nothing is registered
//   0x8007007B               the path holds a character that code page 1252 lacks
//   0x8007xxxx               the registry cannot be written
//   TYPE_E_CANTLOADLIBRARY   there is no type library in either place
//   TYPE_E_REGISTRYACCESS    the type library cannot be registered
HRESULT RegistraServidor(const std::string& executable);

// Removes all of that again, except the keys that other programs share. Returns S_OK, even when nothing was registered.
HRESULT DesregistraServidor(const std::string& executable);

}  // namespace kestor
