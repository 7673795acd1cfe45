// Model files: reading, writing, listing, deletion.

#include <cstring>

#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "legacy/repositorio_rel.h"

namespace kestor {

namespace {

// Passes over what cannot be opened, or deleted.
void ExcluiSeAbre(const std::string& caminho) {
  if (!ArquivoExiste(caminho)) return;
  try {
    CFile::Remove(caminho.c_str());
  } catch (const CFileException&) {
    // The file stays, as one that is in use does.
  }
}

}  // namespace

HRESULT CRepositorioRel::BuscaTamanhoRelatorio(BSTR bNomeArq, LONG* lQde) {
  if (lQde == nullptr) return E_POINTER;
  if (!caminhoRelatorios_) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  const std::string caminho = CaminhoRelLido(Prefixo(), TextoDeBstr(bNomeArq));
  *lQde = 0;
  CFile arquivo;
  if (!arquivo.Open(caminho.c_str(), kLeituraModelo)) return NoticeForm(KESTOR_ARQ_NAO_EXISTE);
  conteudoPendente_.reset();
  ConteudoLido lido = LeConteudo(arquivo);
  *lQde = lido.comprimento;
  conteudoPendente_ = std::move(lido.bytes);
  return lido.inteiro ? S_OK : ErrorForm(KESTOR_PROBLEMAS_AO_LER);
}

HRESULT CRepositorioRel::BuscaRelatorio(LONG lQde, unsigned char* pDados) {
  if (!conteudoPendente_) return ErrorForm(KESTOR_NAO_BUSCOU_QTDE);
  if (lQde < 0 || static_cast<std::size_t>(lQde) > conteudoPendente_->size()) return E_INVALIDARG;
  if (pDados == nullptr && lQde > 0) return E_POINTER;
  if (lQde > 0) std::memcpy(pDados, conteudoPendente_->data(), static_cast<std::size_t>(lQde));
  conteudoPendente_.reset();
  return S_OK;
}

HRESULT CRepositorioRel::GravaRelatorio(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) {
  if (lQde < 0 || (lQde > 0 && pDados == nullptr)) return E_INVALIDARG;
  const UINT modos = bSobreescrever == 0 ? files::mustBeNew : 0;
  const std::string_view conteudo(reinterpret_cast<const char*>(pDados), static_cast<std::size_t>(lQde));
  switch (GravaModelo(CaminhoRelGravado(Prefixo(), TextoDeBstr(bNomeArq)), modos, {}, conteudo)) {
    case Gravacao::feita:
      return S_OK;
    case Gravacao::jaExiste:
      return NoticeForm(KESTOR_ARQUIVO_JA_EXISTE);
    case Gravacao::grandeDemais:
      return E_INVALIDARG;
    case Gravacao::naoAberta:
      return ErrorForm(bSobreescrever == 0 ? KESTOR_PROBLEMAS_AO_CRIAR_ARQUIVO : KESTOR_PROBLEMAS_AO_GRAVAR);
    case Gravacao::naoFeita:
      break;
  }
  return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
}

HRESULT CRepositorioRel::GravaRelatorioSemCallBack(BSTR bNomeArq, LONG bSobreescrever, LONG lQde,
                                                   unsigned char* pDados) {
  return GravaRelatorio(bNomeArq, bSobreescrever, lQde, pDados);
}

HRESULT CRepositorioRel::BuscaNomeRelatoriosExistentes(BSTR* bNomes) {
  if (bNomes == nullptr) return E_POINTER;
  if (!caminhoRelatorios_) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  const std::vector<std::string> nomes = NomesDosModelos(MascaraRel(Prefixo()), modulo_.size() + componente_.size());
  if (nomes.empty()) return NoticeForm(KESTOR_NENHUM_ARQUIVO_ENCONTRADO);
  std::string texto = nomes.front();
  for (std::size_t i = 1; i < nomes.size(); ++i)
    texto += "|" + nomes[i];
  *bNomes = NovoBstr(texto).release();
  return S_OK;
}

HRESULT CRepositorioRel::ExcluiRelatorio(BSTR bNomeArq) {
  if (!caminhoRelatorios_) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  for (const std::string& caminho : CaminhosRelExcluidos(Prefixo(), TextoDeBstr(bNomeArq)))
    ExcluiSeAbre(caminho);
  return S_OK;
}

}  // namespace kestor
