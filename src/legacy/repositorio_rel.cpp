#include "legacy/repositorio_rel.h"

#include <algorithm>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "legacy/catalogo_campos.h"

namespace kestor {

namespace {

// As many as a call can carry, and far more than any catalogue has.
constexpr std::size_t kMaxCampos = kMaxConteudo / sizeof(tagREG_CAMPOS_RELATORIO);

}  // namespace

CRepositorioRel::CRepositorioRel(IUnknown* externo, Servidor& servidor)
    : ObjetoAgregavel(externo, servidor), servidor_(servidor) {}

HRESULT CRepositorioRel::Inicializa(BSTR /*bNomeEmpresa*/, BSTR bModulo, BSTR bComponente) {
  conteudoPendente_.reset();
  caminhoRelatorios_.reset();
  caminhoModulo_.reset();
  camposPendentes_.reset();

  const std::string modulo = TextoDeBstr(bModulo);
  std::string relatorios;
  std::string instalacao;
  std::uint32_t falha = CCaminhosInstalacao::BuscaCaminhoRelatorios(relatorios);
  if (falha == 0) falha = CCaminhosInstalacao::BuscaCaminhoModulo(modulo, instalacao);
  if (falha != 0) {
    DizRazao(CCaminhosInstalacao::PorQueFalta(modulo));
    return ServiceError(falha);
  }
  caminhoRelatorios_ = std::move(relatorios);
  caminhoModulo_ = std::move(instalacao);
  modulo_ = ModuloRel(modulo);
  componente_ = ComponenteRel(TextoDeBstr(bComponente));
  return S_OK;
}

Mudanca CRepositorioRel::MudancaDe(const char* metodo) const {
  return {.classe = "ZNPL_Rel", .metodo = metodo, .modulo = modulo_, .componente = componente_};
}

// Returns what the path of every file of the store begins with.
std::string CRepositorioRel::Prefixo() const {
  return caminhoRelatorios_.value_or("") + modulo_ + componente_;
}

HRESULT CRepositorioRel::BuscaQdeCamposArquivo(LONG* lQde) {
  if (lQde == nullptr) return E_POINTER;
  if (componente_.empty()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  *lQde = 0;
  CCatalogoCampos catalogo;
  const HRESULT leitura = catalogo.Le(CaminhoCatalogo(caminhoModulo_.value_or(""), modulo_, componente_));
  if (catalogo.Aberto()) conteudoPendente_.reset();
  if (leitura != S_OK) {
    if (!catalogo.Aberto()) return leitura;
    conteudoPendente_ = catalogo.Conteudo();
    *lQde = catalogo.Comprimento();
    return leitura;
  }
  camposPendentes_.reset();
  const std::size_t quantidade = catalogo.Quantidade(kMaxCampos + 1);
  if (quantidade > kMaxCampos) {
    DizRazao("the field catalogue has more than the " + std::to_string(kMaxCampos) + " lines that a call carries");
    return E_OUTOFMEMORY;
  }
  camposPendentes_ = std::make_unique_for_overwrite<tagREG_CAMPOS_RELATORIO[]>(quantidade);
  catalogo.Preenche(camposPendentes_.get(), quantidade);
  qdeCamposPendentes_ = static_cast<LONG>(quantidade);
  *lQde = qdeCamposPendentes_;
  return S_OK;
}

HRESULT CRepositorioRel::BuscaCampos(LONG lQde, tagREG_CAMPOS_RELATORIO* pDados) {
  if (camposPendentes_ == nullptr) return ErrorForm(KESTOR_NAO_BUSCOU_QTDE);
  if (lQde < 0 || lQde > qdeCamposPendentes_) return E_INVALIDARG;
  if (pDados == nullptr && lQde > 0) return E_POINTER;
  std::copy_n(camposPendentes_.get(), lQde, pDados);
  camposPendentes_.reset();
  return S_OK;
}

}  // namespace kestor
