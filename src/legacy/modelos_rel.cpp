// Model files: reading, writing, listing, deletion.

#include <algorithm>
#include <cstring>

#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "legacy/repositorio_rel.h"

namespace kestor {

namespace {

// Deletes a file. One that cannot be deleted stays, and the reason is added to those recorded before.
Destino ExcluiSeAbre(const std::string& caminho) {
  try {
    CFile::Remove(caminho.c_str());
    return Destino::nenhum;
  } catch (const CFileException& falha) {
    if (falha.m_lOsError == ERROR_FILE_NOT_FOUND) return Destino::inalterado;
    const std::string antes = RazaoDita();
    DizRazao("deleted", falha);
    JuntaRazao(antes);
    return Destino::fica;
  }
}

}  // namespace

HRESULT CRepositorioRel::BuscaTamanhoRelatorio(BSTR bNomeArq, LONG* lQde) {
  if (lQde == nullptr) return E_POINTER;
  if (!caminhoRelatorios_) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  const std::string caminho = CaminhoRelLido(Prefixo(), TextoDeBstr(bNomeArq));
  *lQde = 0;
  CFile arquivo;
  CFileException falha;
  if (!arquivo.Open(caminho.c_str(), kLeituraModelo, &falha)) {
    DizRazao("read", falha);
    return NoticeForm(KESTOR_ARQ_NAO_EXISTE);
  }
  conteudoPendente_.reset();
  ConteudoLido lido = LeConteudo(arquivo, caminho);
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
  return GravaModeloRel("GravaRelatorio", bNomeArq, bSobreescrever != 0, lQde, pDados);
}

HRESULT CRepositorioRel::GravaRelatorioSemCallBack(BSTR bNomeArq, LONG bSobreescrever, LONG lQde,
                                                   unsigned char* pDados) {
  return GravaModeloRel("GravaRelatorioSemCallBack", bNomeArq, bSobreescrever != 0, lQde, pDados);
}

HRESULT CRepositorioRel::GravaModeloRel(const char* metodo, BSTR nome, bool sobreescreve, LONG bytes,
                                        const unsigned char* dados) {
  Mudanca mudanca = MudancaDe(metodo);
  mudanca.bytes = static_cast<std::size_t>(std::max<LONG>(bytes, 0));
  return servidor_.Executa(mudanca, nome, [&]() -> HRESULT {
    if (bytes < 0 || (bytes > 0 && dados == nullptr)) return E_INVALIDARG;
    const UINT modos = sobreescreve ? 0 : files::mustBeNew;
    const std::string_view conteudo(reinterpret_cast<const char*>(dados), static_cast<std::size_t>(bytes));
    switch (GravaModelo(CaminhoRelGravado(Prefixo(), TextoDeBstr(nome)), modos, {}, conteudo)) {
      case Gravacao::feita:
        return S_OK;
      case Gravacao::jaExiste:
        return NoticeForm(KESTOR_ARQUIVO_JA_EXISTE);
      case Gravacao::grandeDemais:
        return E_INVALIDARG;
      case Gravacao::naoAberta:
        return ErrorForm(sobreescreve ? KESTOR_PROBLEMAS_AO_GRAVAR : KESTOR_PROBLEMAS_AO_CRIAR_ARQUIVO);
      case Gravacao::naoFeita:
        break;
    }
    return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
  });
}

HRESULT CRepositorioRel::BuscaNomeRelatoriosExistentes(BSTR* bNomes) {
  if (bNomes == nullptr) return E_POINTER;
  if (!caminhoRelatorios_) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  const std::vector<std::string> nomes = NomesDosModelos(MascaraRel(Prefixo()), modulo_.size() + componente_.size());
  if (nomes.empty()) {
    DizRazaoSePastaFalta(*caminhoRelatorios_);
    return NoticeForm(KESTOR_NENHUM_ARQUIVO_ENCONTRADO);
  }
  std::string texto = nomes.front();
  for (std::size_t i = 1; i < nomes.size(); ++i)
    texto += "|" + nomes[i];
  *bNomes = NovoBstr(texto).release();
  return S_OK;
}

HRESULT CRepositorioRel::ExcluiRelatorio(BSTR bNomeArq) {
  return servidor_.Executa(MudancaDe("ExcluiRelatorio"), bNomeArq, [&](Mudanca& mudanca) -> HRESULT {
    if (!caminhoRelatorios_) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
    // The result is S_OK even if there is no file, or if a file stays.
    bool ficou = false;
    bool excluiu = false;
    for (const std::string& caminho : CaminhosRelExcluidos(Prefixo(), TextoDeBstr(bNomeArq))) {
      const Destino destino = ExcluiSeAbre(caminho);
      ficou = ficou || destino == Destino::fica;
      excluiu = excluiu || destino == Destino::nenhum;
    }
    if (ficou || !excluiu) mudanca.destino = ficou ? Destino::fica : Destino::inalterado;
    return S_OK;
  });
}

}  // namespace kestor
