// The field catalogue of a module's component.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/arquivos_modelo.h"
#include "contract/records.h"
#include "platform/com/com.h"

namespace kestor {

// What one reading of a catalogue file gave: the fields that reports can show, a line each, in columns of fixed
// positions. Every line is a field, also an empty one; nothing is rejected. Read only and afresh each time: the
// applications install these files.
//
// Lines end in LF; the byte in front of it is taken for the CR and dropped, whatever it is. What follows the last LF is
// a line as well. A NUL ends the catalogue, and the line in which it stands does not count.
class CCatalogoCampos {
 public:
  // Reads a file, whole and alone: 0x80040001 when it cannot be opened, 0x80040002 when it is not read whole or longer
  // than a call can carry.
  HRESULT Le(const std::string& caminho);

  // False while no file has been opened.
  bool Aberto() const { return aberto_; }

  // The file's length; 2147483647 for a longer one.
  LONG Comprimento() const { return lido_.comprimento; }

  // The bytes read; after 0x80040002 as many as the file was long, zeros after those that came, or none of a file that
  // is too long.
  const Bytes& Conteudo() const { return lido_.bytes; }

  // The number of lines, `limite` at most.
  std::size_t Quantidade(std::size_t limite) const { return std::min(limite, linhas_); }

  // Fills one record for each of the first `quantidade` lines.
  void Preenche(tagREG_CAMPOS_RELATORIO* registros, std::size_t quantidade) const;
  void Preenche(tagREG_CAMPOS_RELATORIO2* registros, std::size_t quantidade) const;

 private:
  bool aberto_ = false;
  ConteudoLido lido_;
  const char* nulo_ = nullptr;  // the first NUL, which ends the catalogue
  std::size_t linhas_ = 0;
};

}  // namespace kestor
