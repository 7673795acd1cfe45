// What the stores of both generations do with the files of their models.
#pragma once

#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/channel/channel.h"
#include "platform/files/files.h"

namespace kestor {

// Whoever reads or writes a model has it alone; a model is written as a whole.
inline constexpr UINT kLeituraModelo = CFile::modeRead | CFile::shareCompat;
inline constexpr UINT kGravacaoModelo = CFile::modeCreate | CFile::modeWrite | CFile::shareCompat;

// The longest content: as much as a call carries beside a name and a few numbers. A longer file is not read at all.
inline constexpr std::size_t kMaxConteudo = channel::kMaxPayloadBytes - 4096;

// Whether a file can be opened for reading at this moment.
bool ArquivoExiste(const std::string& caminho);

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
  Bytes bytes;           // as many, zeros behind those that came; none of a file above kMaxConteudo
};

// Reads an open file from its start.
ConteudoLido LeConteudo(CFile& arquivo);

enum class Gravacao {
  feita,
  jaExiste,   // must be new, and there is a file that can be opened
  naoAberta,  // cannot be created or opened; must be new, and there is a file that is in use
  naoFeita    // what was there is untouched
};

// Writes a model, the parts of its content one after the other. `modos` go with kGravacaoModelo: nameAsGiven,
// mustBeNew.
Gravacao GravaModelo(const std::string& caminho, UINT modos, std::initializer_list<std::string_view> partes);

// The names of the models whose files are `pasta` + `codigos` + NAME + `extensao`, in the order of the folder's search.
// The codes are taken off by their length, and a name ends at its first dot.
std::vector<std::string> NomesDosModelos(const std::string& pasta, const std::string& codigos, const char* extensao);

}  // namespace kestor
