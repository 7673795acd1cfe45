// The folders in which the server reads and writes, as the registry of the home names them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kestor {

// One application of the product family.
struct ModuloFamilia {
  std::string_view codigo;    // two upper-case letters, as clients give it to Inicializa
  std::string_view subchave;  // the application's key below SOFTWARE\Norvela
  std::uint16_t aplicacao;
  std::uint16_t ano;
};

// All applications, in the order in which they are looked up.
std::span<const ModuloFamilia> ModulosDaFamilia();

// Stateless: every lookup reads the registry as it is now. Usable from any thread. Both lookups give 0, or
// kFalhaRegistry for every failure. A folder text ends in a backslash unless it is empty.
class CCaminhosInstalacao {
 public:
  static constexpr std::uint32_t kFalhaRegistry = 16217;

  // The base key below HKEY_LOCAL_MACHINE, with its final backslash.
  static constexpr const char* kChaveBase = "SOFTWARE\\Norvela\\";

  // The reports folder, shared by all applications: value "Relatorios" of the base key. On failure `caminho` stays as
  // it was.
  static std::uint32_t BuscaCaminhoRelatorios(std::string& caminho);

  // The history folder, a path of the host system: value "Historico" of the base key. Empty where nothing is kept.
  static std::string BuscaCaminhoHistorico();

  // The installation folder of the application with the code `modulo` (letter case aside): value "Path" of its key. On
  // failure `caminho` is empty.
  static std::uint32_t BuscaCaminhoModulo(const std::string& modulo, std::string& caminho);

  // Why the two lookups do not succeed for a module, and what to do, for people: English, UTF-8. Throws std::bad_alloc.
  static std::string PorQueFalta(const std::string& modulo);
};

}  // namespace kestor
