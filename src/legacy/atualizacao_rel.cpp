// Margins, order and widths of a model's columns.

#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/campo_texto.h"
#include "contract/results.h"
#include "legacy/repositorio_rel.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

// Offsets in a model of the first layout, the only one that is updated; the others begin with the byte 1.
constexpr std::size_t kMargemEsquerda = 96;
constexpr std::size_t kMargemSuperior = 98;
constexpr std::size_t kColunas = 104;
constexpr std::size_t kBytesColuna = 9;
constexpr std::size_t kLarguraNaColuna = 4;
constexpr char kOutrosLayouts = 1;

constexpr UINT kAtualizacao = CFile::modeReadWrite | CFile::shareExclusive | files::wholeUpdate;

struct Coluna {
  std::int32_t codigo;
  std::int32_t largura;
  std::size_t ordem;
};

template <typename Numero>
Numero Le(const Bytes& conteudo, std::size_t posicao) {
  Numero numero;
  std::memcpy(&numero, conteudo.data() + posicao, sizeof numero);
  return numero;
}

template <typename Numero>
void Escreve(Numero numero, std::size_t posicao, Bytes* conteudo) {
  std::memcpy(conteudo->data() + posicao, &numero, sizeof numero);
}

// The caller's columns by field code: the first column of each code, and the position of the first that is no field.
class ColunasPedidas {
 public:
  ColunasPedidas(const REG_ATUALIZACAO_RELATORIO* pedidas, std::size_t quantidade,
                 const tagREG_CAMPOS_RELATORIO* campos, std::size_t qdeCampos)
      : pedidas_(pedidas), quantidade_(quantidade), semCampo_(quantidade) {
    std::unordered_map<std::string_view, std::int32_t> codigos;
    for (std::size_t i = 0; i < qdeCampos; ++i) {
      const std::int32_t codigo = campos[i].iCod;  // the record is packed: no reference may be bound to its field
      codigos.emplace(TextoDoCampo(campos[i].cApelido), codigo);
    }
    for (std::size_t j = 0; j < quantidade; ++j) {
      const auto campo = codigos.find(TextoDoCampo(pedidas[j].cNomeColuna));
      if (campo == codigos.end() || campo->second == kSemCampo) {
        semCampo_ = j;
        break;
      }
      ordens_.emplace(campo->second, j);
    }
  }

  // Searches from the first column on. Returns false if a column that is no field comes before the one with this code.
  bool Procura(Coluna* coluna) const {
    const auto ordem = ordens_.find(coluna->codigo);
    if (ordem == ordens_.end() || ordem->second >= semCampo_) return false;
    coluna->ordem = ordem->second;
    coluna->largura = pedidas_[ordem->second].iTamanho;
    return true;
  }

  // Returns why the column is not found.
  std::string PorQueFalta(const Coluna& coluna) const {
    if (semCampo_ < quantidade_) {
      return "no field of the catalogue has the alias " +
             text::Presentable(text::ToUtf8(TextoDoCampo(pedidas_[semCampo_].cNomeColuna)));
    }
    return "the model has a column with the code " + std::to_string(coluna.codigo) + ", which is not among those given";
  }

 private:
  static constexpr std::int32_t kSemCampo = -1;

  const REG_ATUALIZACAO_RELATORIO* pedidas_;
  std::size_t quantidade_;
  std::size_t semCampo_;
  std::unordered_map<std::int32_t, std::size_t> ordens_;
};

bool Recusa(std::string razao) {
  DizRazao(std::move(razao));
  return false;
}

// Changes the content. Returns false, changes nothing and records the reason if the columns are not the caller's.
bool AtualizaConteudo(const ColunasPedidas& pedidas, std::size_t quantidade, USHORT margemEsquerda,
                      USHORT margemSuperior, Bytes* conteudo) {
  if (conteudo->size() < kColunas) return Recusa("the model is too short to have columns");
  if (conteudo->front() == kOutrosLayouts)
    return Recusa("the model is of a later layout, whose columns are not updated");
  std::vector<Coluna> colunas;
  for (std::size_t p = kColunas; p + kBytesColuna <= conteudo->size(); p += kBytesColuna) {
    Coluna coluna = {Le<std::int32_t>(*conteudo, p), 0, 0};
    if (coluna.codigo == 0) break;
    if (colunas.size() >= quantidade) {
      return Recusa("all columns of the model must be given, and it has more than " + std::to_string(quantidade));
    }
    if (!pedidas.Procura(&coluna)) return Recusa(pedidas.PorQueFalta(coluna));
    colunas.push_back(coluna);
  }
  std::stable_sort(colunas.begin(), colunas.end(), [](const Coluna& a, const Coluna& b) { return a.ordem < b.ordem; });
  std::size_t posicao = kColunas;
  for (const Coluna& coluna : colunas) {
    Escreve(coluna.codigo, posicao, conteudo);
    Escreve(coluna.largura, posicao + kLarguraNaColuna, conteudo);
    posicao += kBytesColuna;
  }
  Escreve(margemEsquerda, kMargemEsquerda, conteudo);
  Escreve(margemSuperior, kMargemSuperior, conteudo);
  return true;
}

}  // namespace

HRESULT CRepositorioRel::AtualizaRelatorio(BSTR bsRelatorio, USHORT iMargemEsquerda, USHORT iMargemSuperior,
                                           USHORT iQdeColunas, REG_ATUALIZACAO_RELATORIO* pregAtualizacao) {
  return servidor_.Executa(MudancaDe("AtualizaRelatorio"), bsRelatorio, [&] {
    return AtualizaModelo(bsRelatorio, iMargemEsquerda, iMargemSuperior, iQdeColunas, pregAtualizacao);
  });
}

HRESULT CRepositorioRel::AtualizaModelo(BSTR bsRelatorio, USHORT iMargemEsquerda, USHORT iMargemSuperior,
                                        USHORT iQdeColunas, const REG_ATUALIZACAO_RELATORIO* pregAtualizacao) {
  if (iQdeColunas > 0 && pregAtualizacao == nullptr) return E_INVALIDARG;
  const std::string caminho = CaminhoRelAtualizado(Prefixo(), TextoDeBstr(bsRelatorio));
  CFile arquivo;
  CFileException falha;
  if (!arquivo.Open(caminho.c_str(), kAtualizacao, &falha)) {
    DizRazao("changed", falha);
    return NoticeForm(KESTOR_ARQ_NAO_EXISTE);
  }
  ConteudoLido modelo = LeConteudo(arquivo, caminho);
  if (!modelo.inteiro) return ErrorForm(KESTOR_PROBLEMAS_AO_LER);

  LONG qdeCampos = 0;
  if (const HRESULT catalogo = BuscaQdeCamposArquivo(&qdeCampos); catalogo != S_OK) return catalogo;
  const auto campos = std::exchange(camposPendentes_, nullptr);
  const ColunasPedidas pedidas(pregAtualizacao, iQdeColunas, campos.get(), static_cast<std::size_t>(qdeCampos));
  if (!AtualizaConteudo(pedidas, iQdeColunas, iMargemEsquerda, iMargemSuperior, &modelo.bytes)) {
    return NoticeForm(KESTOR_ARQ_JA_FOI_ALTERADO);
  }
  try {
    arquivo.SeekToBegin();
    arquivo.Write(modelo.bytes.data(), static_cast<UINT>(modelo.bytes.size()));
    arquivo.Close();
    return S_OK;
  } catch (const CFileException& naGravacao) {
    DizRazao("written", naGravacao);
    return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
  }
}

}  // namespace kestor
