#include <cstdio>
#include <string_view>

#include "platform/kernel/kernel.h"
#include "server/entrada.h"
#include "server/heranca.h"

namespace {

constexpr const char* kAjuda =
    R"(The server of KESTOR, the report-model repository. Clients start it when they need it.

  kestor                 serves the clients of the home ($KESTOR_HOME, else $XDG_CONFIG_HOME/kestor, else ~/.config/kestor)
  kestor -RegServer      enters this executable in the registry of the home as the server of its classes
  kestor -UnregServer    takes it out again
  kestor --version       tells the version

Exit status: 0 done; anything else is the low byte of the result, as of a failed -RegServer.)";

}  // namespace

int main(int argc, char** argv) {
  // A person who asks for help must not start a server, which would stay.
  const std::string_view unico = argc == 2 ? argv[1] : "";
  if (unico == "--help" || unico == "--version") {
    return std::puts(unico == "--help" ? kAjuda : "kestor " KESTOR_VERSION) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
  }
  platform::SetArguments(argc, argv);
  kestor::RecusaHeranca();
  const int resultado = kestor::ExecutaServidor();
  // The system keeps only the low 8 bits of an exit code. A failure must not become 0 there.
  return resultado != 0 && (resultado & 0xFF) == 0 ? 1 : resultado;
}
