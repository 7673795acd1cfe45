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

// Returns the executable that the registry names as the class's server, UTF-8; empty when the class is not registered.
std::string RegisteredExecutable(REFCLSID clsid);

// Returns the server of this program: $KESTOR_SERVER, else `kestor` in the folder of this program. Throws LocalFailure
// when it is no executable or the registry cannot hold its path.
std::filesystem::path FindServer();

// Runs the server to enter itself in the registry of this process's home. Throws LocalFailure.
void RegisterServer(const std::filesystem::path& server);

}  // namespace kestorctl
