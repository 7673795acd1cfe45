// The main routine of the server process.
#pragma once

#include "server/modulo_servidor.h"

namespace kestor {

// How long the process stays up after it has withdrawn its classes.
inline constexpr DWORD kPausaFinalMs = 1000;

// Publishes the module's classes and serves calls until the module has been idle for its idle time.
void AtendeClientes(CModuloServidor& modulo, DWORD pausaFinalMs = kPausaFinalMs);

// Does what the command line of the process asks for: registers or unregisters the server, or serves clients until the
// server has been idle for its idle time. Returns the exit code of the process: 0, the result of a failed registration,
// or E_ACCESSDENIED when root cannot become the owner of the home.
int ExecutaServidor();

}  // namespace kestor
