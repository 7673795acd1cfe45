// The command line of the server process.
#pragma once

namespace kestor {

enum class Chamada {
  servidor,      // serve clients
  registro,      // enter the classes in the registry, and end
  cancelamento,  // take them out again, and end
};

// The text after the next of the characters `iniciais` in `texto`; null when none is left.
const char* ProximoParametro(const char* texto, const char* iniciais);

// What a whole command line asks for. A switch counts only when it ends the line: whatever follows a hyphen or a slash
// is compared up to the end of the line, also when that character belongs to the program's path.
Chamada ExaminaLinhaComando(const char* linha);

}  // namespace kestor
