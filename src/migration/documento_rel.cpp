#include "documento_rel.h"

#include <string_view>
#include <unordered_map>

#include "common/zn_array.h"
#include "contract/campo_texto.h"
#include "escrita_vocabulario.h"

namespace kestor {

namespace {

namespace v = vocabulario;

// ---- What the content's values are in a document -------------------------------------------------------------------

float Margem(std::int32_t centesimos) {
  constexpr float kCentesimo = 0.01F;
  return static_cast<float>(centesimos) * kCentesimo;
}

std::int32_t SeparadorDe(std::int32_t separador) {
  switch (separador) {
    case 1:
      return separadorLinha;
    case 2:
      return separadorPagina;
    default:
      return separadorNenhum;
  }
}

std::int32_t OperadorDe(std::int32_t operador) {
  switch (operador) {
    case 1:
      return operadorDiferente;
    case 2:
      return operadorMaior;
    case 3:
      return operadorMenor;
    case 4:
      return operadorMaiorIgual;
    case 5:
      return operadorMenorIgual;
    default:
      return operadorIgual;
  }
}

// ---- Totals --------------------------------------------------------------------------------------------------------

struct TotalRel {
  std::uint16_t codigo;
  bool naQuebra;
  bool geral;
};

// The totalled fields, each once, in the order of their first appearance.
class ListaTotais {
 public:
  explicit ListaTotais(const ValoresRel& valores) {
    for (std::size_t i = 0; i < valores.subtotais.quantidade; ++i)
      Marca(valores.Subtotal(i), &TotalRel::naQuebra);
    for (std::size_t i = 0; i < valores.totaisGerais.quantidade; ++i)
      Marca(valores.TotalGeral(i), &TotalRel::geral);
  }

  const ZN::CArray<TotalRel>& Totais() const { return totais_; }

 private:
  static constexpr std::size_t kPasso = 64;

  void Marca(std::uint16_t codigo, bool TotalRel::*marca) {
    const auto [lugar, novo] = lugares_.try_emplace(codigo, totais_.Count());
    if (novo) totais_.Add({codigo, false, false});
    totais_[lugar->second].*marca = true;
  }

  ZN::CArray<TotalRel> totais_{kPasso};
  std::unordered_map<std::uint16_t, std::size_t> lugares_;
};

// ---- The document --------------------------------------------------------------------------------------------------

class Documento {
 public:
  Documento(const CConteudoRel& conteudo, IEscritorMarcacao& escritor, IAtributosMarcacao& atributos)
      : conteudo_(conteudo), valores_(conteudo.Valores()), escrita_(escritor, atributos) {}

  void Escreve(const std::string& nome) {
    using D = CDocRelatorio;
    escrita_.Inicia<v::kRelatorio>(Com<&D::versao>(kVersaoDocumento), Constantes{},
                                   Com<&D::dataInicial>(valores_.dataInicial), Com<&D::dataFinal>(valores_.dataFinal),
                                   Com<&D::nome>(nome));
    EscreveImpressao();
    EscreveCampos();
    EscreveOrdenacao();
    EscreveFiltro();
    EscreveExportacao();
    escrita_.Finaliza<v::kRelatorio>();
  }

 private:
  void EscreveImpressao() {
    using Impressao = CSecaoImpressao;
    using Cabecalho = CImpressaoCabecalho;
    using Detalhe = CImpressaoDetalhe;
    using Rodape = CImpressaoRodape;
    escrita_.Inicia<v::kImpressao>(
        Com<&Impressao::margemEsquerda>(Margem(valores_.margemEsquerda)),
        Com<&Impressao::margemSuperior>(Margem(valores_.margemSuperior)),
        Com<&Impressao::paginaInicial>(valores_.primeiraPagina), Com<&Impressao::truncarColunas>(false),
        Com<&Impressao::tipoNumeracao>(valores_.numeracao != 0 ? numeracaoFolha : numeracaoPagina));
    escrita_.Folha<v::kImpressaoCabecalho>(
        Com<&Cabecalho::texto>(valores_.textoCabecalho), Com<&Cabecalho::fonte>(valores_.fonteCabecalho),
        Com<&Cabecalho::tamanhoFonte>(valores_.tamanhoFonteCabecalho), Com<&Cabecalho::dataEmissao>(false),
        ComNumero<&Cabecalho::periodo>(valores_.periodo), ComNumero<&Cabecalho::logotipo>(valores_.logo));
    escrita_.Folha<v::kImpressaoDetalhe>(Com<&Detalhe::fonteColuna>(valores_.fonteColuna),
                                         Com<&Detalhe::tamanhoFonteColuna>(valores_.tamanhoFonteColuna),
                                         Com<&Detalhe::fonteDetalhe>(valores_.fonteDetalhe),
                                         Com<&Detalhe::tamanhoFonteDetalhe>(valores_.tamanhoFonteDetalhe),
                                         Com<&Detalhe::textoFinal>(valores_.textoFinal));
    escrita_.Folha<v::kImpressaoRodape>(Com<&Rodape::texto>(valores_.textoRodape),
                                        Com<&Rodape::fonte>(valores_.fonteRodape),
                                        Com<&Rodape::tamanhoFonte>(valores_.tamanhoFonteRodape));
    escrita_.Finaliza<v::kImpressao>();
  }

  void EscreveCampos() {
    using Campo = CampoEscolhido;
    escrita_.Inicia<v::kCamposEscolhidos>();
    for (std::size_t i = 0; i < valores_.colunas.quantidade; ++i) {
      tagREG_CAMPOS_RELATORIO campo{};
      if (!conteudo_.BuscaCampoColuna(i, campo)) continue;
      const ColunaRel coluna = valores_.Coluna(i);
      escrita_.Folha<v::kCampoEscolhido>(
          Com<&Campo::codigo>(coluna.codigo), Com<&Campo::tamanho>(coluna.tamanho),
          Com<&Campo::alinhamento>(coluna.alinhamento), Com<&Campo::fixo>(coluna.Fixa()),
          Com<&Campo::tipoDado>(campo.cTipo), Com<&Campo::cabecalho>(std::string(TextoDoCampo(campo.cApelido))),
          Com<&Campo::conteudo>(coluna.Fixa() ? conteudo_.BuscaConteudoFixo(i) : std::string()));
    }
    escrita_.Finaliza<v::kCamposEscolhidos>();
  }

  void EscreveOrdenacao() {
    using Campo = CampoOrdenacao;
    using Total = CampoTotalizacao;
    escrita_.Inicia<v::kOrdenacao>(ComNumero<&CSecaoOrdenacao::somenteTotais>(valores_.somenteTotais));
    for (std::size_t i = 0; i < valores_.ordenacoes.quantidade; ++i) {
      const OrdenacaoRel ordenacao = valores_.Ordenacao(i);
      escrita_.Folha<v::kCampoOrdenacao>(Com<&Campo::codigo>(ordenacao.codigo),
                                         Com<&Campo::separador>(SeparadorDe(ordenacao.separador)));
    }
    const ListaTotais lista(valores_);
    for (const TotalRel& total : lista.Totais()) {
      escrita_.Folha<v::kCampoTotalizacao>(Com<&Total::codigo>(total.codigo), Com<&Total::naQuebra>(total.naQuebra),
                                           Com<&Total::geral>(total.geral));
    }
    escrita_.Finaliza<v::kOrdenacao>();
  }

  void EscreveFiltro() {
    using Condicao = CondicaoFiltro;
    escrita_.Inicia<v::kFiltro>();
    for (std::size_t i = 0; i < valores_.filtros.quantidade; ++i) {
      const FiltroRel filtro = valores_.Filtro(i);
      escrita_.Folha<v::kCondicaoFiltro>(Com<&Condicao::codigo>(filtro.codigo),
                                         Com<&Condicao::valorComparar>(filtro.valor),
                                         Com<&Condicao::operador>(OperadorDe(filtro.operador)),
                                         Com<&Condicao::comparador>(filtro.conector != 0 ? comparadorE : comparadorOu));
    }
    escrita_.Finaliza<v::kFiltro>();
  }

  void EscreveExportacao() {
    escrita_.Inicia<v::kExportacao>();
    escrita_.Inicia<v::kExportacaoCabecalho>();
    EscreveLinha(conteudo_.CabecalhoExportacao());
    escrita_.Finaliza<v::kExportacaoCabecalho>();
    escrita_.Inicia<v::kExportacaoRodape>();
    EscreveLinha(conteudo_.RodapeExportacao());
    escrita_.Finaliza<v::kExportacaoRodape>();
    escrita_.Finaliza<v::kExportacao>();
  }

  void EscreveLinha(const CConteudoRel::LinhaExportacao& linha) {
    using Item = CItemExportacao;
    constexpr std::int32_t kTamanhoPadrao = 10;
    escrita_.Folha<v::kItemExportacao>(
        Com<&Item::descricao>(linha.descricao),
        Com<&Item::tamanho>(linha.tamanho != 0 ? linha.tamanho : kTamanhoPadrao),
        Com<&Item::tipo>(linha.tipo == static_cast<char>(KESTOR_Numerico) ? itemNumerico : itemAlfanumerico));
  }

  const CConteudoRel& conteudo_;
  const ValoresRel& valores_;
  EscritaVocabulario escrita_;
};

}  // namespace

bool EscreveDocumento(const CConteudoRel& conteudo, const std::string& nome, IEscritorMarcacao& escritor,
                      IAtributosMarcacao& atributos) {
  try {
    Documento(conteudo, escritor, atributos).Escreve(nome);
    return true;
  } catch (const EscritorDesistiu&) {
    return false;
  }
}

bool GeraDocumento(const CConteudoRel& conteudo, const std::string& nome, CMemStream& saida) {
  ComPtr<IEscritorMarcacao> escritor;
  if (FAILED(
          CoCreateInstance(CLSID_EscritorMarcacao, nullptr, CLSCTX_ALL, IID_IEscritorMarcacao, escritor.OutVoid()))) {
    return false;
  }
  escritor->DefineSaida(&saida);
  escritor->IniciaDocumento();
  ComPtr<IAtributosMarcacao> atributos;
  if (FAILED(CoCreateInstance(CLSID_AtributosMarcacao, nullptr, CLSCTX_ALL, IID_IAtributosMarcacao,
                              atributos.OutVoid()))) {
    return false;
  }
  return EscreveDocumento(conteudo, nome, *escritor, *atributos) && SUCCEEDED(escritor->FinalizaDocumento());
}

}  // namespace kestor
