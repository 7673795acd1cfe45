// Operations on model files that the stores of both generations share.
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

// Returns true if the file can be opened for reading at this moment. Otherwise `*falha` (unless null) has the reason.
bool ArquivoExiste(const std::string& caminho, CFileException* falha = nullptr);

// An allocator that leaves new elements uninitialised: a buffer for a file's content need not be zeroed first.
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
  Bytes bytes;           // as many, with zeros for those that could not be read; none for a file above kMaxConteudo
};

// Reads the whole of a file that was just opened from `caminho`. Records the reason (razao.h) when it cannot.
ConteudoLido LeConteudo(CFile& arquivo, const std::string& caminho);

enum class Gravacao {
  feita,
  jaExiste,      // with mustBeNew: the file exists and can be opened
  grandeDemais,  // the content has more than kMaxConteudo bytes, and nothing could read it again
  naoAberta,     // the file cannot be created or opened; with mustBeNew also: it exists and is in use
  naoFeita       // writing failed; the old file is untouched
};

// Writes a model: `cabecalho`, then `conteudo`. `modos` (nameAsGiven, mustBeNew) are added to kGravacaoModelo. Records
// the reason (razao.h) of every failure but jaExiste.
Gravacao GravaModelo(const std::string& caminho, UINT modos, std::string_view cabecalho, std::string_view conteudo);

// Returns the names of the models whose files match `mascara`, in the order of the folder search. `codigos` is the
// number of characters that the module and component codes take at the start of the file names.
std::vector<std::string> NomesDosModelos(const std::string& mascara, std::size_t codigos);

// Returns the names of the files that match `mascara`, in the same order; none when the folder cannot be read.
std::vector<std::string> ArquivosDaMascara(const std::string& mascara);

}  // namespace kestor
