// The store's record files: each record holds a name under the key of a module and component. Many stations share them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "common/nomes_arquivos.h"
#include "common/zn_arq_ex.h"

namespace kestor {

// Texts are NUL-terminated and filled up with zeros; longer ones are cut. Record 0 of a file is all zeros and
// belongs to no key.
struct RegistroNome {
  RegistroNome() = default;
  RegistroNome(std::string_view chaveModulo, std::string_view nomeRelatorio);

  // False for every key that is too long for a record: what is left of a key that was cut is another key.
  bool EDe(std::string_view chaveModulo) const;
  std::string_view Nome() const;

  char chave[kMaxChave + 1] = {};
  char nome[256] = {};
};
static_assert(sizeof(RegistroNome) == 264);

// Shows the records from number 1 on, in order, until `visita` answers false. The file is open for this process alone
// meanwhile, and is made with its first record when it is missing. Throws CFileException; a file of more than
// kMaxArquivoRegistros bytes is an invalid one. `soLeitura`: a missing file is not made and counts as an empty one.
void PercorreRegistros(const std::string& caminho, bool soLeitura,
                       const std::function<bool(std::uint32_t numero, const RegistroNome& registro)>& visita);

// Opens a record file for writing and makes it, with its first record, when it is missing. Returns a number of
// CZNArqEx; arquivoInvalido for a file of more than kMaxArquivoRegistros bytes.
std::uint32_t AbreParaGravar(CZNArqEx& arquivo, const std::string& caminho);

// Writes a record over the one of that number, or appends it (0); what is left of a record that was cut at the end
// becomes a record of zeros before. Returns a number of CZNArqEx; arquivoInvalido when the file would become longer
// than kMaxArquivoRegistros.
std::uint32_t GravaNome(CZNArqEx& arquivo, const RegistroNome& registro, std::uint32_t numeroRegistro);

}  // namespace kestor
