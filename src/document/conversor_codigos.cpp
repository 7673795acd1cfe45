#include "document/conversor_codigos.h"

#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "common/nomes_arquivos.h"
#include "common/texto_bstr.h"
#include "contract/campo_texto.h"
#include "document/doc_relatorio.h"

namespace kestor {

namespace {

// Codes up to here are those of fixed columns; nothing is renumbered to one of them.
constexpr std::uint16_t kUltimoCodigoFixo = 99;

bool LeDocumento(IZNPL_Relatorio2& repositorio, std::string_view nome, CDocRelatorio& documento) {
  REG_RELATORIO2* recebido = nullptr;
  if (FAILED(repositorio.Le(NovoBstr(nome).get(), &recebido)) || recebido == nullptr) return false;
  const TaskBlock<REG_RELATORIO2> registro(recebido);
  const TaskBlock<std::uint8_t> conteudo(registro->lpRelatorio);
  return documento.CarregaConteudo(*registro);
}

bool GravaDocumento(IZNPL_Relatorio2& repositorio, BSTR nome, const CDocRelatorio& documento) {
  const std::unique_ptr<CMemStream> conteudo = documento.GeraConteudo();
  // Without content the document could not be written, and the stored one stays.
  if (!conteudo || conteudo->Size() == 0) return false;
  return repositorio.Grava(nome, kVersaoDocumento, KESTOR_Sobreescrever, static_cast<LONG>(conteudo->Size()),
                           conteudo->Buffer()) == S_OK;
}

}  // namespace

CConversorCodigos::CConversorCodigos(IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente,
                                     LONG quantidade, const REL_CODIGO_CAMPOS_ALTERADOS* pares)
    : CConversorModelos(repositorio, std::move(modulo), std::move(componente)) {
  if (!CarregaCatalogo()) return;
  for (LONG i = 0; i < quantidade; ++i) {
    const REL_CODIGO_CAMPOS_ALTERADOS par = pares[i];
    mapaCodigos_.insert_or_assign(std::uint16_t{par.nCodigoAntigo}, std::uint16_t{par.nNovoCodigo});
  }
}

bool CConversorCodigos::CarregaCatalogo() {
  REG_CAMPOS_DISPONIVEIS2* recebidos = nullptr;
  if (FAILED(Repositorio().GetCamposDisponiveis(&recebidos)) || recebidos == nullptr) return false;
  const TaskBlock<REG_CAMPOS_DISPONIVEIS2> registro(recebidos);
  const TaskBlock<tagREG_CAMPOS_RELATORIO2> campos(registro->pregCampos);
  for (std::size_t i = 0; i < registro->nQtdeCampos; ++i) {
    const tagREG_CAMPOS_RELATORIO2& campo = campos.get()[i];
    mapaCatalogo_.insert_or_assign(std::uint16_t{campo.nCodigo}, campo);
  }
  return true;
}

const tagREG_CAMPOS_RELATORIO2* CConversorCodigos::BuscaCampo(std::uint16_t codigo) const {
  const auto campo = mapaCatalogo_.find(codigo);
  return campo != mapaCatalogo_.end() ? &campo->second : nullptr;
}

bool CConversorCodigos::Renumera(std::uint16_t& codigo) const {
  const auto novo = mapaCodigos_.find(codigo);
  if (novo == mapaCodigos_.end() || novo->second <= kUltimoCodigoFixo) return false;
  codigo = novo->second;
  return true;
}

template <typename Registro>
void CConversorCodigos::AlteraLista(std::vector<Registro>& lista, char tagREG_CAMPOS_RELATORIO2::*permissao) const {
  for (Registro& registro : lista)
    Renumera(registro.codigo);
  std::erase_if(lista, [&](const Registro& registro) {
    const tagREG_CAMPOS_RELATORIO2* campo = BuscaCampo(registro.codigo);
    return campo != nullptr && campo->*permissao == 0;
  });
}

void CConversorCodigos::Altera(CDocRelatorio& documento) const {
  for (CampoEscolhido& coluna : documento.camposEscolhidos.campos) {
    if (!Renumera(coluna.codigo)) continue;
    if (const tagREG_CAMPOS_RELATORIO2* campo = BuscaCampo(coluna.codigo))
      coluna.cabecalho = TextoDoCampo(campo->szApelido);
  }
  AlteraLista(documento.ordenacao.campos, &tagREG_CAMPOS_RELATORIO2::bPodeOrdenar);
  AlteraLista(documento.ordenacao.totalizacoes, &tagREG_CAMPOS_RELATORIO2::bPodeTotalizar);
  AlteraLista(documento.filtro.condicoes, &tagREG_CAMPOS_RELATORIO2::bPodeFiltrar);
}

void CConversorCodigos::ConverteModelo(std::string_view nome) {
  try {
    const std::string lido = ChaveRelatorio(nome);
    if (gravados_.contains(lido)) return;
    CDocRelatorio documento;
    // A document may come from anywhere: the name that it bears must not lead out of the reports folder.
    if (!LeDocumento(Repositorio(), nome, documento) || !FicaNaPasta(documento.nome)) return;
    Altera(documento);
    const OwnedBstr destino = NovoBstr(documento.nome);
    const std::string gravado = ChaveRelatorio(documento.nome);
    const bool anotado = gravado != lido && gravados_.insert(gravado).second;
    if (!GravaDocumento(Repositorio(), destino.get(), documento) && anotado) gravados_.erase(gravado);
  } catch (const std::bad_alloc&) {
    // The model stays as it is; the others have their turn.
  }
}

}  // namespace kestor
