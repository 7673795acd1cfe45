// The files next to a model: export settings and filter.

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "common/zn_arq_ex.h"
#include "contract/results.h"
#include "legacy/repositorio_rel.h"

namespace kestor {

namespace {

// Bytes of the record that are stored: all but the pointer at its end.
constexpr UINT kBytesExportacao = offsetof(tagREG_RELEXPORTACAO, pregItens);
constexpr UINT kBytesItem = sizeof(tagREG_RELEXPORTACAO_ITEM);

struct CabecalhoFiltro {
  std::uint32_t versao = 0;
  std::uint32_t entradas = 0;
};
constexpr UINT kBytesEntrada = sizeof(tagCAMPO_FILTRO);

// Reads a block for a client, filled up with zeros after the end of the file. Throws std::bad_alloc.
template <typename Item>
TaskBlock<Item> LeBloco(CFile& arquivo, UINT bytes) {
  auto bloco = NewTaskBlock<Item>(bytes);
  const UINT lidos = arquivo.Read(bloco.get(), bytes);
  std::memset(reinterpret_cast<char*>(bloco.get()) + lidos, 0, bytes - lidos);
  return bloco;
}

// Replaces the whole content of a file in place, because other stations may be reading it. On failure the old content
// is written back: the file is truncated last, when everything else has succeeded.
void RegravaNoLugar(CFile& arquivo, const std::vector<char>& novo) {
  const ULONGLONG comprimento = arquivo.GetLength();
  std::vector<char> antigo(std::min<std::size_t>(novo.size(), comprimento));
  antigo.resize(arquivo.Read(antigo.data(), static_cast<UINT>(antigo.size())));
  try {
    arquivo.SeekToBegin();
    arquivo.Write(novo.data(), static_cast<UINT>(novo.size()));
    arquivo.Flush();
    if (novo.size() < comprimento) arquivo.SetLength(novo.size());
  } catch (const CFileException&) {
    arquivo.SeekToBegin();
    arquivo.Write(antigo.data(), static_cast<UINT>(antigo.size()));
    if (novo.size() > comprimento) arquivo.SetLength(comprimento);
    throw;
  }
}

}  // namespace

HRESULT CRepositorioRel::GravaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO regExportacao) {
  Mudanca mudanca = MudancaDe("GravaDadosExportacaoDoRelatorio");
  mudanca.bytes = kBytesExportacao + regExportacao.iQtdeItens * kBytesItem;
  return servidor_.Executa(mudanca, bsRelatorio, [&] { return GravaExportacao(bsRelatorio, regExportacao); });
}

HRESULT CRepositorioRel::GravaExportacao(BSTR bsRelatorio, const tagREG_RELEXPORTACAO& regExportacao) const {
  if (regExportacao.iQtdeItens > 0 && regExportacao.pregItens == nullptr) return E_INVALIDARG;
  try {
    CFile arquivo;
    CFileException falha;
    const std::string caminho = CaminhoExportacao(Prefixo(), TextoDeBstr(bsRelatorio));
    if (!arquivo.Open(caminho.c_str(), kGravacaoModelo, &falha)) throw falha;
    arquivo.Write(&regExportacao, kBytesExportacao);
    arquivo.Write(regExportacao.pregItens, regExportacao.iQtdeItens * kBytesItem);
    arquivo.Close();
    return S_OK;
  } catch (const CFileException& falha) {
    DizRazao("written", falha);
    return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
  }
}

HRESULT CRepositorioRel::BuscaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO** pregExportacao) {
  if (pregExportacao == nullptr) return E_POINTER;
  try {
    CFile arquivo;
    CFileException falha;
    const std::string caminho = CaminhoExportacao(Prefixo(), TextoDeBstr(bsRelatorio));
    if (!arquivo.Open(caminho.c_str(), kLeituraModelo, &falha)) throw falha;
    auto registro = NewTaskBlock<tagREG_RELEXPORTACAO>(sizeof(tagREG_RELEXPORTACAO));
    if (const UINT lidos = arquivo.Read(registro.get(), kBytesExportacao); lidos != kBytesExportacao) {
      DizRazao("read", caminho,
               "export settings have at least " + std::to_string(kBytesExportacao) + " bytes, and it has " +
                   std::to_string(lidos));
      return ErrorForm(KESTOR_PROBLEMAS_AO_LER);
    }
    auto itens = LeBloco<tagREG_RELEXPORTACAO_ITEM>(arquivo, registro->iQtdeItens * kBytesItem);
    arquivo.Close();
    registro->pregItens = itens.release();
    *pregExportacao = registro.release();
    return S_OK;
  } catch (const CFileException& falha) {
    DizRazao("read", falha);
    return ErrorForm(KESTOR_PROBLEMAS_AO_LER);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CRepositorioRel::GravaFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO* pregFiltro) {
  Mudanca mudanca = MudancaDe("GravaFiltroRelatorio");
  if (pregFiltro != nullptr) mudanca.bytes = sizeof(CabecalhoFiltro) + pregFiltro->nQtdCampos * kBytesEntrada;
  return servidor_.Executa(mudanca, bsRelatorio, [&] { return GravaFiltro(bsRelatorio, pregFiltro); });
}

HRESULT CRepositorioRel::GravaFiltro(BSTR bsRelatorio, const tagFILTRO_RELATORIO* pregFiltro) const {
  if (pregFiltro == nullptr) return E_POINTER;
  const std::size_t bytesEntradas = std::size_t{pregFiltro->nQtdCampos} * kBytesEntrada;
  if (bytesEntradas > 0 && pregFiltro->pregValoresFiltro == nullptr) return E_INVALIDARG;
  const CabecalhoFiltro cabecalho = {1, pregFiltro->nQtdCampos};
  std::vector<char> conteudo(sizeof cabecalho + bytesEntradas);
  std::memcpy(conteudo.data(), &cabecalho, sizeof cabecalho);
  if (bytesEntradas > 0) {
    std::memcpy(conteudo.data() + sizeof cabecalho, pregFiltro->pregValoresFiltro, bytesEntradas);
  }

  CZNArqEx arquivo;
  const std::uint32_t numero = arquivo.Abre(CaminhoFiltro(Prefixo(), TextoDeBstr(bsRelatorio)), 'G', 1, true, true);
  if (numero != CZNArqEx::semErro) {
    DizRazao("written", arquivo, numero);
    return ServiceError(numero);
  }
  try {
    RegravaNoLugar(arquivo, conteudo);
  } catch (const CFileException& falha) {
    DizRazao("written", falha);
    return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
  }
  arquivo.Fecha();
  return S_OK;
}

HRESULT CRepositorioRel::LeFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO** ppregFiltro) {
  if (ppregFiltro == nullptr) return E_POINTER;
  CZNArqEx arquivo;
  const std::uint32_t numero = arquivo.Abre(CaminhoFiltro(Prefixo(), TextoDeBstr(bsRelatorio)), 'L', 1, false, false);
  if (numero != CZNArqEx::semErro) {
    DizRazao("read", arquivo, numero);
    return ServiceError(numero);
  }
  try {
    CabecalhoFiltro cabecalho;
    arquivo.Read(&cabecalho, sizeof cabecalho);
    auto registro = NewTaskBlock<tagFILTRO_RELATORIO>(sizeof(tagFILTRO_RELATORIO));
    // Reads no more entries than the record's 16-bit count can announce, whatever the file says.
    registro->nQtdCampos = static_cast<std::uint16_t>(cabecalho.entradas);
    registro->pregValoresFiltro = LeBloco<tagCAMPO_FILTRO>(arquivo, registro->nQtdCampos * kBytesEntrada).release();
    *ppregFiltro = registro.release();
  } catch (const CFileException& falha) {
    DizRazao("read", falha);
    return ErrorForm(KESTOR_PROBLEMAS_AO_LER);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  arquivo.Fecha();
  return S_OK;
}

}  // namespace kestor
