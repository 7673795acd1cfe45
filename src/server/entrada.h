// The main routine of the server process.
#pragma once

#include "server/modulo_servidor.h"

namespace kestor {

// How long the process goes on after it has withdrawn its classes.
inline constexpr DWORD kPausaFinalMs = 1000;

// Publishes the module's classes and serves calls until the module has been idle for its time.
void AtendeClientes(CModuloServidor& modulo, DWORD pausaFinalMs = kPausaFinalMs);

// Does what the process's command line asks for: enters the server in the registry or takes it out, or serves clients
// until the server has been idle for its time. The process's exit code: 0, or the result of a failed registration.
int ExecutaServidor();

}  // namespace kestor
