// Reading and writing model files.

#include <algorithm>
#include <cstring>
#include <new>

#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "platform/text/text.h"
#include "store/repositorio_rel2.h"

namespace kestor {

namespace {

constexpr std::size_t kBytesVersao = sizeof(USHORT);

}  // namespace

HRESULT CRepositorioRel2::Le(BSTR bsRelatorio, REG_RELATORIO2** ppregRelatorio) {
  if (ppregRelatorio == nullptr) return E_POINTER;
  *ppregRelatorio = nullptr;
  if (!Inicializado()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);

  const std::string caminho = CaminhoRelatorioLido(Prefixo(), TextoDeBstr(bsRelatorio));
  CFile arquivo;
  CFileException falha;
  if (!arquivo.Open(caminho.c_str(), kLeituraModelo, &falha)) {
    DizRazao("read", falha);
    return NoticeForm(KESTOR_ARQ_NAO_EXISTE);
  }
  try {
    const ULONGLONG tamanho = arquivo.GetLength();
    if (tamanho < kBytesVersao || tamanho - kBytesVersao > kMaxConteudo) {
      const char* const limite = tamanho < kBytesVersao ? "at least " : "at most ";
      DizRazao("read", caminho,
               std::string("a model has ") + limite +
                   std::to_string(kBytesVersao + (tamanho < kBytesVersao ? 0 : kMaxConteudo)) + " bytes, and it has " +
                   std::to_string(tamanho));
      return ErrorForm(KESTOR_PROBLEMAS_AO_LER);
    }
    const auto bytes = static_cast<UINT>(tamanho);
    auto registro = NewTaskBlock<REG_RELATORIO2>(sizeof(REG_RELATORIO2));
    auto conteudo = NewTaskBlock<std::uint8_t>(bytes);

    // Reads everything into the client's block at once and moves the content over the version: a second read from an
    // odd offset costs several times the move.
    if (arquivo.Read(conteudo.get(), bytes) != bytes) {
      DizRazao("read", caminho, "another program has cut it meanwhile");
      return ErrorForm(KESTOR_PROBLEMAS_AO_LER);
    }
    arquivo.Close();
    std::memcpy(&registro->nVersao, conteudo.get(), kBytesVersao);
    std::memmove(conteudo.get(), conteudo.get() + kBytesVersao, bytes - kBytesVersao);
    registro->nQtdeBytes = static_cast<LONG>(bytes - kBytesVersao);
    registro->lpRelatorio = conteudo.release();
    *ppregRelatorio = registro.release();
    return S_OK;
  } catch (const CFileException& naLeitura) {
    DizRazao("read", naLeitura);
    return ErrorForm(KESTOR_PROBLEMAS_AO_LER);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

bool CRepositorioRel2::DemonstracaoExcluida(const std::string& nome) {
  REG_ARRAY_RELATORIO2 excluidos{};
  const HRESULT resultado = GetNomeRelatoriosDemonstracaoExcluidos(&excluidos);
  const TaskBlock<tagREG_NOME_RELATORIO2> nomes(excluidos.pregRelatorios);
  if (resultado != S_OK) return false;
  for (USHORT i = 0; i < excluidos.nQtdeRelatorios; ++i) {
    if (text::EqualNoCase(nome, nomes.get()[i].szNomeRelatorio)) return true;
  }
  return false;
}

// Returns what Grava would, as far as that can be known without writing.
HRESULT CRepositorioRel2::EnsaiaGravacao(const std::string& caminho, bool deveSerNovo) {
  const bool existe = GetFileAttributesA(caminho.c_str()) != INVALID_FILE_ATTRIBUTES;
  if (deveSerNovo && ArquivoExiste(caminho)) return NoticeForm(KESTOR_ARQUIVO_JA_EXISTE);
  const DWORD falha = deveSerNovo && existe ? DWORD{ERROR_FILE_EXISTS} : files::ReplacementError(caminho.c_str());
  if (falha == ERROR_SUCCESS) return S_OK;
  DizRazao("written", CFileException::FromOsError(falha, caminho));
  return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
}

HRESULT CRepositorioRel2::Grava(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                                unsigned char* lpRelatorio) {
  Mudanca mudanca = MudancaDe("Grava");
  mudanca.bytes = static_cast<std::size_t>(std::max<LONG>(nTamanho, 0));
  return servidor_.Executa(mudanca, bsRelatorio,
                           [&] { return GravaModelo2(bsRelatorio, nVersao, flagGravacao, nTamanho, lpRelatorio); });
}

HRESULT CRepositorioRel2::GravaModelo2(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                                       unsigned char* lpRelatorio) {
  if (!Inicializado()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  if (nTamanho < 0) return E_INVALIDARG;
  if (nTamanho > 0 && lpRelatorio == nullptr) return E_POINTER;

  const std::string nome = TextoDeBstr(bsRelatorio);
  const std::string caminho = CaminhoRelatorioGravado(Prefixo(), nome);
  const bool deveSerNovo = (flagGravacao & KESTOR_NaoSobreescrever) != 0;
  if ((flagGravacao & KESTOR_VerificarModelosDemoExcluidos) != 0) {
    if (deveSerNovo && ArquivoExiste(caminho)) return NoticeForm(KESTOR_ARQUIVO_JA_EXISTE);
    if (DemonstracaoExcluida(nome)) return NoticeForm(KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO);
  }
  if (modo_ == Modo::ensaio) return EnsaiaGravacao(caminho, deveSerNovo);
  // Content and letter case of the name change together or not at all: after a failure the client finds the old model
  // under its old name.
  const UINT modos = files::nameAsGiven | (deveSerNovo ? files::mustBeNew : 0);
  const std::string_view versao(reinterpret_cast<const char*>(&nVersao), kBytesVersao);
  const std::string_view conteudo(reinterpret_cast<const char*>(lpRelatorio), static_cast<std::size_t>(nTamanho));
  switch (GravaModelo(caminho, modos, versao, conteudo)) {
    case Gravacao::feita:
      return S_OK;
    case Gravacao::grandeDemais:
      if (!deveSerNovo || !ArquivoExiste(caminho)) return E_INVALIDARG;
      [[fallthrough]];
    case Gravacao::jaExiste:
      // A recorded reason is about the size, or the list of deleted models.
      EsqueceRazao();
      return NoticeForm(KESTOR_ARQUIVO_JA_EXISTE);
    default:
      return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
  }
}

}  // namespace kestor
