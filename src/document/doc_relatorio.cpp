#include "document/doc_relatorio.h"

#include <initializer_list>
#include <new>

#include "common/texto_bstr.h"
#include "common/zn_exception.h"
#include "document/vocabulario.h"
#include "tratador_relatorio.h"

namespace kestor {

namespace {

constexpr const char* kSemMemoria = "memory ran out";

// Sets the code of each fixed column to its place among the fixed columns.
void NumeraColunasFixas(std::vector<CampoEscolhido>& campos) {
  std::uint16_t lugar = 0;
  for (CampoEscolhido& campo : campos) {
    if (campo.fixo) campo.codigo = ++lugar;
  }
}

// Returns where and why the reader failed; English.
std::string Lugar(IUnknown* erro) {
  ComPtr<IErroMarcacao> detalhes;
  if (erro == nullptr || FAILED(erro->QueryInterface(IID_IErroMarcacao, detalhes.OutVoid()))) return {};
  ULONG linha = 0;
  BSTR recebida = nullptr;
  if (FAILED(detalhes->BuscaLinha(&linha)) || FAILED(detalhes->BuscaDescricao(&recebida))) return {};
  const OwnedBstr descricao(recebida);
  return ", line " + std::to_string(linha) + ": " + TextoDeBstr(recebida);
}

HRESULT Analisa(IStream& conteudo, CTratadorRelatorio& tratador) {
  ComPtr<ILeitorMarcacao> leitor;
  const HRESULT criacao =
      CoCreateInstance(CLSID_LeitorMarcacao, nullptr, CLSCTX_ALL, IID_ILeitorMarcacao, leitor.OutVoid());
  if (FAILED(criacao)) return criacao;
  leitor->DefineTratador(&tratador);
  VARIANT fonte;
  VariantInit(&fonte);
  fonte.vt = VT_UNKNOWN;
  fonte.punkVal = &conteudo;
  const HRESULT resultado = leitor->Analisa(fonte);
  if (FAILED(resultado)) leitor->BuscaErro(tratador.RecebeErro());
  VariantClear(&fonte);
  return resultado;
}

}  // namespace

void CImpressaoCabecalho::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kImpressaoCabecalho, *this);
}

void CImpressaoDetalhe::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kImpressaoDetalhe, *this);
}

void CImpressaoRodape::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kImpressaoRodape, *this);
}

void CSecaoImpressao::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kImpressao, *this);
}

void CSecaoCampos::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kCamposEscolhidos, *this);
}

void CSecaoOrdenacao::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kOrdenacao, *this);
}

void CSecaoFiltro::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kFiltro, *this);
}

void CSecaoExportacao::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kExportacao, *this);
}

void CDocRelatorio::EscreveMarcacao(IEscritorMarcacao& escritor) const {
  EscritaElementos(escritor).Escreve(vocabulario::kRelatorio, *this);
}

void CDocRelatorio::Reinicia() {
  versao = kVersaoDocumento;
  dataInicial = 0;
  dataFinal = 0;
  for (CSecaoRelatorio* secao :
       std::initializer_list<CSecaoRelatorio*>{&impressao, &camposEscolhidos, &ordenacao, &filtro, &exportacao})
    secao->Reinicia();
}

bool CDocRelatorio::CarregaConteudo(const REG_RELATORIO2& conteudo, std::string* motivo) {
  if (conteudo.nVersao != kVersaoDocumento || conteudo.nQtdeBytes < 0) {
    if (motivo != nullptr)
      *motivo = "a content of version " + std::to_string(conteudo.nVersao) + " is no report document";
    return false;
  }
  HRESULT resultado = E_FAIL;
  try {
    CTratadorRelatorio tratador(*this);
    Reinicia();
    CMemStream bytes(conteudo.lpRelatorio, static_cast<ULONG>(conteudo.nQtdeBytes));
    resultado = Analisa(bytes, tratador);
    if (FAILED(resultado) && motivo != nullptr) *motivo = "its content is no report document" + Lugar(tratador.Erro());
  } catch (const ZN::CException&) {
    if (motivo != nullptr) *motivo = kSemMemoria;
  } catch (const std::bad_alloc&) {
    if (motivo != nullptr) *motivo = kSemMemoria;
  }
  NumeraColunasFixas(camposEscolhidos.campos);  // also those that were read before a failure
  return SUCCEEDED(resultado);
}

std::unique_ptr<CMemStream> CDocRelatorio::GeraConteudo() const {
  std::unique_ptr<CMemStream> conteudo(new (std::nothrow) CMemStream);
  if (!conteudo) return conteudo;
  try {
    ComPtr<IEscritorMarcacao> escritor;
    if (FAILED(
            CoCreateInstance(CLSID_EscritorMarcacao, nullptr, CLSCTX_ALL, IID_IEscritorMarcacao, escritor.OutVoid()))) {
      return conteudo;
    }
    escritor->DefineSaida(conteudo.get());
    escritor->IniciaDocumento();
    EscreveMarcacao(*escritor);
    escritor->FinalizaDocumento();
  } catch (const std::bad_alloc&) {
    // The writer fills the stream only at the end of the document: it is still empty.
  }
  return conteudo;
}

}  // namespace kestor
