// Listing and deleting models, and the names of deleted demonstration models.

#include <algorithm>
#include <limits>
#include <new>
#include <unordered_set>
#include <utility>
#include <vector>

#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/campo_texto.h"
#include "contract/results.h"
#include "platform/text/text.h"
#include "resultado.h"
#include "store/registros.h"
#include "store/repositorio_rel2.h"

namespace kestor {

namespace {

using Nomes = std::vector<std::string>;

// A list has a 16-bit count.
constexpr std::size_t kMaxNomes = std::numeric_limits<USHORT>::max();

// Throws std::bad_alloc.
void Entrega(const Nomes& nomes, REG_ARRAY_RELATORIO2* lista) {
  const std::size_t quantidade = std::min(nomes.size(), kMaxNomes);
  auto entradas = NewTaskBlock<tagREG_NOME_RELATORIO2>(quantidade * sizeof(tagREG_NOME_RELATORIO2));
  for (std::size_t i = 0; i < quantidade; ++i) {
    tagREG_NOME_RELATORIO2& entrada = entradas.get()[i];
    entrada = {};
    PreencheCampo(entrada.szNomeRelatorio, nomes[i]);
  }
  lista->nQtdeRelatorios = static_cast<USHORT>(quantidade);
  lista->pregRelatorios = entradas.release();
}

HRESULT ExcluiArquivo(const std::string& caminho) {
  return ResultadoDe("deleted", [&caminho] {
    CFile arquivo;
    CFileException falha;
    if (!arquivo.Open(caminho.c_str(), kLeituraModelo, &falha)) throw falha;
    arquivo.Close();
    CFile::Remove(caminho.c_str());
    return S_OK;
  });
}

}  // namespace

HRESULT CRepositorioRel2::GetNomeRelatorios(REG_ARRAY_RELATORIO2** ppregRelatorios) {
  if (ppregRelatorios == nullptr) return E_POINTER;
  *ppregRelatorios = nullptr;
  if (!Inicializado()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);

  try {
    return ListaModelos(ppregRelatorios);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CRepositorioRel2::ListaModelos(REG_ARRAY_RELATORIO2** ppregRelatorios) {
  Nomes nomes = NomesDosModelos(MascaraRelatorio(Prefixo()), chaveModulo_.size());
  if (nomes.empty()) {
    DizRazaoSePastaFalta(caminhoRelatorios_);
    return S_OK;
  }
  RetiraExcluidos(nomes);

  auto lista = NewTaskBlock<REG_ARRAY_RELATORIO2>(sizeof(REG_ARRAY_RELATORIO2));
  Entrega(nomes, lista.get());
  *ppregRelatorios = lista.release();
  return S_OK;
}

// Removes the deleted demonstration models from a listing; none if their names cannot be read.
void CRepositorioRel2::RetiraExcluidos(std::vector<std::string>& nomes) {
  REG_ARRAY_RELATORIO2 lista{};
  const HRESULT resultado = GetNomeRelatoriosDemonstracaoExcluidos(&lista);
  const TaskBlock<tagREG_NOME_RELATORIO2> entradas(lista.pregRelatorios);
  if (resultado != S_OK || lista.nQtdeRelatorios == 0) return;
  std::unordered_set<std::string> excluidos;
  for (USHORT i = 0; i < lista.nQtdeRelatorios; ++i)
    excluidos.insert(text::Upper(entradas.get()[i].szNomeRelatorio));
  std::erase_if(nomes, [&excluidos](const std::string& nome) { return excluidos.contains(text::Upper(nome)); });
}

HRESULT CRepositorioRel2::ExcluiRelatorio(BSTR nome, char bModeloDemo, char* result) {
  return servidor_.Executa(MudancaDe("ExcluiRelatorio"), nome, [&] { return ExcluiModelo(nome, bModeloDemo, result); });
}

HRESULT CRepositorioRel2::ExcluiModelo(BSTR nome, char bModeloDemo, char* result) {
  if (result == nullptr) return E_POINTER;
  *result = 0;
  if (!Inicializado()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);

  const std::string texto = TextoDeBstr(nome);
  const HRESULT exclusao = ExcluiArquivo(CaminhoRelatorioGravado(Prefixo(), texto));
  if (exclusao != S_OK) return exclusao;
  *result = 1;
  // The model is deleted, whether or not the record files can be updated.
  const auto tenta = [](const auto& passo) {
    try {
      passo();
    } catch (const std::bad_alloc&) {
      // A failure would tell the client that the model still exists.
    }
  };
  if (bModeloDemo != 0) tenta([&] { RegistraModeloDemoExcluido(texto); });
  tenta([&] {
    const std::string antes = RazaoDita();
    EsqueceRazao();
    EsquecePadrao(nome);
    JuntaRazao(antes);
  });
  return S_OK;
}

// Clears the default report if it is this model; the names must be equal in letter case too.
void CRepositorioRel2::EsquecePadrao(BSTR nome) {
  BSTR padrao = nullptr;
  const HRESULT resultado = GetRelatorioPadrao(&padrao);
  const OwnedBstr dono(padrao);
  const bool eEste = (nome == nullptr) == (padrao == nullptr) && VisaoDeBstr(nome) == VisaoDeBstr(padrao);
  if (resultado == S_OK && eEste) SetRelatorioPadrao(nullptr);
}

HRESULT CRepositorioRel2::RegistraModeloDemoExcluido(const std::string& nome) {
  const RegistroNome registro(chaveModulo_, nome);
  constexpr std::uint32_t kNoFim = 0;
  CZNArqEx arquivo;
  std::uint32_t numero = AbreParaGravar(arquivo, arquivoExcluidos_);
  if (numero == CZNArqEx::semErro) numero = GravaNome(arquivo, registro, kNoFim);
  if (numero == CZNArqEx::semErro) numero = arquivo.Fecha();
  if (numero == CZNArqEx::semErro) return S_OK;
  DizRazao("written", arquivo, numero);
  return ServiceError(numero);
}

HRESULT CRepositorioRel2::GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* pregRelatorios) {
  if (pregRelatorios == nullptr) return E_POINTER;
  *pregRelatorios = {};
  if (!Inicializado()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);

  Nomes nomes;
  const HRESULT resultado = ResultadoDe("read", [&] {
    Nomes lidos;
    PercorreRegistros(arquivoExcluidos_, modo_ == Modo::ensaio, [&](std::uint32_t, const RegistroNome& registro) {
      if (registro.EDe(chaveModulo_)) lidos.emplace_back(registro.Nome());
      return lidos.size() < kMaxNomes;
    });
    nomes = std::move(lidos);
    return S_OK;
  });
  if (resultado != S_OK || nomes.empty()) return resultado;
  try {
    Entrega(nomes, pregRelatorios);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

}  // namespace kestor
