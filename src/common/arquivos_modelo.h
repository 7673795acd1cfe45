// What the stores of both generations do with the files of their models.
#pragma once

#include <string>
#include <vector>

#include "platform/files/files.h"

namespace kestor {

// Whoever reads or writes a model has it alone; a model is written as a whole.
inline constexpr UINT kLeituraModelo = CFile::modeRead | CFile::shareCompat;
inline constexpr UINT kGravacaoModelo = CFile::modeCreate | CFile::modeWrite | CFile::shareCompat;

// Whether a file can be opened for reading at this moment.
bool ArquivoExiste(const std::string& caminho);

// The names of the models whose files are `pasta` + `codigos` + NAME + `extensao`, in the order of the folder's search.
// The codes are taken off by their length, and a name ends at its first dot.
std::vector<std::string> NomesDosModelos(const std::string& pasta, const std::string& codigos, const char* extensao);

}  // namespace kestor
