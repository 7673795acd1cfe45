#include "document/conversor_modelos.h"

#include <string_view>
#include <utility>
#include <vector>

#include "common/razao.h"
#include "common/texto_bstr.h"
#include "document/vocabulario.h"
#include "platform/text/text.h"

namespace kestor {

CConversorModelos::CConversorModelos(Servidor& servidor, const char* classe, const char* metodo,
                                     IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente)
    : servidor_(servidor),
      classe_(classe),
      metodo_(metodo),
      modulo_(std::move(modulo)),
      componente_(std::move(componente)) {
  repositorio.AddRef();
  *repositorio_.Out() = &repositorio;
}

Mudanca CConversorModelos::Chamada() const {
  return {.classe = classe_, .metodo = metodo_, .modulo = modulo_, .componente = componente_};
}

HRESULT CConversorModelos::Executa() {
  const Servidor::Guarda guarda(servidor_, Chamada());
  REG_ARRAY_RELATORIO2* recebida = nullptr;
  const HRESULT resultado = repositorio_->GetNomeRelatorios(&recebida);
  if (FAILED(resultado) || recebida == nullptr) return resultado;
  const TaskBlock<REG_ARRAY_RELATORIO2> lista(recebida);
  const TaskBlock<tagREG_NOME_RELATORIO2> entradas(lista->pregRelatorios);
  // Files whose names differ after a dot are listed as one name, one after the other: the model of that name must not
  // be converted twice.
  std::vector<std::string_view> nomes;
  for (std::size_t i = 0; i < lista->nQtdeRelatorios; ++i) {
    const std::string_view nome = entradas.get()[i].szNomeRelatorio;
    if (i == 0 || !text::EqualNoCase(nome, entradas.get()[i - 1].szNomeRelatorio)) nomes.push_back(nome);
  }
  Comeca(nomes.size());
  for (const std::string_view nome : nomes)
    ConverteModelo(nome);
  // What was said of single models says nothing of the call.
  EsqueceRazao();
  return resultado;
}

HRESULT CConversorModelos::Grava(const std::string& nome, KESTOR_FlagGravacao flag, const CMemStream& documento) const {
  const Servidor::Silencio silencio(servidor_);
  EsqueceRazao();
  return repositorio_->Grava(NovoBstr(nome).get(), kVersaoDocumento, static_cast<unsigned char>(flag),
                             static_cast<LONG>(documento.Size()), documento.Buffer());
}

void CConversorModelos::Comeca(std::size_t total) {
  feitos_ = 0;
  total_ = total;
}

void CConversorModelos::Relata(std::string_view nome, Destino destino, std::string razao, std::string_view antes,
                               std::string_view depois, bool substitui) noexcept {
  ++feitos_;
  EsqueceRazao();
  Mudanca mudanca = Chamada();
  mudanca.modelo = nome;
  mudanca.razao = std::move(razao);
  mudanca.destino = destino;
  mudanca.feitos = feitos_;
  mudanca.total = total_;
  mudanca.antes = antes;
  mudanca.depois = depois;
  mudanca.substitui = substitui;
  servidor_.Relata(std::move(mudanca));
}

}  // namespace kestor
