// What the server enters in the registry below HKEY_CLASSES_ROOT so that clients find it: its application identity, its
// three classes with their programmatic identifiers, and its type library.
#pragma once

#include <string>

#include "platform/com/com.h"

namespace kestor {

// Makes `executable` (full path on the host system, UTF-8) the local server of the three classes and registers the type
// library that it carries or, failing that, the one in the file of its name with the extension .tlb beside it.
//
// The application identity comes first (its result does not count), then the classes in their order, then the type
// library. The result is that of the first class, or of the type library, that fails; nothing is taken back then:
//   0x80070003               there is no path: the system did not tell it; nothing is entered
//   0x8007007B               the path holds a character that code page 1252 lacks
//   0x8007xxxx               the registry cannot be written
//   TYPE_E_CANTLOADLIBRARY   there is no type library in either place
//   TYPE_E_REGISTRYACCESS    the type library cannot be entered
HRESULT RegistraServidor(const std::string& executable);

// Removes all of that again, except the keys that other programs share. Always S_OK, also when nothing was there.
HRESULT DesregistraServidor(const std::string& executable);

}  // namespace kestor
