// What the stores of both generations do with the files of their models.
#pragma once

#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/files/files.h"

namespace kestor {

// A reader or writer has the model to itself. A model is written as a whole.
inline constexpr UINT kLeituraModelo = CFile::modeRead | CFile::shareCompat;
inline constexpr UINT kGravacaoModelo = CFile::modeCreate | CFile::modeWrite | CFile::shareCompat;

// Whether a file can be opened for reading at this moment; `*falha` (unless null) tells why not.
bool ArquivoExiste(const std::string& caminho, CFileException* falha = nullptr);

// Elements that are not set when they are made: what is read from a file need not be zeros before.
template <typename Elemento>
struct SemValorInicial : std::allocator<Elemento> {
  template <typename Outro>
  struct rebind {
    using other = SemValorInicial<Outro>;
  };
  template <typename Lugar, typename... Argumentos>
  void construct(Lugar* lugar, Argumentos&&... argumentos) {
    if constexpr (sizeof...(argumentos) == 0) {
      ::new (static_cast<void*>(lugar)) Lugar;
    } else {
      ::new (static_cast<void*>(lugar)) Lugar(std::forward<Argumentos>(argumentos)...);
    }
  }
};
using Bytes = std::vector<char, SemValorInicial<char>>;

// The content of a file.
struct ConteudoLido {
  bool inteiro = false;
  LONG comprimento = 0;  // of the file; 2147483647 for a longer one
  Bytes bytes;           // as many, zeros after those that came; none of a file above kMaxConteudo
};

// Reads an open file, that of the path, from its start. Says why when that is not all of it.
ConteudoLido LeConteudo(CFile& arquivo, const std::string& caminho);

enum class Gravacao {
  feita,
  jaExiste,      // must be new, and there is a file that can be opened
  grandeDemais,  // more than kMaxConteudo bytes, which nothing could read again
  naoAberta,     // cannot be created or opened; must be new, and there is a file that is in use
  naoFeita       // what was there is untouched
};

// Writes a model: `cabecalho` and `conteudo`, one after the other. `modos` go with kGravacaoModelo: nameAsGiven,
// mustBeNew. Says why when it is not done, unless there is such a model.
Gravacao GravaModelo(const std::string& caminho, UINT modos, std::string_view cabecalho, std::string_view conteudo);

// Returns the names of the models whose files match `mascara`, in the order of the folder's search. `codigos`:
// characters of the codes with which the files' names begin.
std::vector<std::string> NomesDosModelos(const std::string& mascara, std::size_t codigos);

// Returns the names of the files that match `mascara`, in the same order; none when the folder cannot be read.
std::vector<std::string> ArquivosDaMascara(const std::string& mascara);

}  // namespace kestor
