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

// The content of a catalogue file: the fields that reports can show, one line each, in columns at fixed positions.
// Every line is a field, even an empty one; nothing is rejected. The server only reads these files, anew each time: the
// applications install them.
//
// Lines end in LF. The byte before it is taken for the CR and dropped, whatever it is. What follows the last LF is a
// line as well. A NUL ends the catalogue, and its line does not count.
class CCatalogoCampos {
 public:
  // Reads a whole file while no other opener has it. Returns 0x80040001 if it cannot be opened, 0x80040002 if it cannot
  // be read whole or is longer than a call can carry.
  HRESULT Le(const std::string& caminho);

  // False while no file has been opened.
  bool Aberto() const { return aberto_; }

  // Returns the file's length; 2147483647 for a longer one.
  LONG Comprimento() const { return lido_.comprimento; }

  // Returns the bytes read. After 0x80040002 there are as many as the file has, with zeros for those that could not be
  // read, or none if the file is too long.
  const Bytes& Conteudo() const { return lido_.bytes; }

  // Returns the number of lines, at most `limite`.
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
