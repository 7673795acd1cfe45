// The server's executable and its entries in the registry.
#pragma once

#include <filesystem>
#include <span>
#include <string>

#include "platform/com/com.h"

namespace kestorctl {

struct ServerClass {
  const char* name;
  CLSID clsid;
};

std::span<const ServerClass> ServerClasses();

// What the registry names as the class's server, UTF-8; empty when the class is not registered.
std::string RegisteredExecutable(REFCLSID clsid);

// The server that belongs to this program: $KESTOR_SERVER, else `kestor` in the folder of this program. Throws
// LocalFailure when it is no executable or its path cannot stand in the registry.
std::filesystem::path FindServer();

// Lets the server enter itself in the registry of this process's home. Throws LocalFailure.
void RegisterServer(const std::filesystem::path& server);

}  // namespace kestorctl
