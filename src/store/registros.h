// The store's record files. Each record holds a name under the key of a module and component. Many stations share them.
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

// Calls `visita` for the records from number 1 on, in order, until it returns false. Meanwhile no other opener can have
// the file. A missing file is made with its first record; with `soLeitura` it is not made and counts as empty. Throws
// CFileException; a file of more than kMaxArquivoRegistros bytes is invalid.
void PercorreRegistros(const std::string& caminho, bool soLeitura,
                       const std::function<bool(std::uint32_t numero, const RegistroNome& registro)>& visita);

// Opens a record file for writing, and makes a missing one with its first record. Returns a number of
// CZNArqEx; arquivoInvalido for a file of more than kMaxArquivoRegistros bytes.
std::uint32_t AbreParaGravar(CZNArqEx& arquivo, const std::string& caminho);

// Overwrites the record of that number, or appends one (0). Before it appends, it turns a truncated last record into
// one of zeros. Returns a number of CZNArqEx; arquivoInvalido if the file would become longer than
// kMaxArquivoRegistros.
std::uint32_t GravaNome(CZNArqEx& arquivo, const RegistroNome& registro, std::uint32_t numeroRegistro);

}  // namespace kestor
