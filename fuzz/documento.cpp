// Whatever the bytes of a stored content, it loads as a report document or is refused, and a loaded document can be
// written and read back unchanged.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "document/doc_relatorio.h"
#include "marcacao/componente_marcacao.h"

namespace {

using kestor::CDocRelatorio;

void Require(bool condition) {
  if (!condition) std::abort();
}

std::string Content(const CDocRelatorio& document) {
  const std::unique_ptr<kestor::CMemStream> stream = document.GeraConteudo();
  Require(stream != nullptr && stream->Size() != 0);
  return {reinterpret_cast<const char*>(stream->Buffer()), stream->Size()};
}

// Loads from a block of exactly the content's size, so that a sanitizer notices reads beyond it.
bool Load(CDocRelatorio& document, const void* content, std::size_t size) {
  const auto block = std::make_unique<std::uint8_t[]>(size);
  if (size != 0) std::memcpy(block.get(), content, size);
  return document.CarregaConteudo({kestor::kVersaoDocumento, static_cast<LONG>(size), block.get()});
}

// A margin is written with six decimals.
void RequireAlmost(float read, float again) {
  Require(std::fabs(double{read} - double{again}) <= 0.6e-6);
}

void RequireSame(CDocRelatorio& read, const CDocRelatorio& again) {
  RequireAlmost(read.impressao.margemEsquerda, again.impressao.margemEsquerda);
  RequireAlmost(read.impressao.margemSuperior, again.impressao.margemSuperior);
  read.impressao.margemEsquerda = again.impressao.margemEsquerda;
  read.impressao.margemSuperior = again.impressao.margemSuperior;
  // A total that is printed nowhere is not written.
  std::erase_if(read.ordenacao.totalizacoes, [](const auto& total) { return !total.naQuebra && !total.geral; });
  Require(read.versao == again.versao && read.nome == again.nome);
  Require(read.dataInicial == again.dataInicial && read.dataFinal == again.dataFinal);
  Require(read.impressao == again.impressao);
  Require(read.camposEscolhidos == again.camposEscolhidos);
  Require(read.ordenacao == again.ordenacao);
  Require(read.filtro == again.filtro);
  Require(read.exportacao == again.exportacao);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kestor::ComponenteMarcacao component;
  CDocRelatorio read;
  if (!Load(read, data, size)) return 0;
  const std::string written = Content(read);
  CDocRelatorio again;
  Require(Load(again, written.data(), written.size()));
  RequireSame(read, again);
  Require(Content(again) == written);
  return 0;
}
