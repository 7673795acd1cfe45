// What the server's files are called, what their names say, and how large they may be. The extensions, and the rules
// for dots in the names of models, are known here and nowhere else.
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

// Bytes of a model's content: as much as a call carries beside a name and a few numbers. A longer file is not read.
inline constexpr std::size_t kMaxConteudo = (std::size_t{128} << 20) - 4096;

// Bytes of a record file or of the control file, which then has a million names. A longer file is none of this
// system's, and every station would wait while one of them searches it.
inline constexpr std::uint32_t kMaxArquivoRegistros = 32U << 20;

// Characters of the path of a shared data file, as many as the desktop platform takes.
inline constexpr std::size_t kMaxCaminho = 259;

// Characters that module and component code may have together: a record file has room for no more.
inline constexpr std::size_t kMaxChave = 7;

// ---- Codes ---------------------------------------------------------------------------------------------------------

// Module and component code as the first generation keeps them: the first 2 and the first 3 characters.
std::string ModuloRel(std::string_view modulo);
std::string ComponenteRel(std::string_view componente);

// ---- Models of the first generation --------------------------------------------------------------------------------
// The `prefixo` is the folder, the module code and the component code, with nothing in between. Each operation has a
// rule of its own for names with a dot; dots of the prefix never count.

inline constexpr std::string_view kExtensaoRel = ".REL";
inline constexpr std::string_view kExtensaoExportacao = ".REE";
inline constexpr std::string_view kExtensaoFiltro = ".REF";

// Returns the file that is read: a name with a dot brings its extension along.
std::string CaminhoRelLido(const std::string& prefixo, std::string_view nome);

// Returns the file that is written: a name counts up to its first dot. So it does for the two files beside the model.
std::string CaminhoRelGravado(const std::string& prefixo, std::string_view nome);
std::string CaminhoExportacao(const std::string& prefixo, std::string_view nome);
std::string CaminhoFiltro(const std::string& prefixo, std::string_view nome);

// Returns the file whose columns are updated. A name in which the extension stands, in any letter case, gets no other.
std::string CaminhoRelAtualizado(const std::string& prefixo, std::string_view nome);

// Returns the files that are deleted, in that order: the model and its export settings, or the one file that a name
// with a dot is.
std::vector<std::string> CaminhosRelExcluidos(const std::string& prefixo, std::string_view nome);

// Returns the name under which a store of the first generation reads, and deletes, the export settings of a model as if
// they were one. `nome`: a listed name, which has no dot.
std::string NomeDaExportacao(std::string_view nome);

// Return the masks with which a search of the folder finds the models, and the files beside them.
std::string MascaraRel(const std::string& prefixo);
std::string MascaraExportacao(const std::string& prefixo);
std::string MascaraFiltro(const std::string& prefixo);

// ---- Models of the second generation -------------------------------------------------------------------------------

inline constexpr std::string_view kExtensaoRelatorio = ".RXL";

// Returns the file that is read: what ends in the extension, in any letter case, is the file's path.
std::string CaminhoRelatorioLido(const std::string& prefixo, std::string_view nome);

// Returns the file that is written, deleted and made the default: a name with a dot brings its extension along.
std::string CaminhoRelatorioGravado(const std::string& prefixo, std::string_view nome);

// Returns the mask with which a search of the folder finds the models.
std::string MascaraRelatorio(const std::string& prefixo);

// Tells which file a name is written to, in a form that is the same for all names of that file: letter case, an
// extension that is given or not, and blanks and dots at the end make no difference to the platform.
std::string ChaveRelatorio(std::string_view nome);

// ---- What names say ------------------------------------------------------------------------------------------------

// Returns the model's name in the name of a file that a search has found: what follows the `codigos` characters of the
// codes, up to the first dot.
std::string_view NomeDoModelo(std::string_view arquivo, std::size_t codigos);

// Cuts a name at its first dot.
std::string_view AntesDoPonto(std::string_view nome);

// False for a name that leads out of the reports folder.
bool FicaNaPasta(std::string_view nome);

// The two parts of a path. The folder ends in its backslash; both are empty for a path without one.
std::string_view PastaDoCaminho(std::string_view caminho);
std::string_view NomeDoArquivo(std::string_view caminho);

// ---- Other files ---------------------------------------------------------------------------------------------------

// The field catalogue, in the folder of the module. It has no extension when the codes have a dot.
std::string CaminhoCatalogo(const std::string& pasta, std::string_view modulo, std::string_view componente);

// The record files of the reports folder: default reports, and names of deleted demonstration models.
std::string CaminhoPadroes(const std::string& pasta);
std::string CaminhoExcluidos(const std::string& pasta);

// The control file of a folder with shared data files.
std::string CaminhoControle(std::string_view pasta);

}  // namespace kestor
