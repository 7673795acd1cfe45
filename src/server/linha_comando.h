// The command line of the server process.
#pragma once

namespace kestor {

enum class Chamada {
  servidor,      // serve clients
  registro,      // enter the classes in the registry, and end
  cancelamento,  // take them out again, and end
};

// Returns the text after the next of the characters `iniciais` in `texto`; null when none is left.
const char* ProximoParametro(const char* texto, const char* iniciais);

// Returns what a whole command line asks for. A switch counts only at the end of the line: the text after each hyphen
// or slash is compared up to the end of the line, even if that character belongs to the program's path.
Chamada ExaminaLinhaComando(const char* linha);

}  // namespace kestor
