// The folders that the server reads and writes, as the home's registry names them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kestor {

// One application of the product family.
struct ModuloFamilia {
  std::string_view codigo;    // two upper-case letters, as clients pass it to Inicializa
  std::string_view subchave;  // the application's key below SOFTWARE\Norvela
  std::uint16_t aplicacao;
  std::uint16_t ano;
};

// Returns all applications, in the order in which they are looked up.
std::span<const ModuloFamilia> ModulosDaFamilia();

// Stateless: every lookup reads the registry as it is now. Any thread may call it. The lookups of the reports folder
// and of a module's folder return 0, or kFalhaRegistry for every failure; the folder ends in a backslash unless it is
// empty.
class CCaminhosInstalacao {
 public:
  static constexpr std::uint32_t kFalhaRegistry = 16217;

  // The base key below HKEY_LOCAL_MACHINE, with its final backslash.
  static constexpr const char* kChaveBase = "SOFTWARE\\Norvela\\";

  // Looks up the reports folder, which all applications share: value "Relatorios" of the base key. On failure `caminho`
  // is unchanged.
  static std::uint32_t BuscaCaminhoRelatorios(std::string& caminho);

  // Returns the history folder, a path of the host system: value "Historico" of the base key. Empty if no history is
  // kept.
  static std::string BuscaCaminhoHistorico();

  // Looks up the installation folder of the application with the code `modulo`, in any letter case: value "Path" of its
  // key. On failure `caminho` is empty.
  static std::uint32_t BuscaCaminhoModulo(const std::string& modulo, std::string& caminho);

  // Says for people why these lookups fail for a module, and what to do: English, UTF-8. Throws std::bad_alloc.
  static std::string PorQueFalta(const std::string& modulo);
};

}  // namespace kestor
