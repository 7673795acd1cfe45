#include "migration/conteudo_rel.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "common/texto_bstr.h"
#include "contract/campo_texto.h"
#include "migration/valor_fixo.h"

namespace kestor {

bool CConteudoRel::DefineRepositorio(IZNPL_Rel& repositorio) {
  if (repositorio_) return false;
  repositorio.AddRef();
  *repositorio_.Out() = &repositorio;
  return true;
}

// ---- Reading -------------------------------------------------------------------------------------------------------

HRESULT CConteudoRel::Carrega(const std::string& nome) {
  Esquece();
  if (!repositorio_) return S_OK;
  const OwnedBstr texto = NovoBstr(nome);
  const HRESULT resultado = CarregaConteudo(texto.get());
  if (resultado != S_OK) return resultado;
  completo_ = DecodificaConteudo(conteudo_, valores_);
  return CarregaExportacao(texto.get());
}

void CConteudoRel::Esquece() {
  valores_ = ValoresRel();
  completo_ = false;
  conteudo_.clear();
  itens_.reset();
  exportacao_.reset();
}

HRESULT CConteudoRel::CarregaConteudo(BSTR nome) {
  LONG tamanho = 0;
  const HRESULT resultado = repositorio_->BuscaTamanhoRelatorio(nome, &tamanho);
  if (resultado != S_OK || tamanho <= 0) return resultado;
  conteudo_.resize(static_cast<std::size_t>(tamanho));
  const HRESULT entrega = repositorio_->BuscaRelatorio(tamanho, reinterpret_cast<unsigned char*>(conteudo_.data()));
  if (FAILED(entrega)) conteudo_.clear();
  return FAILED(entrega) ? entrega : S_OK;
}

// Models without settings are common. But if memory runs out, the model has settings.
HRESULT CConteudoRel::CarregaExportacao(BSTR nome) {
  tagREG_RELEXPORTACAO* exportacao = nullptr;
  const HRESULT resultado = repositorio_->BuscaDadosExportacaoDoRelatorio(nome, &exportacao);
  if (resultado == E_OUTOFMEMORY) return resultado;
  if (FAILED(resultado) || exportacao == nullptr) return S_OK;
  exportacao_.reset(exportacao);
  itens_.reset(exportacao->pregItens);
  return S_OK;
}

HRESULT CConteudoRel::CarregaCatalogo() {
  catalogo_.reset();
  LONG quantidade = 0;
  const HRESULT leitura = repositorio_->BuscaQdeCamposArquivo(&quantidade);
  if (leitura != S_OK) return leitura;
  const auto catalogo = std::make_shared<Catalogo>();
  catalogo->campos.resize(static_cast<std::size_t>(std::max<LONG>(quantidade, 0)));
  const HRESULT entrega = repositorio_->BuscaCampos(quantidade, catalogo->campos.data());
  if (FAILED(entrega)) return entrega;
  for (std::size_t i = 0; i < catalogo->campos.size(); ++i) {
    const std::int32_t codigo = catalogo->campos[i].iCod;
    if (codigo < 0 || codigo > std::numeric_limits<std::uint16_t>::max()) continue;
    catalogo->lugares.emplace_back(static_cast<std::uint16_t>(codigo), i);
  }
  std::sort(catalogo->lugares.begin(), catalogo->lugares.end());
  catalogo_ = catalogo;
  return S_OK;
}

// ---- Export settings and catalogue ---------------------------------------------------------------------------------

std::size_t CConteudoRel::BytesExportacao() const {
  if (!exportacao_) return 0;
  return kBytesWithoutPointer<tagREG_RELEXPORTACAO> + exportacao_->iQtdeItens * sizeof(tagREG_RELEXPORTACAO_ITEM);
}

CConteudoRel::LinhaExportacao CConteudoRel::CabecalhoExportacao() const {
  if (!exportacao_) return {};
  return {std::string(TextoDoCampo(exportacao_->cCabDescricao)), exportacao_->iCabTamanho, exportacao_->cCabTipoCampo};
}

CConteudoRel::LinhaExportacao CConteudoRel::RodapeExportacao() const {
  if (!exportacao_) return {};
  return {std::string(TextoDoCampo(exportacao_->cRodapeDescricao)), exportacao_->iRodapeTamanho,
          exportacao_->cRodapeTipoCampo};
}

const tagREG_RELEXPORTACAO_ITEM* CConteudoRel::ItemExportacao(std::size_t posicao) const {
  const bool tem = exportacao_ && itens_ && posicao < exportacao_->iQtdeItens;
  return tem ? itens_.get() + posicao : nullptr;
}

// Returns the first of several records with the code.
const tagREG_CAMPOS_RELATORIO* CConteudoRel::CampoCatalogo(std::uint16_t codigo) const {
  if (!catalogo_) return nullptr;
  const auto& lugares = catalogo_->lugares;
  const auto lugar = std::lower_bound(lugares.begin(), lugares.end(), std::pair(codigo, std::size_t{0}));
  const bool tem = lugar != lugares.end() && lugar->first == codigo;
  return tem ? &catalogo_->campos[lugar->second] : nullptr;
}

bool CConteudoRel::BuscaCampoColuna(std::size_t posicao, tagREG_CAMPOS_RELATORIO& campo) const {
  const ColunaRel coluna = valores_.Coluna(posicao);
  if (coluna.codigo < 0) return false;
  if (coluna.Fixa()) {
    campo = {};
    campo.iCod = coluna.codigo;
    campo.cTipo = static_cast<char>(KESTOR_Alfanumerico);
    if (const tagREG_RELEXPORTACAO_ITEM* item = ItemExportacao(posicao)) {
      campo.cTipo = item->cTipo;
      static_assert(sizeof campo.cDescricao == sizeof item->cApelido && sizeof campo.cApelido == sizeof item->cApelido);
      std::memcpy(campo.cDescricao, item->cApelido, sizeof item->cApelido);
      std::memcpy(campo.cApelido, item->cApelido, sizeof item->cApelido);
    }
  } else {
    const tagREG_CAMPOS_RELATORIO* conhecido = CampoCatalogo(static_cast<std::uint16_t>(coluna.codigo));
    if (conhecido == nullptr) return false;
    campo = *conhecido;
  }
  campo.iTamanho = coluna.tamanho;
  campo.cAlinhamento = coluna.alinhamento;
  return true;
}

std::string CConteudoRel::BuscaConteudoFixo(std::size_t posicao) const {
  const tagREG_RELEXPORTACAO_ITEM* item = ItemExportacao(posicao);
  if (item == nullptr) return {};
  switch (item->cTipo) {
    case 'A':
    case 'F':
      return std::string(TextoDoCampo(item->cConteudo));
    case 'N':
      return SomenteDigitos(TextoDoCampo(item->cConteudo));
    case 'V':
      return FormataValor(TextoDoCampo(item->cConteudo));
    default:
      return {};
  }
}

}  // namespace kestor
