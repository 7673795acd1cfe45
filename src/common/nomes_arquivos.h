// The names of the server's files, what those names say, and how large the files may be. Nothing else knows the
// extensions and the rules for dots in model names.
//
// Texts are code page 1252, paths those of the desktop platform. A `pasta` ends in a backslash unless it is empty.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestor {

// ---- Limits --------------------------------------------------------------------------------------------------------

// The most bytes of a model's content: what a call can carry besides a name and a few numbers. A longer file is not
// read.
inline constexpr std::size_t kMaxConteudo = (std::size_t{128} << 20) - 4096;

// The most bytes of a record file or of the control file, which then has a million names. A longer file was not written
// by this system, and all other stations would wait while one station searches it.
inline constexpr std::uint32_t kMaxArquivoRegistros = 32U << 20;

// The most characters in the path of a shared data file: the desktop platform's limit.
inline constexpr std::size_t kMaxCaminho = 259;

// The most characters of module and component code together: the key of a record has room for no more.
inline constexpr std::size_t kMaxChave = 7;

// ---- Codes ---------------------------------------------------------------------------------------------------------

// Return a module and a component code as the first generation keeps them: their first 2 and first 3 characters.
std::string ModuloRel(std::string_view modulo);
std::string ComponenteRel(std::string_view componente);

// ---- Models of the first generation --------------------------------------------------------------------------------
// `prefixo` is the folder, the module code and the component code, with nothing in between. Each operation has a rule
// of its own for names with a dot. Dots in the prefix never count.

inline constexpr std::string_view kExtensaoRel = ".REL";
inline constexpr std::string_view kExtensaoExportacao = ".REE";
inline constexpr std::string_view kExtensaoFiltro = ".REF";

// Returns the path that is read. A name with a dot includes its extension.
std::string CaminhoRelLido(const std::string& prefixo, std::string_view nome);

// Return the path at which a model is written, and the paths of its export settings and its filter. A name counts up to
// its first dot.
std::string CaminhoRelGravado(const std::string& prefixo, std::string_view nome);
std::string CaminhoExportacao(const std::string& prefixo, std::string_view nome);
std::string CaminhoFiltro(const std::string& prefixo, std::string_view nome);

// Returns the path of the model whose columns are updated. A name that contains the extension anywhere, in any letter
// case, is not given another one.
std::string CaminhoRelAtualizado(const std::string& prefixo, std::string_view nome);

// Returns the paths that are deleted, in this order: the model and its export settings. A name with a dot stands for
// one file only.
std::vector<std::string> CaminhosRelExcluidos(const std::string& prefixo, std::string_view nome);

// Returns the name under which a first-generation store reads and deletes a model's export settings as if they were a
// model. `nome` is a listed name, which has no dot.
std::string NomeDaExportacao(std::string_view nome);

// Return the search masks for the models, their export settings and their filters.
std::string MascaraRel(const std::string& prefixo);
std::string MascaraExportacao(const std::string& prefixo);
std::string MascaraFiltro(const std::string& prefixo);

// ---- Models of the second generation -------------------------------------------------------------------------------

inline constexpr std::string_view kExtensaoRelatorio = ".RXL";

// Returns the path that is read. A path that already ends in the extension, in any letter case, is not given another.
std::string CaminhoRelatorioLido(const std::string& prefixo, std::string_view nome);

// Returns the path that is written, deleted or made the default. A name with a dot includes its extension.
std::string CaminhoRelatorioGravado(const std::string& prefixo, std::string_view nome);

// Returns the search mask for the models.
std::string MascaraRelatorio(const std::string& prefixo);

// Returns a key that is equal for all names that are written to the same file. Names may have the extension or lack it,
// and the platform ignores letter case and blanks and dots at the end.
std::string ChaveRelatorio(std::string_view nome);

// ---- What names say ------------------------------------------------------------------------------------------------

// Returns the model's name in a file name that a search has found: what follows the first `codigos` characters, those
// of the module and component codes, up to the first dot.
std::string_view NomeDoModelo(std::string_view arquivo, std::size_t codigos);

// Returns a name up to its first dot.
std::string_view AntesDoPonto(std::string_view nome);

// Returns false for a name with a separator or a colon, which could lead out of the reports folder.
bool FicaNaPasta(std::string_view nome);

// Return the two parts of a path. The folder ends in its backslash. Both are empty for a path without a backslash.
std::string_view PastaDoCaminho(std::string_view caminho);
std::string_view NomeDoArquivo(std::string_view caminho);

// ---- Other files ---------------------------------------------------------------------------------------------------

// Returns the path of the field catalogue in the module's folder. It has no extension if the codes have a dot.
std::string CaminhoCatalogo(const std::string& pasta, std::string_view modulo, std::string_view componente);

// Return the paths of the record files of the reports folder: default reports, and names of deleted demonstration
// models.
std::string CaminhoPadroes(const std::string& pasta);
std::string CaminhoExcluidos(const std::string& pasta);

// Returns the path of the control file of a folder with shared data files.
std::string CaminhoControle(std::string_view pasta);

}  // namespace kestor
